// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/monitor.h"

#include "tavstrg/monitor/agent_event.h"
#include "tavstrg/monitor/service.h"

#include "tavstrg/failure.h"
#include "tavstrg/words.h"

#include "monitor/alert.h"
#include "runtime/send_alert.h"
#include "runtime/trace.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace tool::monitor {
namespace {

constexpr int32_t kAlertMethod = 3; // as for the provider's alerts that need an answer

std::string absolute(const std::string &path)
{
    return path.empty() ? "" : std::filesystem::absolute(path).string();
}

// A directory that the configuration names, and that must be there.
void checkDirectory(const char *name, const std::filesystem::path &directory, std::vector<std::string> &problems)
{
    struct stat info = {};
    if (stat(directory.c_str(), &info) != 0) {
        problems.push_back(std::string(name) + ": " + directory.string() + ": " + std::strerror(errno));
    } else if (!S_ISDIR(info.st_mode)) {
        problems.push_back(std::string(name) + ": " + directory.string() + ": is not a directory");
    }
}

// What is amiss of that which a good configuration names.
std::vector<std::string> checkSurroundings(const Config &config)
{
    std::vector<std::string> problems;
    for (const std::string &skipped : listPrograms(config.hooks).skipped) {
        problems.push_back("hooks: " + skipped + "; it is not run");
    }
    if (!config.lines.empty()) {
        checkDirectory("lines", std::filesystem::path(config.lines).parent_path(), problems);
    }
    if (!config.metrics.empty() && config.metrics != Config{}.metrics) {
        checkDirectory("metrics", std::filesystem::path(config.metrics).parent_path(), problems);
    }
    return problems;
}

Outcome check(const std::string &file, const Config &config)
{
    Outcome outcome;
    for (const std::string &problem : checkSurroundings(config)) {
        outcome.error += (outcome.error.empty() ? "" : "\n") + problem;
    }
    outcome.status = outcome.error.empty() ? kDone : kFailed;
    outcome.output = outcome.error.empty() ? printable(file) + ": good\n" : "";
    return outcome;
}

std::string variable(const char *name)
{
    const char *const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

Outcome sendEvent()
{
    const AgentEvent event = agentEvent(variable);
    if (event.id == 0) {
        throw Failure("--send-event: the environment describes no event; the service alone uses this option");
    }
    if (InitProcess(nullptr) != 0) {
        throw Failure("--send-event: the libraries of the agent are not installed");
    }
    std::vector<const char *> strings;
    for (const std::string &text : event.strings) {
        strings.push_back(text.c_str());
    }
    const int sent = TAVSendIndication(tavstrg::kAlertSource, event.id, tavstrg::typeOfSeverity(event.id), kAlertMethod,
                                       static_cast<int32_t>(strings.size()), strings.data());
    FinishProcess();
    if (sent != 0) {
        throw Failure("--send-event: the agent refuses the event");
    }
    return {};
}

} // namespace

Outcome run(const Arguments &arguments, Surroundings &surroundings)
{
    if (arguments.sendEvent) {
        return sendEvent();
    }
    Frame frame;
    frame.configMustExist = !arguments.config.empty();
    frame.configFile = frame.configMustExist ? absolute(arguments.config) : kConfigFile;
    frame.once = arguments.once;
    frame.machineFile = absolute(arguments.machine);
    frame.changeMachine = [&surroundings](const std::string &description) { surroundings.changeMachine(description); };
    const ParsedConfig parsed = readConfig(frame.configFile, frame.configMustExist);
    if (!parsed.problems.empty()) {
        throw Failure(problemLines(frame.configFile, parsed.problems));
    }
    if (arguments.checkConfig) {
        return check(frame.configFile, parsed.config);
    }
    const bool once = frame.once;
    Service service(std::move(frame), parsed.config);
    const bool success = service.run();
    if (!once) {
        return {};
    }
    return {success ? kDone : kFailed, service.status() + "\n", ""};
}

} // namespace tool::monitor
