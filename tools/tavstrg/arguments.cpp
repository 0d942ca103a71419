// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/arguments.h"

#include "tavstrg/catalogue.h"
#include "tavstrg/disk_columns.h"
#include "tavstrg/nearest.h"
#include "tavstrg/raw_arguments.h"
#include "tavstrg/words.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace tool {
namespace {

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

// The file that record and report write.
void takeFile(const RawArguments &raw, Arguments &arguments)
{
    if (raw.file.empty()) {
        throw UsageError(std::string(commandName(arguments.command)) + ": FILE must not be empty");
    }
    arguments.output = raw.file == "-" ? "" : raw.file;
}

void takePage(const RawArguments &raw, Arguments &arguments)
{
    takeFile(raw, arguments);
    if (arguments.json) {
        throw UsageError("report: the page is HTML; --json has \"tavstrg --json disks\"");
    }
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

bool namesClass(Command command)
{
    return command == Command::enumerate || command == Command::get || command == Command::call;
}

// What the parser did not fill in as it is.
void takeValues(const CLI::App &app, const RawArguments &raw, Arguments &arguments)
{
    if (arguments.command == Command::get && app.get_subcommands().front()->count("INDEX") > 0) {
        arguments.index = raw.index;
    }
    splitAssignments(raw.assignments, arguments);
    takeColumns(raw, arguments);
    if (arguments.command == Command::record) {
        takeFile(raw, arguments);
    } else if (arguments.command == Command::report) {
        takePage(raw, arguments);
    }
    arguments.colour = colourOf(raw.colour);
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

Parsed parseArguments(int argc, const char *const *argv)
{
    CLI::App app("", "tavstrg");
    RawArguments raw;
    describeCommandLine(app, raw);
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) {
            throw UsageError("a command is required");
        }
        Arguments &arguments = raw.arguments;
        arguments.command = commandOf(app);
        takeValues(app, raw, arguments);
        checkTogether(app, arguments);
        if (namesClass(arguments.command) && !arguments.raw) {
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
