// SPDX-License-Identifier: Apache-2.0
#include "vm/session.h"

#include "vm/checks.h"
#include "vm/facts.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace vm {
namespace {

namespace fs = std::filesystem;

const char *const kProvider = "/test/lib/libTAVStorageProvider.so";
const char *const kSavedState = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat";
const std::string kSimulatedHosts = "/sys/bus/pseudo/drivers/scsi_debug/";

std::string traceFile()
{
    const char *const name = std::getenv("TAVLOG_FILE");
    return name == nullptr ? "" : name;
}

void writeAttribute(const std::string &path, const std::string &value)
{
    std::ofstream file(path);
    if (!(file << value) || !file.flush()) {
        std::printf("FAIL cannot write %s to %s\n", value.c_str(), path.c_str());
        std::exit(2);
    }
}

size_t sharedMemorySegments()
{
    std::ifstream file("/proc/sysvipc/shm");
    size_t lines = 0;
    for (std::string line; std::getline(file, line);) {
        ++lines;
    }
    return lines - 1; // the first one is the heading
}

// Disks that have got their name.
size_t namedDisks()
{
    size_t number = 0;
    for (const auto &entry : fs::directory_iterator("/sys/block")) {
        number += entry.path().filename().string().starts_with("sd") ? 1 : 0;
    }
    return number;
}

void expectWithin(const std::string &what, const std::function<bool()> &condition)
{
    if (!waitUntil(condition)) {
        std::printf("FAIL %s did not happen\n", what.c_str());
        std::exit(2);
    }
}

} // namespace

Session::Session(bool serviceMode) : broker_({.serviceMode = serviceMode})
{
    std::error_code error;
    const auto size = fs::file_size(traceFile(), error);
    traceStart_ = error ? 0 : size;
    if (const std::string problem = broker_.load(kProvider); !problem.empty()) {
        std::printf("FAIL the provider loads: %s\n", problem.c_str());
        std::exit(2);
    }
}

Session::~Session()
{
    stop();
}

void Session::stop()
{
    if (!broker_.loaded()) {
        return;
    }
    broker_.stop();
    const broker::Accounting accounting = broker_.accounting();
    check("after the stop all broker objects are released", true, accounting.clean());
    for (const std::string &note : accounting.notes) {
        std::printf("# %s\n", note.c_str());
    }
    check("after the stop no segment is left", 0, sharedMemorySegments());
}

std::string Session::trace() const
{
    std::ifstream file(traceFile());
    file.seekg(static_cast<std::streamoff>(traceStart_));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

size_t Session::traced(const std::string &text) const
{
    const std::string lines = trace();
    size_t number = 0;
    for (size_t at = lines.find(text); at != std::string::npos; at = lines.find(text, at + text.size())) {
        ++number;
    }
    return number;
}

std::string Session::failuresTraced() const
{
    std::istringstream lines(trace());
    std::string failures;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("Failure!!") != std::string::npos && line.find("NoData") == std::string::npos) {
            failures += line + "\n";
        }
    }
    return failures;
}

size_t passes(const Session &session)
{
    return session.traced("- sleep[");
}

bool savedStateExists()
{
    return fs::exists(kSavedState);
}

void forgetSavedState()
{
    fs::remove(kSavedState);
}

bool waitUntil(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(40);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return true;
}

void removeDevice(const std::string &address)
{
    const std::string directory = "/sys/bus/scsi/devices/" + address;
    const std::string node = "/dev/" + diskAt(address);
    writeAttribute(directory + "/delete", "1");
    expectWithin("the removal of " + address, [&] { return !fs::exists(directory) && !fs::exists(node); });
}

void scanHost(int host)
{
    const std::string address = std::to_string(host) + ":0:0:0";
    writeAttribute("/sys/class/scsi_host/host" + std::to_string(host) + "/scan", "- - -");
    expectWithin("the return of " + address, [&] {
        const std::string disk = diskAt(address);
        return !disk.empty() && fs::exists("/dev/" + disk);
    });
}

void addSimulatedDisks(int number)
{
    const size_t expected = namedDisks() + static_cast<size_t>(number);
    writeAttribute(kSimulatedHosts + "ptype", "0");
    writeAttribute(kSimulatedHosts + "num_tgts", std::to_string(number));
    writeAttribute(kSimulatedHosts + "add_host", "1");
    expectWithin(std::to_string(number) + " simulated disks", [&] { return namedDisks() >= expected; });
}

void removeSimulatedDisks()
{
    const size_t before = namedDisks();
    writeAttribute(kSimulatedHosts + "add_host", "-1");
    expectWithin("the end of the simulated disks", [&] { return namedDisks() < before; });
}

} // namespace vm
