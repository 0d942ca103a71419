// SPDX-License-Identifier: Apache-2.0
// A reply of a SCSI disk, read as everything that it can be: sense data, log pages, a mode page, VPD pages.
#include "disks/ask/scsi_command.h"
#include "disks/ask/scsi_decode.h"
#include "disks/ask/verdict.h"
#include "disks/identity/identity.h"
#include "fuzz/fuzz.h"

using namespace tavstrg::disks;

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Bytes reply(data, size);
    static_cast<void>(powerOfSense(reply));
    Readings readings{};
    for (int code = 0; code <= 0x3F; ++code) {
        const auto page = static_cast<uint8_t>(code);
        takeLogPage(reply, page, readings);
        require(!listsPage(reply, page) || size > 4, "a page is listed behind a header");
        require(!listsVpdPage(reply, page) || size > 4, "and so is a VPD page");
    }
    require(readings.temperatureCelsius.orElse(0) != 0xFF, "an absent temperature is none");
    const Health health = judgeScsi(exceptionOf(reply, readings), readings);
    fuzz::requireTerminated(health.reason);
    require(!exceptionsAreDisabled(reply) || size >= 11, "a mode page lies behind its header");
    char name[kNameOfDesignator];
    require(designatorOf(reply, name) == (name[0] != '\0'), "a name that was found is there");
    fuzz::requireTerminated(name);
    require(name[0] == '\0' || isWorldWideName(name), "a designator is a world wide name");
    return 0;
}
