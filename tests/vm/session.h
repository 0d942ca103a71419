// SPDX-License-Identifier: Apache-2.0
// The provider loaded into the embedded broker, checks for what it leaks, and changes to the machine.
#pragma once

#include "broker/broker.h"

#include <functional>
#include <optional>
#include <string>

namespace vm {

// The shared object as it ships, in its own broker. The end checks that no broker object and no segment is left.
class Session {
public:
    explicit Session(bool serviceMode = false); // ends the test if the provider does not load
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    broker::Broker *operator->() { return &broker_; }
    broker::Broker &operator*() { return broker_; }

    void stop();

    // Lines of this session's trace that contain the text.
    size_t traced(const std::string &text) const;
    // Lines that report failures; a class without instances is not a failure.
    std::string failuresTraced() const;

private:
    std::string trace() const;

    broker::Broker broker_;
    size_t traceStart_; // in the file, which all sessions of a process share
};

// Passes of the monitoring thread that have ended in a session.
size_t passes(const Session &session);

bool savedStateExists();
void forgetSavedState();

// Polls until the condition holds, long enough for a slow machine and one monitoring cycle. Returns false if it does
// not.
bool waitUntil(const std::function<bool()> &condition);

// Unplug a disk, and plug one in (the kernel scans the host again). Both wait until it has happened.
void removeDevice(const std::string &address);
void scanHost(int host);

// Disks of the kernel's simulated SCSI host adapter, which is never managed.
void addSimulatedDisks(int number);
// Removes those that were added last.
void removeSimulatedDisks();

// The phases of the monitoring thread and of the kernel's events.
void monitoring();
void hotplug();
// The phase of all adapters with disks.
void adapters();
// The phase of the suspended disk.
void sleeping();
// The phase of the tool's disks.
void disks();
// The phase of the monitoring service.
void service();
// The phase of its unit under systemd.
void unit();

} // namespace vm
