// SPDX-License-Identifier: Apache-2.0
#include "devcmd/open_device.h"
#include "devcmd/transport/pages.h"
#include "devcmd/transport/pages_parse.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <algorithm>
#include <array>
#include <fcntl.h>

using namespace tavstrg;

int scsiCDBModeSelect(const HardDiskEntry *hdt, int *modese_len)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ hdt is NULL");
    }
    if (modese_len == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ modese_len is NULL");
    }
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    if (!device) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    std::array<uint8_t, kPageBuffer> reply{};
    if (modesense(device.get(), kExceptionsModePage, kCurrentValues, reply.data(), reply.size()) == 0) {
        *modese_len = kModeSense6;
    } else if (modesense10(device.get(), kExceptionsModePage, kCurrentValues, reply.data(), reply.size()) == 0) {
        *modese_len = kModeSense10;
    } else {
        *modese_len = kModeSenseNone;
        return TRACED(-1, kFailure, "_OUT_ (-1). *modese_len=[%d]", *modese_len);
    }
    return TRACED(0, kDetail, "_OUT_ (0). *modese_len=[%d]", *modese_len);
}

int scsiModePageOffset(const uint8_t *resp, int len, int modese_10)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ len=[%d] modese_10=[%d]", len, modese_10);
    if (resp == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(resp) Failure!!");
    }
    const bool ten = modese_10 == kModeSense10;
    const ModePage page = modePageOffset({resp, static_cast<size_t>(std::max(len, 0))}, ten);
    const int offset = static_cast<int>(page.offset);
    if (ten) {
        TRACE(kDetail, "offset=%d resp_len=%d bd_len=%d", offset, static_cast<int>(page.replyLength),
              static_cast<int>(page.descriptorLength));
    }
    switch (page.place) {
    case PagePlace::kBeyondBuffer:
        TRACE(kFailure, "(offset + 2) > len");
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    case PagePlace::kBeyondReply:
        TRACE(kFailure, "(offset + 2) > resp_len");
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    case PagePlace::kInside:
        break;
    }
    return TRACED(offset, kDetail, "_OUT_ offset=[%d]", offset);
}

int scsiGetSupportedLogPages(int fd, int *pSmartPage)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (fd == -1) {
        return TRACED(-1, kFailure, "_OUT_ device == -1");
    }
    if (pSmartPage == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ pSmartPage is NULL");
    }
    *pSmartPage = 0;
    std::array<uint8_t, 1024> reply{};
    if (logsense(fd, kSupportedLogPages, reply.data(), kLogLength) == 0 && listsLogPage(reply, kExceptionsLogPage)) {
        *pSmartPage = 1;
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}
