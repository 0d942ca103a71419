// SPDX-License-Identifier: Apache-2.0
// Saved states for tests, byte for byte as the provider writes them.
#pragma once

#include "records/records.h"
#include "store/state_file_layout.h"

#include <cstring>
#include <string>

using namespace tavstrg;

namespace tool::testing_support {

template <class Record> std::string bytesOf(const Record &record, size_t size = sizeof(Record))
{
    return {reinterpret_cast<const char *>(&record), size};
}

inline StrgConfRec configuration()
{
    return {90, 10, 3600, 60, 1, 0};
}

inline StrgTnumRec totals(uint16_t controllers, uint16_t lifeSpans)
{
    StrgTnumRec record = {};
    record.ControllerTotalNumber = controllers;
    record.LifeSpanTotalNumber = lifeSpans;
    return record;
}

inline StrgCtrlRec controller(uint16_t index)
{
    StrgCtrlRec record = {};
    record.Index = index;
    record.InterfaceType = -1;
    std::memset(record.Model, 'M', sizeof record.Model); // a damaged file: no terminator
    return record;
}

inline std::string wholeState()
{
    const StrgLifeRec lifeSpan = {1, 2, -1, 0};
    return std::string(TAV_DAT_STRG_VERNAME) + bytesOf(configuration()) + bytesOf(totals(2, 1)) +
           bytesOf(controller(1)) + bytesOf(controller(2)) + bytesOf(lifeSpan);
}

inline std::string oldState()
{
    return std::string(kOldVersionLine) + bytesOf(configuration()) + bytesOf(totals(1, 7), kOldTotalsSize) +
           bytesOf(controller(1));
}

} // namespace tool::testing_support
