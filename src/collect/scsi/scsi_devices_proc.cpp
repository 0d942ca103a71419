// SPDX-License-Identifier: Apache-2.0
#include "collect/base/text_file.h"
#include "collect/scsi/scsi_devices.h"
#include "collect/scsi/scsi_records.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"

#include <cerrno>

using namespace tavstrg;

namespace {

// All records of the file: 0, or the status of what went wrong.
int32_t readRecords(const TextFile &file, NodeList<SCSIDeviceInfo> &devices)
{
    TextLines lines(file, kMaxProcDevices);
    ScsiRecordReader reader;
    std::string_view line;
    while (lines.next(line)) {
        const ScsiRecordReader::Step step = reader.take(line);
        if (step == ScsiRecordReader::Step::end) {
            return 0;
        }
        if (step == ScsiRecordReader::Step::complete) {
            cancellationPoint();
            if (!appendDevice(devices, reader.record())) {
                return kSourceNoMemory;
            }
        }
    }
    if (lines.failed()) {
        return kSourceError;
    }
    if (lines.isAtBound()) {
        return TRACED(kSourceTruncated, kFailure, "[%s] is too long Failure!!", kProcDevices);
    }
    return reader.insideRecord() ? kSourceTruncated : 0;
}

} // namespace

int proc_GetSCSIDeviceInfoFromProc(SCSIDeviceInfo **list, int32_t *count, int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!beginDeviceList(list, count, status)) {
        return -1;
    }
    const TextFile file(kProcDevices);
    if (file.error() != 0) {
        const bool absent = file.error() == ENOENT;
        *status = absent ? kSourceAbsent : kSourceError;
        return absent ? TRACED(-1, kDetail, "_OUT_ [%s] is not exist.", kProcDevices)
                      : TRACED(-1, kFailure, "_OUT_ fopen failed. [%s] errno=[%d]", kProcDevices, file.error());
    }
    NodeList<SCSIDeviceInfo> devices;
    *status = readRecords(file, devices);
    if (*status != 0) {
        devices.release();
        return TRACED(-1, kFailure, "_OUT_ (-1) status=[%d]", *status);
    }
    return finishDeviceList(devices, list, count);
}
