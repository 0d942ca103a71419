// SPDX-License-Identifier: Apache-2.0
// A readable picture of the records in the trace.
#include "runtime/trace.h"
#include "store/arrays.h"

#include <cstring>

using namespace tavstrg;

namespace {

constexpr int kDevices = 98;    // selector of classes 2 to 10
constexpr int kEverything = 99; // selector of all classes

using RecordCopy = std::array<uint8_t, kMaxRecordSize>;

// "    Name                     =[value]", the name in a column of 25 characters.
void dumpField(const FieldDesc &field, const RecordCopy &record)
{
    if (field.type == CMPI_chars && !field.key) {
        TRACE(kDetail, "    %-25s=[%s]", field.name, fieldChars(field, record.data()));
        return;
    }
    TRACE(kDetail, "    %-25s=[%d]", field.name, static_cast<int>(fieldNumber(field, record.data())));
}

void dumpFields(const ClassDesc &desc, const RecordCopy &record)
{
    for (const FieldDesc &field : desc.fields) {
        if ((field.use & kDumped) != 0) {
            dumpField(field, record);
        }
    }
}

// Each record is copied before it is traced: the trace library writes to a file, which no lock may wait for. The size
// is the class's: the descriptor's may be read under the records lock only.
bool copyForDump(const ClassDesc &desc, const DatInfo &dat, int32_t i, RecordCopy &record)
{
    if (!copyRecord(dat, i, record)) {
        return false;
    }
    terminateTexts(desc.recordSize, record.data(), 1);
    return true;
}

bool dumpSingle(const ClassDesc &desc, const DatInfo &dat)
{
    RecordCopy record = {};
    if (!copyForDump(desc, dat, 0, record)) {
        return false;
    }
    TRACE(kDetail, "++++ %s ++++", desc.cimName);
    dumpFields(desc, record);
    return true;
}

void dumpAll(const ClassDesc &desc, const DatInfo &dat)
{
    RecordCopy record = {};
    for (int32_t i = 0; copyForDump(desc, dat, i, record); ++i) {
        TRACE(kDetail, "++++ %s[%d] ++++", desc.cimName, i);
        dumpFields(desc, record);
    }
}

} // namespace

void strgLogDumpInstanceDat(int selector, DatInfo *datLog)
{
    if (!traceIsReceived()) {
        return; // all that this function does is to trace
    }
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (datLog == nullptr) {
        TRACE(kFailure, "_OUT_ param(datLog) Failure!!");
        return;
    }
    const auto selected = [selector](int id) { return selector == id || selector == kEverything; };
    if (selected(TAV_CID_STRG_CONF) && !dumpSingle(kClasses[TAV_CID_STRG_CONF], datLog[TAV_CID_STRG_CONF])) {
        TRACE(kFailure, "_OUT_ param(datLog[TAV_CID_STRG_CONF].datAdr) Failure!!");
        return;
    }
    if (selected(TAV_CID_STRG_TNUM) && !dumpSingle(kClasses[TAV_CID_STRG_TNUM], datLog[TAV_CID_STRG_TNUM])) {
        TRACE(kFailure, "_OUT_ param(datLog[TAV_CID_STRG_TNUM].datAdr) Failure!!");
        return;
    }
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        if (selected(id) || selector == kDevices) {
            dumpAll(kClasses[id], datLog[id]);
        }
    }
    TRACE(kDetail, "_OUT_");
}
