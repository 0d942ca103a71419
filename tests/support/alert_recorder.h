// SPDX-License-Identifier: Apache-2.0
// Records every alert of the product in place of the agent's alert library.
#pragma once

#include "runtime/send_alert.h"
#include "runtime/trace.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

using namespace tavstrg;

struct AlertRecord {
    uint32_t version;
    uint32_t method;
    std::string sourceName;
    uint32_t eventId;
    int32_t eventType;
    int32_t numOfStrings;
    std::vector<std::string> strings; // at least three; "NULL" for a null pointer

    bool operator==(const AlertRecord &) const = default;
};

// While one lives, alerts go to it. One at a time; safe with several sending threads.
class AlertRecorder {
public:
    AlertRecorder()
    {
        current = this;
        g_Func.alert.SendIndication = receive;
    }
    ~AlertRecorder()
    {
        g_Func.alert.SendIndication = nullptr;
        current = nullptr;
    }
    AlertRecorder(const AlertRecorder &) = delete;
    AlertRecorder &operator=(const AlertRecorder &) = delete;

    std::vector<AlertRecord> records() const
    {
        const std::lock_guard held(guard_);
        return records_;
    }
    void clear()
    {
        const std::lock_guard held(guard_);
        records_.clear();
    }
    int answer = 0;                  // what the library says
    std::function<void()> onReceipt; // called before the library answers

private:
    static int receive(AlertIndication info)
    {
        AlertRecord record = {info.version,      info.method, info.sourceName, info.eventID, info.eventType,
                              info.numOfStrings, {}};
        for (int i = 0; info.strings != nullptr && i < std::max(3, info.numOfStrings); ++i) {
            record.strings.emplace_back(info.strings[i] == nullptr ? "NULL" : info.strings[i]);
        }
        if (current->onReceipt) {
            current->onReceipt();
        }
        const std::lock_guard held(current->guard_);
        current->records_.push_back(record);
        return current->answer;
    }

    static inline AlertRecorder *current = nullptr;
    mutable std::mutex guard_;
    std::vector<AlertRecord> records_;
};
