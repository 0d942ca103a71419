// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/arguments.h"

#include "tavstrg/catalogue.h"
#include "tavstrg/disk_columns.h"
#include "tavstrg/nearest.h"
#include "tavstrg/words.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

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

// Wrong usage. hint: the command that shows what is right, unless that is the help of the command that was given.
struct UsageError : std::runtime_error {
    explicit UsageError(const std::string &text, std::string see = "") : std::runtime_error(text), hint(std::move(see))
    {
    }
    std::string hint;
};

std::string inQuotes(std::string_view text)
{
    return '"' + printable(text) + '"';
}

std::string meant(const std::string &name)
{
    return name.empty() ? "" : "; did you mean " + name + "?";
}

// What CLI11 fills in, before names are looked up.
struct RawArguments {
    Arguments arguments;
    std::string index;
    std::vector<std::string> assignments;
    CLI::App *show = nullptr;
    CLI::App *enumerate = nullptr;
    CLI::App *get = nullptr;
    CLI::App *call = nullptr;
    CLI::App *classes = nullptr;
    CLI::App *watch = nullptr;
    CLI::App *check = nullptr;
    CLI::App *metrics = nullptr;
    CLI::App *dumpState = nullptr;
    CLI::App *disks = nullptr;
    CLI::App *disk = nullptr;
    CLI::App *health = nullptr;
    CLI::App *record = nullptr;
    std::string recordFile;
    CLI::App *report = nullptr;
    std::string page;
    CLI::App *monitor = nullptr;
    std::string columns;
    bool noHeader = false;
    std::string colour;
};

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

void describeAsking(CLI::App &app, RawArguments &raw)
{
    Arguments &arguments = raw.arguments;
    raw.show = app.add_subcommand("show", "Show storage as a tree, and how the disks are");
    raw.show->add_flag("-v,--verbose", arguments.verbose, "Also geometry, versions, numbers, monitoring");
    raw.show->footer("\nA disk that needs attention is marked !, one that is about to fail !!.\n");
    raw.enumerate = app.add_subcommand("enum", "Print all instances of a class");
    raw.enumerate->footer(std::string(kClassFooter) + "A class without instances is a failure, exit status 1.\n");
    raw.get = app.add_subcommand("get", "Print one instance of a class");
    raw.get->footer(std::string(kClassFooter) + "\nExample: tavstrg get HardDisk 2\n");
    raw.call = app.add_subcommand("call", "Call a method of a class and print what it returns");
    raw.call->footer(std::string(kClassFooter) +
                     "MonitorCycle takes 10 to 3600, HardDiskSmartMode 0 or 1. A call is refused while\n"
                     "another process runs the provider: it would overwrite what is saved.\n"
                     "\nExample: tavstrg call Config SetMonitorCycle MonitorCycle=120\n");
    raw.classes = app.add_subcommand("classes", "List classes, their properties and methods");
    raw.classes->footer("");
    for (CLI::App *command : {raw.enumerate, raw.get, raw.call}) {
        command->add_option("CLASS", arguments.className, "Class, see \"tavstrg classes\"")->required()->type_name("");
        command->add_flag("--raw", arguments.raw, "Send names and values unchecked, as they are given");
    }
    raw.get->add_option("INDEX", raw.index, "Index (or DiskID) of one of many instances")->type_name("");
    raw.call->add_option("METHOD", arguments.method, "Method of the class, in any case")->required()->type_name("");
    raw.call->add_option("NAME=VALUE", raw.assignments, "Arguments of the method, sent as text")->type_name("");
}

void describeWatch(CLI::App &app, RawArguments &raw)
{
    raw.watch = app.add_subcommand("watch", "Print the monitoring thread's alerts until Ctrl-C");
    raw.watch->add_option("--cycle", raw.arguments.cycle, "Set the monitoring cycle first; it stays set")
        ->type_name("SECONDS")
        ->check(CLI::Range(10, 3600)); // what SetMonitorCycle takes
    raw.watch->footer("\nThe provider runs in service mode, its monitoring thread is started. Alerts are\n"
                      "printed as they come, with --json as one object a line. With --machine the file\n"
                      "may be edited meanwhile: within a cycle the thread finds the changed machine. On\n"
                      "a machine whose agent is installed the alerts go to the agent.\n");
}

void describeCheck(CLI::App &app, RawArguments &raw)
{
    raw.check = app.add_subcommand("check", "Check the administrator's files, and this machine");
    raw.check->add_option("--root", raw.arguments.root, "Check the files of DIR, not the installed ones")
        ->type_name("DIR");
    raw.check->footer("\nChecked are storage.inf, noscsi.inf, tavm2ssd.inf and options.inf in the data\n"
                      "directory of the agent, of the simulated machine (--machine), or of DIR\n"
                      "(--root): in DIR/data, or in DIR itself where it has no data. Accepted lines\n"
                      "and notes go to standard output, skipped lines to standard error, each as\n"
                      "FILE:LINE: text; --json prints all of them. A file may be absent.\n"
                      "Without --root the machine is checked too: its kernel release, the agent's\n"
                      "directories, its drivers, and whether its managed disks answer.\n"
                      "\nExit status: 0 without a problem, 1 if a line is skipped, a file cannot be read\n"
                      "or the machine has a problem, 2 on wrong usage.\n");
}

void describeMetrics(CLI::App &app, RawArguments &raw)
{
    raw.metrics = app.add_subcommand("metrics", "Print the disks in the Prometheus text format");
    raw.metrics->add_option("--output", raw.arguments.output, "Write FILE in one step instead")->type_name("FILE");
    raw.metrics->add_option("--from-book", raw.arguments.fromBook, "Values as FILE remembers them; no disk is asked")
        ->type_name("FILE");
    raw.metrics->add_flag("--classes", raw.arguments.ofClasses, "The twelve classes instead; asks the provider");
    raw.metrics->footer("\nWith --output it is made for the textfile collector of the node exporter: FILE\n"
                        "is always whole. It must be a regular file or not exist. If the disks cannot be\n"
                        "asked, tavstrg_pass_success is 0 and no series of a disk is there. Disks are\n"
                        "labelled with their identity; names and places are labels of\n"
                        "tavstrg_disk_info alone.\n"
                        "\nWith --classes the names begin with tavstorage_ and disks are labelled with\n"
                        "index, serial number and node; tavstorage_collection_success is 0 on failure.\n");
}

void describeReport(CLI::App &app, RawArguments &raw)
{
    raw.report = app.add_subcommand("report", "Write a page that shows the machine, for a browser");
    raw.report->add_option("FILE", raw.page, "The page, HTML; - for standard output")->required()->type_name("");
    raw.report->footer("\nThe page is one file that loads nothing else. FILE is written in one step; it\n"
                       "must be a regular file or not exist. With a book it says since when.\n"
                       "\nExample: tavstrg report storage.html\n");
}

void describeDumpState(CLI::App &app, RawArguments &raw)
{
    raw.dumpState = app.add_subcommand("dump-state", "Print what a saved-state file holds, even damaged");
    raw.dumpState->add_option("FILE", raw.arguments.file, "The file, tavstrgsave.dat or a copy of it")
        ->required()
        ->type_name("");
    raw.dumpState->footer("\nOf a damaged file the whole records are printed, and where and how it is\n"
                          "damaged; the exit status is then 1.\n");
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

void describeDisks(CLI::App &app, RawArguments &raw)
{
    Arguments &arguments = raw.arguments;
    raw.disks = app.add_subcommand("disks", "List every disk, whatever its bus");
    raw.disks->add_option("-o,--columns", raw.columns, "Columns to print, separated by commas")
        ->type_name("COLUMN,...");
    raw.disks->add_option("--sort", arguments.sort, "Sort by a column")->type_name("COLUMN");
    raw.disks->add_flag("--failing", arguments.failing, "Only disks that need attention");
    raw.disks->add_flag("--no-header", raw.noHeader, "Neither the line of names nor what follows the table");
    raw.disks->add_flag("--csv", arguments.csv, "Print CSV; sizes are bytes, times seconds since 1970");
    raw.disks->add_flag("-w,--wide", arguments.wide, "More columns: 120 characters instead of 80");
    raw.disks->footer("\nSATA, SAS, USB, NVMe, virtio and MMC disks alike, each once, however many paths it\n"
                      "has. Needs no agent and no broker; asking the disks needs root. A disk that sleeps\n"
                      "is left asleep, nothing is changed. A disk that needs attention is marked !, one\n"
                      "that fails or does not answer !!.\n" +
                      columnLines());
    raw.disk = app.add_subcommand("disk", "Print everything about one disk");
    raw.disk->add_option("ID", arguments.disk, "Its ID, node or serial number")->required()->type_name("");
    raw.disk->footer("\nExample: tavstrg disk /dev/sda\n");
    raw.health = app.add_subcommand("health", "Name the disks that need attention");
    raw.health->footer("\nExit status: 0 if no disk needs attention, 3 if one warns, 4 if one fails or does\n"
                       "not answer; 1 if the disks could not be asked, 2 on wrong usage.\n");
}

void describeRecord(CLI::App &app, RawArguments &raw)
{
    raw.record = app.add_subcommand("record", "Describe this machine for the simulator");
    raw.record->add_option("FILE", raw.recordFile, "The description; - is standard output")->required()->type_name("");
    raw.record->add_flag("--keep-names", raw.arguments.keepNames, "Do not replace serial numbers and names");
    raw.record->footer("\nMade for reports: \"tavstrg --machine FILE disks\" shows the disks of this machine\n"
                       "elsewhere. The disks are asked as by \"tavstrg disks\", as root with their answers;\n"
                       "nothing is changed. Serial numbers, world wide names and addresses in networks\n"
                       "are replaced by made-up ones, equal ones alike; what is missing is said. FILE is\n"
                       "replaced in one step and readable by its owner alone.\n");
}

void describeBook(RawArguments &raw)
{
    for (CLI::App *command : {raw.disks, raw.disk, raw.health, raw.metrics, raw.report}) {
        command->add_option("--book", raw.arguments.book, "Remember the disks in FILE, and say what changed")
            ->type_name("FILE");
    }
}

void describeMonitor(CLI::App &app, RawArguments &raw)
{
    Arguments &arguments = raw.arguments;
    raw.monitor = app.add_subcommand("monitor", "Watch the disks as a service");
    raw.monitor->add_option("--config", arguments.config, "Configuration, instead of /etc/tavstrg/monitor.conf")
        ->type_name("FILE");
    raw.monitor->add_flag("--check", arguments.checkConfig, "Only check the configuration and what it names");
    raw.monitor->add_flag("--once", arguments.once, "One pass and its events, then exit");
    raw.monitor->footer("\nAsks every disk on a cycle, and when one comes or goes. What happens to a disk\n"
                        "is reported once: to the journal, to executables, to a file, to the agent.\n"
                        "Metrics go to a file for the node exporter. SIGHUP reads the configuration\n"
                        "again. With --machine it needs --config, with files of its own. The manual\n"
                        "page is tavstrg-monitor(8).\n");
    raw.monitor->add_flag("--send-event", arguments.sendEvent)->group(""); // for the service itself
}

void describeCommands(CLI::App &app, RawArguments &raw)
{
    describeDisks(app, raw);
    describeRecord(app, raw);
    describeReport(app, raw);
    describeAsking(app, raw);
    describeWatch(app, raw);
    describeCheck(app, raw);
    describeMetrics(app, raw);
    describeDumpState(app, raw);
    describeBook(raw);
    describeMonitor(app, raw);
    for (CLI::App *command : app.get_subcommands([](const CLI::App *) { return true; })) {
        command->fallthrough();
    } // global options may follow the command
}

Command commandOf(const RawArguments &raw)
{
    if (raw.show->parsed()) {
        return Command::show;
    }
    if (raw.enumerate->parsed()) {
        return Command::enumerate;
    }
    if (raw.get->parsed()) {
        return Command::get;
    }
    if (raw.watch->parsed()) {
        return Command::watch;
    }
    if (raw.check->parsed()) {
        return Command::check;
    }
    if (raw.metrics->parsed()) {
        return Command::metrics;
    }
    if (raw.dumpState->parsed()) {
        return Command::dumpState;
    }
    if (raw.disks->parsed()) {
        return Command::disks;
    }
    if (raw.disk->parsed()) {
        return Command::disk;
    }
    if (raw.health->parsed()) {
        return Command::health;
    }
    if (raw.record->parsed()) {
        return Command::record;
    }
    if (raw.report->parsed()) {
        return Command::report;
    }
    if (raw.monitor->parsed()) {
        return Command::monitor;
    }
    return raw.call->parsed() ? Command::call : Command::classes;
}

ColourWhen colourOf(const std::string &when)
{
    return when == "always" ? ColourWhen::always : when == "never" ? ColourWhen::never : ColourWhen::automatic;
}

void splitAssignments(const std::vector<std::string> &assignments, Arguments &arguments)
{
    for (const std::string &assignment : assignments) {
        const size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw UsageError("call: " + inQuotes(assignment) + " is not NAME=VALUE");
        }
        arguments.methodArguments.push_back({assignment.substr(0, equals), assignment.substr(equals + 1)});
    }
}

const std::string &knownColumn(const std::string &name)
{
    if (findDiskColumn(name) == nullptr) {
        throw UsageError("unknown column " + inQuotes(name) + meant(nearest(name, diskColumnNames())));
    }
    return name;
}

void takeColumns(const RawArguments &raw, Arguments &arguments)
{
    std::istringstream names(raw.columns);
    for (std::string name; std::getline(names, name, ',');) {
        arguments.columns.push_back(knownColumn(name));
    }
    if (!arguments.sort.empty()) {
        knownColumn(arguments.sort);
    }
    arguments.header = !raw.noHeader;
}

void takePage(const RawArguments &raw, Arguments &arguments)
{
    if (!raw.report->parsed()) {
        return;
    }
    if (raw.page.empty()) {
        throw UsageError("report: FILE must not be empty");
    }
    if (arguments.json) {
        throw UsageError("report: the page is HTML; --json has \"tavstrg --json disks\"");
    }
    arguments.output = raw.page == "-" ? "" : raw.page;
}

std::string rangeWords(const NumberRange &range)
{
    return "a number from " + std::to_string(range.least) + " to " + std::to_string(range.most);
}

// Name in its right spelling, value within its range.
void checkArgument(const std::string &target, const MethodEntry &method, MethodArgument &given)
{
    const auto known = std::find_if(method.arguments.begin(), method.arguments.end(),
                                    [&given](const std::string &name) { return sameIgnoringCase(name, given.name); });
    if (known == method.arguments.end()) {
        throw UsageError(target + " has no argument " + inQuotes(given.name) +
                         meant(nearest(given.name, method.arguments)));
    }
    given.name = *known;
    if (const NumberRange range = rangeOf(given.name); !isWithin(range, given.value)) {
        throw UsageError("call: " + given.name + " must be " + rangeWords(range) + ", not " + inQuotes(given.value));
    }
}

void rightMethodSpelling(const ClassEntry &entry, Arguments &arguments)
{
    const MethodEntry *method = findMethod(entry, arguments.method);
    if (method == nullptr) {
        std::vector<std::string> names;
        for (const MethodEntry &one : entry.methods) {
            names.push_back(one.name);
        }
        throw UsageError(entry.name + " has no method " + inQuotes(arguments.method) +
                             meant(nearest(arguments.method, names)),
                         "classes");
    }
    arguments.method = method->name;
    const std::string target = entry.name + "." + method->name;
    for (MethodArgument &given : arguments.methodArguments) {
        checkArgument(target, *method, given);
    }
    for (const std::string &name : method->arguments) {
        const auto times = std::count_if(arguments.methodArguments.begin(), arguments.methodArguments.end(),
                                         [&name](const MethodArgument &given) { return given.name == name; });
        if (times != 1) {
            throw UsageError("call: " + target + " needs " + name + "=VALUE once, " + rangeWords(rangeOf(name)));
        }
    }
}

// Names into the spelling in which the provider, which compares exactly, knows them.
void rightSpelling(Arguments &arguments)
{
    const ClassEntry *entry = findClass(arguments.className);
    if (entry == nullptr) {
        std::vector<std::string> names;
        for (const ClassEntry &one : catalogue()) {
            names.push_back(one.shortName());
            names.push_back(one.name);
        }
        throw UsageError("unknown class " + inQuotes(arguments.className) + meant(nearest(arguments.className, names)),
                         "classes");
    }
    arguments.className = entry->name;
    if (arguments.command == Command::call) {
        rightMethodSpelling(*entry, arguments);
    }
    if (arguments.command == Command::get && entry->keyed() != arguments.index.has_value()) {
        const std::string needed = entry->keyName() == "Index" ? "an INDEX" : "a " + entry->keyName();
        throw UsageError("get: " + entry->name +
                         (entry->keyed() ? " needs " + needed : " has one instance, without INDEX"));
    }
}

// An empty name is most likely a variable of a script that is not set.
void refuseEmptyNames(const CLI::App &app)
{
    for (const CLI::Option *option : app.get_options()) {
        const bool empty = option->count() > 0 && option->get_items_expected_max() > 0 &&
                           std::any_of(option->results().begin(), option->results().end(),
                                       [](const std::string &value) { return value.empty(); });
        if (empty && !option->get_lnames().empty()) {
            throw UsageError("--" + option->get_lnames().front() + " must not be empty");
        }
    }
}

void checkTogether(const CLI::App &app, const Arguments &arguments)
{
    refuseEmptyNames(app);
    for (const CLI::App *command : app.get_subcommands()) {
        refuseEmptyNames(*command);
    }
    if (!arguments.root.empty() && !arguments.machine.empty()) {
        throw UsageError("check: --root and --machine exclude each other");
    }
    if (!arguments.fromBook.empty() && !arguments.book.empty()) {
        throw UsageError("metrics: --book and --from-book exclude each other");
    }
    if (arguments.ofClasses && !(arguments.book.empty() && arguments.fromBook.empty())) {
        throw UsageError("metrics: --classes has no book");
    }
    if (!arguments.state.empty() && arguments.machine.empty()) {
        throw UsageError("--state needs --machine");
    }
    if (arguments.command == Command::monitor && !arguments.sendEvent && !arguments.machine.empty() &&
        arguments.config.empty()) {
        throw UsageError("monitor: --machine needs --config, so that no file of this machine is written");
    }
}

// The command that was given but is none; empty if there is none on the line.
std::string unknownCommand(const CLI::App &app)
{
    if (!app.get_subcommands().empty()) {
        return "";
    }
    for (const std::string &word : app.remaining(true)) {
        if (!word.starts_with('-')) {
            return word;
        }
    }
    return "";
}

std::vector<std::string> commandNames(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::App *command : app.get_subcommands([](const CLI::App *) { return true; })) {
        names.push_back(command->get_name());
    }
    return names;
}

// Usage messages are one line, whatever CLI11 says in several.
std::string oneLine(std::string text)
{
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// With the help that applies: that of the command, unless "see" names another command.
Parsed wrongUsage(const CLI::App &app, const std::string &text, const std::string &see = "")
{
    const auto given = app.get_subcommands();
    const std::string help = !see.empty() ? see : given.empty() ? "--help" : given.front()->get_name() + " --help";
    return {std::nullopt, kWrongUsage, oneLine(text) + " (see tavstrg " + help + ")"};
}

} // namespace

const char *commandName(Command command)
{
    switch (command) {
    case Command::enumerate:
        return "enum";
    case Command::get:
        return "get";
    case Command::call:
        return "call";
    case Command::classes:
        return "classes";
    case Command::watch:
        return "watch";
    case Command::check:
        return "check";
    case Command::metrics:
        return "metrics";
    case Command::dumpState:
        return "dump-state";
    case Command::disks:
        return "disks";
    case Command::disk:
        return "disk";
    case Command::health:
        return "health";
    case Command::record:
        return "record";
    case Command::report:
        return "report";
    case Command::monitor:
        return "monitor";
    default:
        return "show";
    }
}

Parsed parseArguments(int argc, const char *const *argv)
{
    CLI::App app(kDescription, "tavstrg");
    RawArguments raw;
    describeForm(app);
    describeGlobals(app, raw);
    describeCommands(app, raw);
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) {
            throw UsageError("a command is required");
        }
        Arguments &arguments = raw.arguments;
        arguments.command = commandOf(raw);
        if (raw.get->count("INDEX") > 0) {
            arguments.index = raw.index;
        }
        splitAssignments(raw.assignments, arguments);
        takeColumns(raw, arguments);
        if (arguments.command == Command::record && raw.recordFile != "-") {
            arguments.output = raw.recordFile;
        }
        takePage(raw, arguments);
        arguments.colour = colourOf(raw.colour);
        checkTogether(app, arguments);
        const bool named = arguments.command == Command::enumerate || arguments.command == Command::get ||
                           arguments.command == Command::call;
        if (named && !arguments.raw) {
            rightSpelling(arguments);
        }
        return {arguments, kDone, ""};
    } catch (const CLI::Success &request) { // help or version
        std::ostringstream out;
        app.exit(request, out, out);
        return {std::nullopt, kDone, out.str()};
    } catch (const CLI::ParseError &error) {
        if (const std::string command = unknownCommand(app); !command.empty()) {
            return wrongUsage(app, "unknown command " + inQuotes(command) + meant(nearest(command, commandNames(app))));
        }
        return wrongUsage(app, printable(error.what()));
    } catch (const UsageError &error) {
        return wrongUsage(app, error.what(), error.hint);
    }
}

bool takeEnvironment(Arguments &arguments)
{
    const char *machine = secure_getenv("TAVSIM_MACHINE");
    const bool asks = arguments.command != Command::classes && arguments.command != Command::dumpState;
    if (!asks || machine == nullptr || *machine == '\0' || geteuid() == 0 || !arguments.machine.empty() ||
        !arguments.root.empty()) {
        return false;
    }
    const char *state = secure_getenv("TAVSIM_STATE");
    arguments.machine = machine;
    arguments.state = state == nullptr ? "" : state;
    return true;
}

} // namespace tool
