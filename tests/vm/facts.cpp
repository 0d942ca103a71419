// SPDX-License-Identifier: Apache-2.0
#include "vm/facts.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace vm {
namespace {

namespace fs = std::filesystem;

const std::string kDataDirectory = "/opt/qlm/tavkit_sa/data/";
const std::string kDevices = "/sys/bus/scsi/devices/";

// Lower bounds of the levels 5 to 1.
constexpr int kLevelBounds[] = {80, 60, 40, 20, 0};

void writeDataFile(const std::string &name, const std::string &text)
{
    std::ofstream file(kDataDirectory + name);
    if (!(file << text) || !file.flush()) {
        std::printf("FAIL cannot write %s\n", name.c_str());
        std::exit(2);
    }
}

std::string smartctl(const std::string &options, const std::string &address)
{
    return "timeout 20 /tools/smartctl -d sat " + options + " /dev/" + diskAt(address);
}

} // namespace

const std::string &Device::operator[](const std::string &name) const
{
    static const std::string unknown;
    const auto found = facts.find(name);
    return found == facts.end() ? unknown : found->second;
}

uint64_t Device::number(const std::string &name) const
{
    return std::strtoull((*this)[name].c_str(), nullptr, 0);
}

const Device &Facts::at(const std::string &address) const
{
    for (const Device &device : devices) {
        if (device.address == address) {
            return device;
        }
    }
    std::printf("FAIL the machine has no device %s\n", address.c_str());
    std::exit(2);
}

std::string outputOf(const std::string &command)
{
    std::string output;
    FILE *const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return output;
    }
    char buffer[4096];
    for (size_t length = 0; (length = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        output.append(buffer, length);
    }
    pclose(pipe);
    return output;
}

Facts readFacts()
{
    Facts facts;
    std::ifstream lines("/results/facts");
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string what;
        std::string name;
        std::string value;
        std::getline(words, what, '\t');
        std::getline(words, name, '\t');
        std::getline(words, value);
        if (name == "driver") {
            facts.drivers[std::atoi(what.c_str())] = value;
            continue;
        }
        if (facts.devices.empty() || facts.devices.back().address != what) {
            facts.devices.push_back({what, std::atoi(what.c_str()), {}});
        }
        facts.devices.back().facts[name] = value;
    }
    return facts;
}

uint64_t requestsTo(const std::string &address)
{
    std::ifstream file(kDevices + address + "/iorequest_cnt");
    std::string text; // "0x1f"
    file >> text;
    return std::strtoull(text.c_str(), nullptr, 16);
}

std::string diskAt(const std::string &address)
{
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(kDevices + address + "/block", error)) {
        return entry.path().filename();
    }
    return {};
}

bool smartIsOn(const std::string &address)
{
    return outputOf(smartctl("-A", address)).find("ATTRIBUTE_NAME") != std::string::npos;
}

void switchSmart(const std::string &address, bool on)
{
    outputOf(smartctl(on ? "-s on" : "-s off", address));
}

void writeStorageInf(const std::vector<std::string> &furtherDrivers)
{
    std::string text = "[Management Port]\n";
    for (const auto *list : {&kNeverManaged, &kManaged, &furtherDrivers}) {
        for (const std::string &driver : *list) {
            text += driver + "\n";
        }
    }
    writeDataFile("storage.inf", text + "[Diagnostic Port]\n");
}

void writeNoScsiInf()
{
    writeDataFile("noscsi.inf", "Vendor:ATA Model:" + kUnwatchedModel + "\n");
}

void removeNoScsiInf()
{
    fs::remove(kDataDirectory + "noscsi.inf");
}

void writeEnduranceTable()
{
    std::string line = kEnduranceModel + "," + kEnduranceAttribute + ",100";
    for (const int bound : kLevelBounds) {
        line += "," + std::to_string(bound);
    }
    writeDataFile("tavm2ssd.inf", "[Endurance Remaining]\n" + line + "\n");
}

int enduranceLevel(uint64_t figure)
{
    int level = 5;
    for (const int bound : kLevelBounds) {
        if (figure >= static_cast<uint64_t>(bound)) {
            return level;
        }
        --level;
    }
    return -1;
}

} // namespace vm
