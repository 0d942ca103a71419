// tavstrg: asks the storage provider from a terminal.

#include "arguments.h"
#include "commands.h"

#include <fcntl.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <sstream>
#include <string>

namespace {

// A standard descriptor that is closed would be that of the next file that is opened, a device or the saved state, into
// which a message would then go. It becomes one on which that fails.
void keepStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0)
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

// Columns of the terminal, 0 when the output is read by something else.
size_t terminalWidth()
{
    winsize size{};
    return isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

// Looked up and put back: the provider runs in the plain locale, as in the broker.
bool terminalIsUtf8()
{
    std::setlocale(LC_CTYPE, "");
    const bool utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    std::setlocale(LC_CTYPE, "C");
    return utf8;
}

int complain(const std::string &text, int status)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        std::fprintf(stderr, "tavstrg: %s\n", line.c_str());
    return status;
}

// Status 1 when the output could not be written, a full disk for instance.
int print(const std::string &text, int status)
{
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!written || std::fflush(stdout) != 0)
        return complain(std::string("standard output: ") + std::strerror(errno), tool::kFailed);
    return status;
}

int runTool(int argc, const char *const *argv)
{
    const tool::Parsed parsed = tool::parseArguments(argc, argv);
    if (!parsed.arguments) {
        return parsed.status == tool::kDone ? print(parsed.text, tool::kDone)
                                            : complain(parsed.text + " (see tavstrg --help)", parsed.status);
    }
    tool::TextStyle style;
    style.width = terminalWidth();
    style.utf8 = terminalIsUtf8();
    style.verbose = parsed.arguments->verbose;
    style.colour = tool::wantsColour(parsed.arguments->colour, isatty(STDOUT_FILENO) == 1, std::getenv("TERM"),
                                     std::getenv("NO_COLOR"));
    const tool::Outcome outcome = tool::run(*parsed.arguments, style);
    const int status = print(outcome.output, outcome.status);
    return outcome.error.empty() ? status : complain(outcome.error, status);
}

} // namespace

int main(int argc, char **argv)
{
    keepStandardDescriptors();
    try {
        return runTool(argc, argv);
    } catch (const std::exception &error) { // out of memory and the like
        return complain(error.what(), tool::kFailed);
    }
}
