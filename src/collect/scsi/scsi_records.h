// SPDX-License-Identifier: Apache-2.0
// The records of /proc/scsi/scsi.
#pragma once

#include "collect/scsi/scsi_discovery.h"

#include <string_view>
// Value of a key in a line of /proc/scsi/scsi, at most 63 characters, into out (64 bytes). Returns 0, or -1 when it is
// not there.
int FindName(const char *line, const char *key, char *out);

namespace tavstrg {

// Reads the records of /proc/scsi/scsi from its lines: a host line, then one with vendor, model and revision, then one
// with type and ANSI revision.
class ScsiRecordReader {
public:
    enum class Step { more, complete, end };
    // Takes the next line: complete when record() is valid; end when the kernel reports that there are no devices.
    Step take(std::string_view text);
    bool insideRecord() const { return expected_ != Expected::host; }
    const SCSIDeviceInfo &record() const { return record_; } // but for its sequence number and link

private:
    enum class Expected { host, identity, type };
    Step takeHost(std::string_view line);

    Expected expected_ = Expected::host;
    SCSIDeviceInfo record_ = {};
};

} // namespace tavstrg
