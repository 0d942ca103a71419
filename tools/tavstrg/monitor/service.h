// SPDX-License-Identifier: Apache-2.0
// The monitoring service: one process, which waits, and one more for each pass over the disks.
#pragma once

#include "tavstrg/monitor/config.h"
#include "tavstrg/monitor/deliveries.h"
#include "tavstrg/monitor/journal.h"
#include "tavstrg/monitor/pass_process.h"
#include "tavstrg/monitor/state_file.h"

#include "tavstrg/disk_metrics.h"

#include "monitor/uevents.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool::monitor {

// The time until the first of these, for poll(2): at least 0, -1 without any. Milliseconds.
int pollTimeout(int64_t now, std::initializer_list<std::optional<int64_t>> times);

// The service in one line, for "systemctl status".
struct Standing {
    std::string disks; // "24 disks: 23 good, 1 failing"; empty before the first pass
    bool success = false;
    double seconds = 0; // of the last pass
    size_t waiting = 0; // events
    std::vector<std::string> problems;
};
std::string statusLine(const Standing &standing);

// What the service needs besides its configuration.
struct Frame {
    std::string configFile;
    bool configMustExist = false;
    bool once = false;
    std::string machineFile;                                // of a simulated machine; empty: the real one
    std::function<void(const std::string &)> changeMachine; // to a new description; throws Failure
};

class Service {
public:
    // Throws Failure if the state directory cannot be used.
    Service(Frame frame, Config config);
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Runs until SIGTERM or SIGINT, which are blocked, as SIGHUP is; or for one pass. Returns whether that succeeded.
    bool run();
    std::string status() const { return statusLine(standing()); }

private:
    void begin();
    void loop();
    void wait(int64_t now);
    void takeSignals();
    void takeUevents(int64_t now);
    void takeMachine();
    void takePass(int64_t now);
    void reload();
    void startPass(int64_t now);
    void endPass(bool success, int64_t now);
    void enterDisks();
    void save(bool always, int64_t now);
    void writeMetrics();
    void feed(int64_t now);
    bool isFinished() const;
    Standing standing() const;
    void tellStatus();
    void say(const std::string &subject, const std::string &text);

    Frame frame_;
    Config config_;
    StateDirectory directory_;
    StateFile file_;
    State state_;
    Deliveries deliveries_;
    Manager manager_;
    PassProcess pass_;
    tavstrg::UeventSocket uevents_;
    int signals_ = -1;
    int machine_ = -1; // inotify

    std::map<std::string, std::string> said_;           // by subject
    tavstrg::disks::Array<tavstrg::disks::Disk> disks_; // of the last pass that succeeded
    std::string summary_;
    PassFigures figures_;
    tavstrg::WakeTime wake_;
    int64_t passBegan_ = 0;
    int64_t fed_ = 0;
    int64_t savedAt_ = 0;
    uint64_t savedStanding_ = 0;
    bool isSaved_ = false;   // nothing has changed since
    bool isUnsaved_ = false; // the last attempt failed
    bool passed_ = false;
    bool stopping_ = false;
    size_t givenUp_ = 0;
};

} // namespace tool::monitor
