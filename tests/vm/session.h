// SPDX-License-Identifier: Apache-2.0
// The provider loaded into the embedded broker, what it left behind, and changes to the machine.
#pragma once

#include "broker/broker.h"

#include <functional>
#include <optional>
#include <string>

namespace vm {

// The shared object as it ships, in a broker of its own. Its end is checked: no broker object, no segment is left.
class Session {
public:
    explicit Session(bool serviceMode = false); // ends the test when the provider does not load
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    broker::Broker *operator->() { return &broker_; }
    broker::Broker &operator*() { return broker_; }

    void stop();

    // Lines of this session's trace that contain the text.
    size_t traced(const std::string &text) const;
    // Those of them that are failures; empty when there is none. A class without instances is none.
    std::string failuresTraced() const;

private:
    std::string trace() const;

    broker::Broker broker_;
    size_t traceStart_; // in the file, which all sessions of a process share
};

bool savedStateExists();
void forgetSavedState();

// Whether it came true within a time that is long enough for a slow machine and one monitoring cycle.
bool waitUntil(const std::function<bool()> &condition);

// As pulling a disk out, and plugging one in (the kernel looks at the host again). Both wait until it has happened.
void removeDevice(const std::string &address);
void scanHost(int host);

// Disks of the kernel's simulated SCSI host adapter, which is never managed.
void addSimulatedDisks(int number);

// The phase of the monitoring thread.
void monitoring();

} // namespace vm
