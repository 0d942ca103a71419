// SPDX-License-Identifier: Apache-2.0
// The health log of an NVMe controller.
#include "disks/ask/nvme_command.h"
#include "disks/ask/nvme_decode.h"
#include "disks/ask/verdict.h"
#include "fuzz/fuzz.h"

using namespace tavstrg::disks;

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Readings readings{};
    const Maybe<uint8_t> warning = takeHealthLog({data, size}, readings);
    require(!warning || size >= kHealthLogLength, "a log is whole");
    require(warning.known == readings.enduranceUsedPercent.known, "a log without warning byte has no readings");
    const Health health = judgeNvme(warning.orElse(0), readings);
    fuzz::requireTerminated(health.reason);
    require(health.state == HealthState::good || health.state == HealthState::warning ||
                health.state == HealthState::failing,
            "a log has a verdict");
    return 0;
}
