// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/machine_file.h"

#include "sim/sim.h"
#include "tavstrg/failure.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace tool {
namespace {

// The library's message without its own numbering and position, which are in the prefix.
std::string reasonOf(const nlohmann::json::parse_error &error)
{
    const std::string text = error.what();
    const size_t column = text.find(", column ");
    const size_t reason = column == std::string::npos ? std::string::npos : text.find(": ", column);
    return reason == std::string::npos ? text : text.substr(reason + 2);
}

} // namespace

std::string readMachineFile(const std::string &path)
{
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(path.c_str(), "re"), &std::fclose);
    if (!file) {
        throw Failure(path + ": " + std::strerror(errno));
    }
    std::string text;
    char buffer[4096];
    size_t count = 0;
    while (text.size() <= sim::Machine::kLongestDescription &&
           (count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
        text.append(buffer, count);
    }
    if (std::ferror(file.get()) != 0) { // a directory opens, but cannot be read
        throw Failure(path + ": " + std::strerror(errno));
    }
    try {
        sim::Machine::checkDescription(text);
    } catch (const std::runtime_error &error) {
        throw Failure(path + ": " + error.what());
    }
    checkJson(text, path);
    return text;
}

void checkJson(const std::string &text, const std::string &name)
{
    try {
        [[maybe_unused]] const auto parsed = nlohmann::json::parse(text);
    } catch (const nlohmann::json::parse_error &error) {
        const size_t at = std::min(error.byte > 0 ? error.byte - 1 : 0, text.size()); // position of the last byte read
        const auto lines = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n');
        const size_t lineStart = at == 0 ? 0 : text.rfind('\n', at - 1) + 1; // npos + 1 is the first line's 0
        throw Failure(name + ":" + std::to_string(lines + 1) + ":" + std::to_string(at - lineStart + 1) + ": " +
                      reasonOf(error));
    }
}

std::string withAgentLibraries(const std::string &description)
{
    auto machine = nlohmann::ordered_json::parse(description);
    if (!machine.is_object() || (machine.contains("agent") && !machine["agent"].is_object())) {
        return description;
    } // the mistake is reported when the machine is made
    machine["agent"]["libraries"] = true;
    return machine.dump();
}

} // namespace tool
