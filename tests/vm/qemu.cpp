// SPDX-License-Identifier: Apache-2.0
#include "vm/qemu.h"

#include "runtime/holders.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace vm {
namespace {

using Json = nlohmann::json;

constexpr int kTries = 5;
constexpr int kSilenceMs = 3000;

void makeRaw(int port)
{
    termios settings{};
    tcgetattr(port, &settings);
    cfmakeraw(&settings);
    tcsetattr(port, TCSANOW, &settings);
}

// Reads the answer with that id, past the greeting, events, and answers to earlier tries. Adds all it reads to seen.
Json answerTo(int port, int id, std::string &seen)
{
    std::string line;
    for (pollfd readable{port, POLLIN, 0}; poll(&readable, 1, kSilenceMs) == 1;) {
        char byte = 0;
        if (read(port, &byte, 1) != 1) {
            break;
        }
        seen += byte;
        if (byte != '\n') {
            line += byte;
            continue;
        }
        Json said = Json::parse(line, nullptr, false);
        if (said.is_object() && said.value("id", -1) == id) {
            return said;
        }
        line.clear();
    }
    return {};
}

// A byte can get lost when the port is opened or the host is busy, so that qemu waits for the end of a command: the
// line's end, and a second try, bring it back.
Json answerOf(int port, Json command, std::string &seen)
{
    static int id = 0;
    for (int attempt = 0; attempt < kTries; ++attempt) {
        command["id"] = ++id;
        const std::string line = "\n" + command.dump() + "\n";
        if (write(port, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            break;
        }
        if (Json said = answerTo(port, id, seen); !said.is_null()) {
            return said;
        }
    }
    return {};
}

} // namespace

std::string setDeviceProperty(const std::string &id, const std::string &property, unsigned value)
{
    const tavstrg::FileDesc port(open("/dev/ttyS2", O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!port) {
        return "no third serial port";
    }
    makeRaw(port.get());
    std::string seen;
    answerOf(port.get(), {{"execute", "qmp_capabilities"}}, seen); // refused when it was asked before
    const Json arguments = {{"path", "/machine/peripheral/" + id}, {"property", property}, {"value", value}};
    const Json said = answerOf(port.get(), {{"execute", "qom-set"}, {"arguments", arguments}}, seen);
    return said.contains("return") ? "" : "[" + seen + "]";
}

} // namespace vm
