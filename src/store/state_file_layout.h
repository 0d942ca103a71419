// SPDX-License-Identifier: Apache-2.0
// The saved-state file's layout over memory: no files, no traces.
//
//   18 bytes                version line, no terminator
//   1 record                configuration
//   1 record                totals, whose counters size the blocks that follow
//   count * record size     each of the classes 2 to 10, back to back
//
// Everything is in the host's byte order, records as they are in memory.
#pragma once

#include "records/records.h"

#include <span>
#include <string_view>

constexpr std::string_view TAV_DAT_STRG_VERNAME = "# Version=1.0.0.1\n";

namespace tavstrg {

constexpr std::string_view kOldVersionLine = "# Version=1.0.0.0\n";
constexpr size_t kVersionLineSize = 18;
static_assert(TAV_DAT_STRG_VERNAME.size() == kVersionLineSize && kOldVersionLine.size() == kVersionLineSize);

constexpr uint32_t kOldTotalsSize = 16; // the first eight counters; the old version knew no life span

enum class FileVersion { current, old, unknown };
FileVersion fileVersion(std::string_view line);

// The counter of a class 2 to 10 in the totals record, which has the counters in the order of the classes.
uint16_t totalOf(const StrgTnumRec &totals, int classId);
void setTotal(StrgTnumRec &totals, int classId, int32_t count); // its low 16 bits

// Bytes of the file for these descriptors. The caller holds g_recordsLock or owns the descriptors, here and below.
size_t stateFileSize(const DatInfo *records);
// Writes the file's content. Returns false, with out unspecified, if its size differs from out's. The counters of the
// totals are those of the blocks that follow them, whatever the record said: the file is read by them.
bool composeStateFile(const DatInfo *records, std::span<uint8_t> out);

} // namespace tavstrg
