// SPDX-License-Identifier: Apache-2.0
// Mode and log pages, and the older ioctl's buffers: no byte beyond a reply counts, and what goes back to the disk lies
// in what came from it.
#include "devcmd/smart/exceptions_page.h"
#include "devcmd/transport/pages_command.h"
#include "fuzz/fuzz.h"

#include <vector>

using namespace tavstrg;

using fuzz::Bytes;
using fuzz::require;

namespace {

void checkExceptionsPage(Bytes reply, size_t offset)
{
    std::vector<uint8_t> buffer(reply.begin(), reply.end());
    const std::optional<ExceptionsPage> page = exceptionsPageAt(buffer, offset);
    if (!page) {
        return;
    }
    require(page->data() >= buffer.data() && page->data() + page->size() <= buffer.data() + buffer.size(),
            "a page lies in the buffer");
    switchExceptionsOn(*page);
    require(!exceptionsAreOff(*page) && reportsOnRequest(*page), "what is switched on is on and reports on request");
    switchExceptionsOff(*page);
    require(exceptionsAreOff(*page), "what is switched off is off");
    const int save = savePagesBit(*page);
    require(save == 0 || save == 1, "a bit is one");
}

void checkSelect(Bytes reply, bool ten)
{
    const std::optional<SelectPlan> plan = planModeSelect(reply, ten);
    if (!plan) {
        return;
    }
    require(plan->offset + kPageHeader <= plan->total && plan->total <= reply.size(),
            "what goes back is a whole page of the reply");
    const auto check = [&plan, reply](const auto &buffer, size_t listAt, size_t from) {
        for (size_t i = plan->offset + from; i < plan->total && listAt + i < buffer.size(); ++i) {
            require(buffer[listAt + i] == reply[i], "a page goes back as it came");
        }
    };
    if (ten) {
        check(legacyModeSelect10(1, reply, *plan), kLegacyHeader + 10, 0);
    } else if (plan->offset >= 12) {
        check(legacyModeSelect6(0, reply, *plan), kLegacyHeader + 6, 1);
    }
}

void checkModePage(Bytes reply, bool ten)
{
    const ModePage page = modePageOffset(reply, ten);
    require(page.place != PagePlace::kInside || page.offset + kPageHeader <= reply.size(), "a page lies in the reply");
    const int offset = scsiModePageOffset(reply.data(), static_cast<int>(reply.size()), ten ? 1 : 0);
    require(offset < 0 || static_cast<size_t>(offset) + kPageHeader <= reply.size(), "a page lies in the reply");
    checkSelect(reply, ten);
    if (page.place == PagePlace::kInside) {
        checkExceptionsPage(reply, page.offset);
    }
}

void checkLogPages(Bytes reply)
{
    require(!listsLogPage(reply, kExceptionsLogPage) ||
                std::find(reply.begin(), reply.end(), kExceptionsLogPage) != reply.end(),
            "a listed page is in the list");
    const std::optional<uint8_t> code = judgeInformationalExceptionsLog(reply);
    require(!code || *code == 0 || (reply.size() > 8 && *code == reply[8]), "a code is the one that was sent");
}

void checkSense(Bytes sense)
{
    require(senseKeyBeforeSelect(sense) <= 0x0F && senseKeyAfterSelect(sense) <= 0x0F, "a sense key has four bits");
    const uint8_t code = requestedSenseCode(sense);
    require(code == 0 || std::find(sense.begin(), sense.end(), code) != sense.end(), "a code is one that was sent");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Bytes reply(data, size);
    for (const bool ten : {false, true}) {
        checkModePage(reply, ten);
    }
    checkExceptionsPage(reply, size > 0 ? data[0] : 0);
    checkLogPages(reply);
    checkSense(reply);
    if (size >= sizeof(int)) {
        int result = 0;
        std::memcpy(&result, data, sizeof result);
        require(legacyStatus(result) <= 0x7E, "a SCSI status has six bits");
    }
    return 0;
}
