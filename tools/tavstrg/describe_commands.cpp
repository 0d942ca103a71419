// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/raw_arguments.h"

#include "tavstrg/disk_columns.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr const char *kDescription = "Shows what the storage provider reports of this machine, or a simulated one.";
// Help texts fit 80 columns. No line of a footer begins with "-" or is one word in lower case: completion and the test
// of the manual page read options and commands out of the help.
constexpr const char *kFooter = "\nExamples:\n"
                                "  tavstrg show                         what this machine has; as root\n"
                                "  tavstrg --json get HardDisk 2        one disk, for a program\n"
                                "  tavstrg --machine m.json watch       the alerts of a simulated machine\n"
                                "  tavstrg check --root ./site          files before they go to servers\n"
                                "\nOptions of all commands may be given before or after the command; see\n"
                                "\"tavstrg COMMAND --help\" for its own. A CLASS may be given short and in any\n"
                                "case: HardDisk for TAV_StorageHardDisk.\n"
                                "\nWithout --provider it is ../lib/libTAVStorageProvider.so from the tool's\n"
                                "directory, else the one in the broker's directory for providers, the system's\n"
                                "library directory or its cmpi directory.\n"
                                "\nOn a terminal long lines are wrapped; elsewhere they stay whole. Colours are\n"
                                "used on a terminal that has them, unless the variable NO_COLOR is set.\n"
                                "\nIn service mode only TAV_StorageThread answers until the monitoring thread runs.\n"
                                "\nExit status: 0 on success; 1 on a failure, such as a refused request, a class\n"
                                "without instances, a provider that does not load or a\n"
                                "machine file that cannot be read; 2 on wrong usage. A failure is reported on\n"
                                "standard error in one line. A disk that predicts its failure is an answer, not a\n"
                                "failure: it does not change the status, except that of health.\n";
constexpr const char *kClassFooter =
    "\nA CLASS may be given short and in any case: HardDisk for TAV_StorageHardDisk.\n";

// CLI11 marks arguments with their type and as required, which the usage line shows already.
void describeForm(CLI::App &app)
{
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->label("SUBCOMMAND", "COMMAND [ARGUMENT...]");
}

void describeGlobals(CLI::App &app, RawArguments &raw)
{
    Arguments &arguments = raw.arguments;
    app.set_help_flag("-h,--help", "Print this help text and exit");
    app.set_help_all_flag("--help-all", "Print the help of all commands and exit");
    app.set_version_flag("--version", std::string("tavstrg ") + TAV_VERSION, "Print the version and exit");
    app.add_flag("--json", arguments.json, "Print JSON instead of text, for programs");
    app.add_option("--machine", arguments.machine, "Ask the simulated machine that FILE describes")->type_name("FILE");
    app.add_option("--state", arguments.state, "With --machine: its agent keeps its state in DIR")->type_name("DIR");
    app.add_flag("--trace", arguments.trace, "Print what the provider traces on standard error");
    app.add_option("--provider", arguments.provider, "Shared object of the provider (see below)")->type_name("FILE");
    app.add_flag("--service-mode", arguments.serviceMode, "Agent counts as in service mode (see below)");
    app.add_option("--color", raw.colour, "When to colour what show and watch print")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app.footer(kFooter);
    app.require_subcommand(0, 1); // a missing command has its own message below
}

void describeBook(CLI::App &command, RawArguments &raw)
{
    command.add_option("--book", raw.arguments.book, "Remember the disks in FILE, and say what changed")
        ->type_name("FILE");
}

// The names of all columns, in lines of the help.
std::string columnLines()
{
    std::string lines;
    std::string line = "\nColumns:";
    for (const std::string &name : diskColumnNames()) {
        if (line.size() + 1 + name.size() > 79) {
            lines += line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + name;
    }
    return lines + line + "\n";
}

void describeDisks(CLI::App &command, RawArguments &raw)
{
    Arguments &arguments = raw.arguments;
    command.add_option("-o,--columns", raw.columns, "Columns to print, separated by commas")->type_name("COLUMN,...");
    command.add_option("--sort", arguments.sort, "Sort by a column")->type_name("COLUMN");
    command.add_flag("--failing", arguments.failing, "Only disks that need attention");
    command.add_flag("--no-header", raw.noHeader, "Neither the line of names nor what follows the table");
    command.add_flag("--csv", arguments.csv, "Print CSV; sizes are bytes, times seconds since 1970");
    command.add_flag("-w,--wide", arguments.wide, "More columns: 120 characters instead of 80");
    describeBook(command, raw);
    command.footer("\nSATA, SAS, USB, NVMe, virtio and MMC disks alike, each once, however many paths it\n"
                   "has. Needs no agent and no broker; asking the disks needs root. A disk that sleeps\n"
                   "is left asleep, nothing is changed. A disk that needs attention is marked !, one\n"
                   "that fails or does not answer !!.\n" +
                   columnLines());
}

void describeDisk(CLI::App &command, RawArguments &raw)
{
    command.add_option("ID", raw.arguments.disk, "Its ID, node or serial number")->required()->type_name("");
    describeBook(command, raw);
    command.footer("\nExample: tavstrg disk /dev/sda\n");
}

void describeHealth(CLI::App &command, RawArguments &raw)
{
    describeBook(command, raw);
    command.footer("\nExit status: 0 if no disk needs attention, 3 if one warns, 4 if one fails or does\n"
                   "not answer; 1 if the disks could not be asked, 2 on wrong usage.\n");
}

void describeRecord(CLI::App &command, RawArguments &raw)
{
    command.add_option("FILE", raw.file, "The description; - is standard output")->required()->type_name("");
    command.add_flag("--keep-names", raw.arguments.keepNames, "Do not replace serial numbers and names");
    command.footer("\nMade for reports: \"tavstrg --machine FILE disks\" shows the disks of this machine\n"
                   "elsewhere. The disks are asked as by \"tavstrg disks\", as root with their answers;\n"
                   "nothing is changed. Serial numbers, world wide names and addresses in networks\n"
                   "are replaced by made-up ones, equal ones alike; what is missing is said. FILE is\n"
                   "replaced in one step and readable by its owner alone.\n");
}

void describeReport(CLI::App &command, RawArguments &raw)
{
    command.add_option("FILE", raw.file, "The page, HTML; - for standard output")->required()->type_name("");
    describeBook(command, raw);
    command.footer("\nThe page is one file that loads nothing else. FILE is written in one step; it\n"
                   "must be a regular file or not exist. With a book it says since when.\n"
                   "\nExample: tavstrg report storage.html\n");
}

void describeShow(CLI::App &command, RawArguments &raw)
{
    command.add_flag("-v,--verbose", raw.arguments.verbose, "Also geometry, versions, numbers, monitoring");
    command.footer("\nA disk that needs attention is marked !, one that is about to fail !!.\n");
}

void describeClass(CLI::App &command, RawArguments &raw)
{
    command.add_option("CLASS", raw.arguments.className, "Class, see \"tavstrg classes\"")->required()->type_name("");
    command.add_flag("--raw", raw.arguments.raw, "Send names and values unchecked, as they are given");
}

void describeEnum(CLI::App &command, RawArguments &raw)
{
    describeClass(command, raw);
    command.footer(std::string(kClassFooter) + "A class without instances is a failure, exit status 1.\n");
}

void describeGet(CLI::App &command, RawArguments &raw)
{
    describeClass(command, raw);
    command.add_option("INDEX", raw.index, "Index (or DiskID) of one of many instances")->type_name("");
    command.footer(std::string(kClassFooter) + "\nExample: tavstrg get HardDisk 2\n");
}

void describeCall(CLI::App &command, RawArguments &raw)
{
    describeClass(command, raw);
    command.add_option("METHOD", raw.arguments.method, "Method of the class, in any case")->required()->type_name("");
    command.add_option("NAME=VALUE", raw.assignments, "Arguments of the method, sent as text")->type_name("");
    command.footer(std::string(kClassFooter) +
                   "MonitorCycle takes 10 to 3600, HardDiskSmartMode 0 or 1. A call is refused while\n"
                   "another process runs the provider: it would overwrite what is saved.\n"
                   "\nExample: tavstrg call Config SetMonitorCycle MonitorCycle=120\n");
}

void describeClasses(CLI::App &command, RawArguments & /*raw*/)
{
    command.footer("");
}

void describeWatch(CLI::App &command, RawArguments &raw)
{
    command.add_option("--cycle", raw.arguments.cycle, "Set the monitoring cycle first; it stays set")
        ->type_name("SECONDS")
        ->check(CLI::Range(10, 3600)); // what SetMonitorCycle takes
    command.footer("\nThe provider runs in service mode, its monitoring thread is started. Alerts are\n"
                   "printed as they come, with --json as one object a line. With --machine the file\n"
                   "may be edited meanwhile: within a cycle the thread finds the changed machine. On\n"
                   "a machine whose agent is installed the alerts go to the agent.\n");
}

void describeCheck(CLI::App &command, RawArguments &raw)
{
    command.add_option("--root", raw.arguments.root, "Check the files of DIR, not the installed ones")
        ->type_name("DIR");
    command.footer("\nChecked are storage.inf, noscsi.inf, tavm2ssd.inf and options.inf in the data\n"
                   "directory of the agent, of the simulated machine (--machine), or of DIR\n"
                   "(--root): in DIR/data, or in DIR itself where it has no data. Accepted lines\n"
                   "and notes go to standard output, skipped lines to standard error, each as\n"
                   "FILE:LINE: text; --json prints all of them. A file may be absent.\n"
                   "Without --root the machine is checked too: its kernel release, the agent's\n"
                   "directories, its drivers, and whether its managed disks answer.\n"
                   "\nExit status: 0 without a problem, 1 if a line is skipped, a file cannot be read\n"
                   "or the machine has a problem, 2 on wrong usage.\n");
}

void describeMetrics(CLI::App &command, RawArguments &raw)
{
    command.add_option("--output", raw.arguments.output, "Write FILE in one step instead")->type_name("FILE");
    command.add_option("--from-book", raw.arguments.fromBook, "Values as FILE remembers them; no disk is asked")
        ->type_name("FILE");
    command.add_flag("--classes", raw.arguments.ofClasses, "The twelve classes instead; asks the provider");
    describeBook(command, raw);
    command.footer("\nWith --output it is made for the textfile collector of the node exporter: FILE\n"
                   "is always whole. It must be a regular file or not exist. If the disks cannot be\n"
                   "asked, tavstrg_pass_success is 0 and no series of a disk is there. Disks are\n"
                   "labelled with their identity; names and places are labels of\n"
                   "tavstrg_disk_info alone.\n"
                   "\nWith --classes the names begin with tavstorage_ and disks are labelled with\n"
                   "index, serial number and node; tavstorage_collection_success is 0 on failure.\n");
}

void describeDumpState(CLI::App &command, RawArguments &raw)
{
    command.add_option("FILE", raw.arguments.file, "The file, tavstrgsave.dat or a copy of it")
        ->required()
        ->type_name("");
    command.footer("\nOf a damaged file the whole records are printed, and where and how it is\n"
                   "damaged; the exit status is then 1.\n");
}

void describeMonitor(CLI::App &command, RawArguments &raw)
{
    Arguments &arguments = raw.arguments;
    command.add_option("--config", arguments.config, "Configuration, instead of /etc/tavstrg/monitor.conf")
        ->type_name("FILE");
    command.add_flag("--check", arguments.checkConfig, "Only check the configuration and what it names");
    command.add_flag("--once", arguments.once, "One pass and its events, then exit");
    command.footer("\nAsks every disk on a cycle, and when one comes or goes. What happens to a disk\n"
                   "is reported once: to the journal, to executables, to a file, to the agent.\n"
                   "Metrics go to a file for the node exporter. SIGHUP reads the configuration\n"
                   "again. With --machine it needs --config, with files of its own. The manual\n"
                   "page is tavstrg-monitor(8).\n");
    command.add_flag("--send-event", arguments.sendEvent)->group(""); // for the service itself
}

struct CommandEntry {
    Command command;
    const char *name;
    const char *summary;
    void (*describe)(CLI::App &command, RawArguments &raw); // its own options and what follows them in its help
};

// In the order of the help.
constexpr CommandEntry kCommands[] = {
    {Command::disks, "disks", "List every disk, whatever its bus", describeDisks},
    {Command::disk, "disk", "Print everything about one disk", describeDisk},
    {Command::health, "health", "Name the disks that need attention", describeHealth},
    {Command::record, "record", "Describe this machine for the simulator", describeRecord},
    {Command::report, "report", "Write a page that shows the machine, for a browser", describeReport},
    {Command::show, "show", "Show storage as a tree, and how the disks are", describeShow},
    {Command::enumerate, "enum", "Print all instances of a class", describeEnum},
    {Command::get, "get", "Print one instance of a class", describeGet},
    {Command::call, "call", "Call a method of a class and print what it returns", describeCall},
    {Command::classes, "classes", "List classes, their properties and methods", describeClasses},
    {Command::watch, "watch", "Print the monitoring thread's alerts until Ctrl-C", describeWatch},
    {Command::check, "check", "Check the administrator's files, and this machine", describeCheck},
    {Command::metrics, "metrics", "Print the disks in the Prometheus text format", describeMetrics},
    {Command::dumpState, "dump-state", "Print what a saved-state file holds, even damaged", describeDumpState},
    {Command::monitor, "monitor", "Watch the disks as a service", describeMonitor},
};

} // namespace

void describeCommandLine(CLI::App &app, RawArguments &raw)
{
    app.description(kDescription);
    describeForm(app);
    describeGlobals(app, raw);
    for (const CommandEntry &entry : kCommands) {
        CLI::App *command = app.add_subcommand(entry.name, entry.summary);
        entry.describe(*command, raw);
        command->fallthrough(); // global options may follow the command
    }
}

Command commandOf(const CLI::App &app)
{
    const std::string given = app.get_subcommands().front()->get_name();
    return std::find_if(std::begin(kCommands), std::end(kCommands),
                        [&given](const CommandEntry &entry) { return entry.name == given; })
        ->command;
}

const char *commandName(Command command)
{
    return std::find_if(std::begin(kCommands), std::end(kCommands),
                        [command](const CommandEntry &entry) { return entry.command == command; })
        ->name;
}

} // namespace tool
