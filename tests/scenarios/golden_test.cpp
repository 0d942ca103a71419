// SPDX-License-Identifier: Apache-2.0
// Golden traces: the provider's answers, trace lines, alerts and device commands on each example machine equal, line by
// line, the recordings in tests/data/golden; also with an options.inf that switches nothing on. TAV_GOLDEN_UPDATE=1
// records again, after an intended change.
#include "scenarios/monitored.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iomanip>
#include <map>
#include <regex>
#include <sched.h>
#include <sstream>
#include <sys/shm.h>

namespace {

using broker::Value;
using Json = nlohmann::json;
using scenario::Server;

// A longer trace is kept as a checksum for each block of lines; the test names the block that differs.
constexpr size_t kLongestText = 4000;
constexpr size_t kBlock = 250;

constexpr const char *kThreadFunction = "strgWatchThread";

// Keys of segments are made of the low bits of inode numbers: now and then one is that of a segment of another test
// that runs meanwhile, and a retry is traced. In a namespace of its own, which needs root, this program is alone. There
// the first segment has the identifier 0, which the provider refuses: it is taken here, and goes with the namespace.
const bool kOwnSegments = ::unshare(CLONE_NEWIPC) == 0 && ::shmget(IPC_PRIVATE, 1, 0600) >= 0;

// Values that differ from run to run: addresses, descriptors, thread identifiers, keys and identifiers of
// segments.
std::string withoutRunsOwnValues(std::string line)
{
    static const std::regex pointer("0x[0-9a-f]{9,16}");
    static const std::regex threadId("(tid=\\[|gst_thid=\\[|pthread_cancel\\()-?[1-9][0-9]*");
    static const std::regex descriptor("\\bfd=\\[[0-9]+\\]");
    static const std::regex segmentKey("shmget\\(0x[0-9a-f]+");
    static const std::regex segmentId("(shmId=\\[|shmCreate _OUT_ ret=\\[)[0-9]+");
    if (line.find("0x") != std::string::npos) {
        line = std::regex_replace(line, pointer, "PTR");
        line = std::regex_replace(line, segmentKey, "shmget(KEY");
    }
    if (line.find("fd=[") != std::string::npos) {
        line = std::regex_replace(line, descriptor, "fd=[FD]");
    }
    if (line.find("shm") != std::string::npos) {
        line = std::regex_replace(line, segmentId, "$1ID");
    }
    return line.find("id=[") == std::string::npos && line.find("pthread_") == std::string::npos
               ? line
               : std::regex_replace(line, threadId, "$1TID");
}

// FNV-1a, 64 bits.
constexpr uint64_t kEmptySum = 0xcbf29ce484222325ULL;

uint64_t checksum(uint64_t before, const std::string &line)
{
    uint64_t sum = before;
    for (const char c : line + "\n") {
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
    }
    return sum;
}

std::vector<std::string> blocksOf(const std::vector<std::string> &lines)
{
    std::vector<std::string> blocks;
    for (size_t first = 0; first < lines.size(); first += kBlock) {
        const size_t end = std::min(first + kBlock, lines.size());
        uint64_t sum = kEmptySum;
        for (size_t i = first; i < end; ++i) {
            sum = checksum(sum, lines[i]);
        }
        std::ostringstream block;
        block << "lines " << first + 1 << " to " << end << ": " << std::hex << std::setw(16) << std::setfill('0')
              << sum;
        blocks.push_back(block.str());
    }
    return blocks;
}

// Records one session of a client on a machine.
class Session {
public:
    Session(const std::string &name, bool service, const char *options)
        : directory_(std::filesystem::temp_directory_path() /
                     ("tav-golden-" + name + "-" + std::to_string(::getpid()))),
          description_(Json::parse(scenario::exampleMachine(name)))
    {
        std::filesystem::create_directories(directory_);
        ::setenv("TAV_GOLDEN_FILE", trace().c_str(), 1);
        if (!description_.contains("hosts")) {
            description_["hosts"] = Json::array();
        }
        if (options != nullptr) {
            description_["files"]["options.inf"] = options;
        }
        description_["agent"] = {{"libraries", true}, {"libraryDirectory", TAV_BINARY_DIR "/lib/golden"}};
        machine_ = std::make_unique<sim::Machine>(description_.dump());
        broker::Options ofBroker;
        ofBroker.serviceMode = service;
        server_ = std::make_unique<Server>(ofBroker);
    }
    ~Session()
    {
        server_.reset();
        machine_.reset();
        ::unsetenv("TAV_GOLDEN_FILE");
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    broker::Broker &broker() { return **server_; }

    void enumerateAll()
    {
        for (const std::string &name : scenario::allClasses()) {
            answered("EnumInstances " + name, broker().enumInstances(name));
        }
    }
    void get(const std::string &name, const std::string &key)
    {
        answered("GetInstance " + name + " " + key, broker().getInstance(name, {{"Index", Value::text(key)}}));
    }
    void call(const std::string &className, const std::string &method, const std::string &argument,
              const std::string &value)
    {
        answered(method + " " + value, broker().invokeMethod(className, method, {{argument, Value::text(value)}}));
    }
    // Unplugs the last device of the first host that has one, or else the last IDE drive.
    void unplug()
    {
        if (Json *const devices = firstDevices()) {
            devices->erase(devices->size() - 1);
        } else if (description_.contains("ide") && description_["ide"].contains("drives")) {
            description_["ide"]["drives"].erase(description_["ide"]["drives"].size() - 1);
        }
        machine_->change(description_.dump());
        said("-- unplugged");
    }
    // Makes every ATA disk predict its failure.
    void fail()
    {
        machines::forEachDevice(description_, [](Json &device) {
            if (device.value("ata", false)) {
                device["smart"]["failing"] = true;
            }
        });
        machine_->change(description_.dump());
        said("-- failing");
    }
    // Records everything since the last mark: trace lines of requests, then of the monitoring thread, then the
    // commands.
    void mark(const std::string &step)
    {
        lines_.push_back("== " + step);
        std::vector<std::string> ofThread;
        std::ifstream file(trace());
        for (std::string line; std::getline(file, line);) {
            const size_t tab = line.find('\t');
            ASSERT_NE(tab, std::string::npos) << line;
            const std::string thread = line.substr(0, tab);
            const std::string text = withoutRunsOwnValues(line.substr(tab + 1));
            bool &monitoring = isMonitoring_[thread];
            monitoring = monitoring || text.find(kThreadFunction) == 2;
            (monitoring ? ofThread : lines_).push_back(text);
        }
        file.close();
        std::filesystem::remove(trace());
        lines_.insert(lines_.end(), ofThread.begin(), ofThread.end());
        for (const sim::Command &command : machine_->commands()) {
            std::ostringstream text;
            text << command.device << " " << std::hex << command.request << std::setfill('0');
            for (const uint8_t byte : command.bytes) {
                text << " " << std::setw(2) << unsigned(byte);
            }
            lines_.push_back(text.str());
        }
        machine_->forgetCommands();
        lines_.insert(lines_.end(), answers_.begin(), answers_.end());
        answers_.clear();
    }
    // Both cleanups, one after the other: a broker that stops enters them at once, in either order.
    void cleanUp()
    {
        answered("cleanup", broker().cleanupInstance(true));
        answered("method cleanup", broker().cleanupMethod(true));
    }
    // Files of the agent's root that the provider writes, each as its bytes.
    void files()
    {
        said("tavstrgsave.dat " + hexOf(machine_->read(scenario::kStateFile)));
        said(std::string("key file ") +
             (machine_->exists("/opt/qlm/tavkit_sa/work/tavstrgshm.key0") ? "there" : "gone"));
    }
    std::vector<std::string> take() { return std::move(lines_); }

private:
    Json *firstDevices()
    {
        for (Json &host : description_["hosts"]) {
            if (host.contains("devices") && !host["devices"].empty()) {
                return &host["devices"];
            }
        }
        return nullptr;
    }

    std::string trace() const { return directory_ + "/trace"; }
    void said(const std::string &line) { answers_.push_back(line); }
    static std::string hexOf(const std::string &bytes)
    {
        std::ostringstream text;
        text << std::hex << std::setfill('0');
        for (const char c : bytes) {
            text << std::setw(2) << unsigned(static_cast<unsigned char>(c));
        }
        return text.str();
    }
    void answered(const std::string &request, const broker::Reply &reply)
    {
        said("-- " + request + ": " + std::to_string(reply.rc) + " " + reply.message + (reply.done ? " done" : ""));
        for (const broker::Instance &instance : reply.instances) {
            std::string text = "   ";
            for (const broker::NamedValue &property : instance.properties) {
                text += " " + property.name + "=[" + property.value.toString() + "]";
            }
            said(text);
        }
        for (const Value &value : reply.data) {
            said("    returned [" + value.toString() + "]");
        }
    }

    std::string directory_;
    Json description_;
    std::unique_ptr<sim::Machine> machine_;
    std::unique_ptr<Server> server_;
    std::map<std::string, bool> isMonitoring_;
    std::vector<std::string> lines_;
    std::vector<std::string> answers_;
};

std::vector<std::string> requestsOutsideServiceMode(const std::string &name, const char *options)
{
    Session session(name, false, options);
    session.enumerateAll();
    session.mark("enumerated");
    for (const char *const key : {"1", "2", "77"}) {
        session.get("TAV_StorageHardDisk", key);
    }
    session.mark("got");
    session.call("TAV_StorageConfig", "SetMonitorCycle", "MonitorCycle", "120");
    session.call("TAV_StorageConfig", "SetMonitorCycle", "MonitorCycle", "5");
    session.call("TAV_StorageConfig", "SetHardDiskSmartMode", "HardDiskSmartMode", "0");
    session.call("TAV_StorageThread", "StopMonitoringThread", "None", "1");
    session.mark("called");
    session.unplug();
    session.get("TAV_StorageHardDisk", "1");
    session.get("TAV_StorageTotalNumber", "");
    session.mark("unplugged");
    session.cleanUp();
    session.files();
    session.mark("stopped");
    return session.take();
}

std::vector<std::string> passesOfTheThread(const std::string &name, const char *options)
{
    Session session(name, true, options);
    scenario::Steps steps;
    EXPECT_TRUE(steps.start(session.broker()));
    session.mark("started");
    for (const std::string &className : scenario::allClasses()) {
        session.get(className, "1");
    }
    session.enumerateAll();
    session.mark("asked");
    session.unplug();
    EXPECT_TRUE(steps.pass());
    session.mark("passed after a change");
    session.fail();
    EXPECT_TRUE(steps.pass());
    session.mark("passed with failing disks");
    session.call("TAV_StorageConfig", "SetHardDiskSmartMode", "HardDiskSmartMode", "0");
    EXPECT_TRUE(steps.pass());
    session.mark("passed without SMART");
    EXPECT_EQ(scenario::stopThread(session.broker()), 0);
    session.enumerateAll();
    session.files();
    session.mark("stopped");
    return session.take();
}

struct Recording {
    const char *machine;
    const char *kind;
    std::vector<std::string> (*record)(const std::string &machine, const char *options);
};

void PrintTo(const Recording &recording, std::ostream *out)
{
    *out << recording.machine << recording.kind;
}

void writeLines(const std::string &path, const std::vector<std::string> &lines)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::trunc);
    for (const std::string &line : lines) {
        file << line << '\n';
    }
    ASSERT_TRUE(file.flush()) << path;
}

std::vector<std::string> readLines(const std::string &path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The lines as they are kept: as text, or as checksums where there are too many.
std::vector<std::string> keptOf(const std::vector<std::string> &lines)
{
    return lines.size() > kLongestText ? blocksOf(lines) : lines;
}

class Golden : public testing::TestWithParam<Recording> {
protected:
    static std::string name() { return std::string(GetParam().machine) + "-" + GetParam().kind + ".txt"; }

    // Records with an options file of that text, or without one, and compares. whole: where the complete lines are
    // kept, for comparison with another revision.
    static void compare(const char *options, const std::string &whole)
    {
        const std::vector<std::string> now = GetParam().record(GetParam().machine, options);
        ASSERT_GT(now.size(), 100U) << "nothing was traced";
        writeLines(whole, now);
        const std::vector<std::string> kept = keptOf(now);
        const std::vector<std::string> before = readLines(TAV_SOURCE_DIR "/tests/data/golden/" + name());
        const auto [is, was] = std::mismatch(kept.begin(), kept.end(), before.begin(), before.end());
        if (is != kept.end() || was != before.end()) {
            FAIL() << name() << " line " << (is - kept.begin()) + 1
                   << "\n was: " << (was == before.end() ? "(end)" : *was)
                   << "\n is:  " << (is == kept.end() ? "(end)" : *is) << "\n whole: " << whole;
        }
    }
};

TEST_P(Golden, AnswersTracesAlertsAndCommandsAreAsRecorded)
{
    if (std::getenv("TAV_GOLDEN_UPDATE") != nullptr) {
        writeLines(TAV_SOURCE_DIR "/tests/data/golden/" + name(),
                   keptOf(GetParam().record(GetParam().machine, nullptr)));
        return;
    }
    compare(nullptr, TAV_BINARY_DIR "/golden/" + name());
}

TEST_P(Golden, OptionsFileThatSwitchesNothingOnChangesNothing)
{
    const std::pair<const char *, const char *> texts[] = {
        {"empty", ""},
        {"comments", "# kernel-release\n\n  #all\n#disk-names # on\n"},
        {"mark", "\xEF\xBB\xBF\n"},
    };
    for (const auto &[what, text] : texts) {
        SCOPED_TRACE(what);
        compare(text, std::string(TAV_BINARY_DIR "/golden/options-") + what + "/" + name());
    }
}

std::vector<Recording> allRecordings()
{
    std::vector<Recording> all;
    for (const char *const machine : {"empty", "failing", "ide", "large", "server", "usb", "workstation"}) {
        all.push_back({machine, "requests", requestsOutsideServiceMode});
        all.push_back({machine, "thread", passesOfTheThread});
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Machines, Golden, testing::ValuesIn(allRecordings()), [](const auto &testInfo) {
    return std::string(testInfo.param.machine) + "_" + testInfo.param.kind;
});

} // namespace
