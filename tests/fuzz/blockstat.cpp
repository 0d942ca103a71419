// SPDX-License-Identifier: Apache-2.0
// The file "stat" of a block device, or "power/runtime_status" of a SCSI device.
#include "collect/devices/disk_activity.h"
#include "fuzz/fuzz.h"

using namespace tavstrg;

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    if (const std::optional<IoCounts> counts = parseIoCounts(text)) {
        require(text.size() >= 21, "eleven numbers and what is between them");
        require(parseIoCounts(text) == counts, "the same text has the same counts");
    }
    require(!isSuspendedStatus(text) || text.starts_with("suspend"), "only these two states are rest");
    return 0;
}
