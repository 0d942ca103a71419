// SPDX-License-Identifier: Apache-2.0
// tavstrg: the storage provider's command line.

#include "tavstrg/arguments.h"
#include "tavstrg/commands.h"
#include "tavstrg/json.h"
#include "tavstrg/terminal.h"
#include "tavstrg/words.h"
#include "tavstrg/wrap.h"

#include <fcntl.h>
#include <langinfo.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <sstream>
#include <string>

// The simulator's library makes no machine of its own for this program: takeEnvironment() decides.
extern "C" [[gnu::visibility("default")]] const bool tavsimLeavesEnvironment = true;

namespace {

// The next file that is opened, a device or the saved state, would get the number of a closed standard descriptor, and
// with it messages. Such a descriptor is opened so that writing to it fails.
void keepStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

// Looked up and reset: the provider runs in the plain locale, as in the broker.
bool terminalIsUtf8()
{
    std::setlocale(LC_CTYPE, "");
    const bool utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    std::setlocale(LC_CTYPE, "C");
    return utf8;
}

int complain(const std::string &text, int status)
{
    std::string message;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) { // with names of files and fields in it
        message += "tavstrg: " + tool::printable(line) + "\n";
    }
    std::fputs(tool::fitted(message, tool::widthOf(STDERR_FILENO)).c_str(), stderr);
    return status;
}

int fail(const tool::Arguments &arguments, int status, const std::string &error, int cimStatus = 0)
{
    if (!arguments.json) {
        return complain(error, status);
    }
    std::fputs(tool::failureJson(tool::commandName(arguments.command), status, cimStatus, error).c_str(), stderr);
    return status;
}

// Returns why the text could not be written, such as a full disk; empty on success.
std::string print(const std::string &text)
{
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!written || std::fflush(stdout) != 0) {
        return std::string("standard output: ") + std::strerror(errno);
    }
    return {};
}

int runCommand(const tool::Arguments &arguments)
{
    tool::TextStyle style;
    style.width = tool::widthOf(STDOUT_FILENO);
    style.utf8 = terminalIsUtf8();
    style.verbose = arguments.verbose;
    style.colour =
        tool::wantsColour(arguments.colour, isatty(STDOUT_FILENO) == 1, std::getenv("TERM"), std::getenv("NO_COLOR"));
    try {
        const tool::Outcome outcome = tool::run(arguments, style);
        std::string error = print(outcome.output);
        const int status = error.empty() ? outcome.status : tool::kFailed;
        error += (error.empty() || outcome.error.empty() ? "" : "\n") + outcome.error;
        return error.empty() ? status : fail(arguments, status, error, outcome.cimStatus);
    } catch (const std::exception &error) { // out of memory and the like
        return fail(arguments, tool::kFailed, error.what());
    }
}

// A machine that the command line does not name must not be taken for this machine.
void tellSimulated(const tool::Arguments &arguments)
{
    const std::string note =
        "this is the simulated machine " + tool::printable(arguments.machine) + ", which TAVSIM_MACHINE names";
    if (arguments.json) {
        std::fputs(tool::noteJson(tool::commandName(arguments.command), note).c_str(), stderr);
    } else {
        complain(note, tool::kDone);
    }
}

int runTool(int argc, const char *const *argv)
{
    const tool::Parsed parsed = tool::parseArguments(argc, argv);
    if (parsed.arguments) {
        tool::Arguments arguments = *parsed.arguments;
        if (tool::takeEnvironment(arguments)) {
            tellSimulated(arguments);
        }
        return runCommand(arguments);
    }
    if (parsed.status != tool::kDone) { // text also with --json: the call itself is to be corrected
        return complain(parsed.text, parsed.status);
    }
    const std::string error = print(parsed.text);
    return error.empty() ? tool::kDone : complain(error, tool::kFailed);
}

} // namespace

int main(int argc, char **argv)
{
    keepStandardDescriptors();
    try {
        return runTool(argc, argv);
    } catch (const std::exception &error) { // no memory even for the arguments
        return complain(error.what(), tool::kFailed);
    }
}
