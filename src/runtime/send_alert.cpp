// SPDX-License-Identifier: Apache-2.0
#include "runtime/send_alert.h"

#include "runtime/trace.h"

#include <cstddef>
#include <type_traits>

using namespace tavstrg;

// The library takes the record by value: its layout is the interface.
static_assert(std::is_trivial_v<AlertIndication> && std::is_standard_layout_v<AlertIndication>);
static_assert(offsetof(AlertIndication, version) == 0 && offsetof(AlertIndication, method) == 4 &&
              offsetof(AlertIndication, sourceName) == 8 && offsetof(AlertIndication, eventID) == 16 &&
              offsetof(AlertIndication, eventType) == 20 && offsetof(AlertIndication, numOfStrings) == 24 &&
              offsetof(AlertIndication, strings) == 32);

namespace {

constexpr int32_t kFirstMethod = 1;
constexpr int32_t kLastMethod = 3;

void traceIndication(const AlertIndication &info)
{
    TRACE(kDetail, "-> Info.version=[%d]", static_cast<int>(info.version));
    TRACE(kDetail, "-> Info.method=[%d]", static_cast<int>(info.method));
    TRACE(kDetail, "-> Info.sourceName=[%s]", info.sourceName);
    TRACE(kDetail, "-> Info.eventID=[0x%08x]", info.eventID);
    TRACE(kDetail, "-> Info.eventType=[%d]", info.eventType);
    TRACE(kDetail, "-> Info.numOfStrings=[%d]", info.numOfStrings);
    TRACE(kDetail, "-> Info.strings=[%p]", static_cast<const void *>(info.strings));
}

// 0, or -1 when the library is not there or refuses.
int hand(const AlertIndication &info)
{
    const LibraryCall now(g_alerting);
    const auto sendIndication = g_Func.alert.SendIndication.load();
    return sendIndication != nullptr && sendIndication(info) == 0 ? 0 : -1;
}

} // namespace

int TAVSendIndication(const char *sourceName, uint32_t eventId, int32_t eventType, int32_t method, int32_t numOfStrings,
                      const char **strings)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (sourceName == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param(svnm) Failure!!");
    }
    if (eventType < 0) {
        return TRACED(-1, kFailure, "_OUT_ Param(evType) Failure!!");
    }
    if (method < kFirstMethod || method > kLastMethod) {
        return TRACED(-1, kFailure, "_OUT_ Param(method) Failure!!");
    }
    if (numOfStrings < 0) {
        return TRACED(-1, kFailure, "_OUT_ Param(paramCnt) Failure!!");
    }
    const AlertIndication info = {0,      static_cast<uint32_t>(method), sourceName, eventId, eventType, numOfStrings,
                                  strings};
    traceIndication(info);
    const int ret = hand(info);
    return TRACED(ret, kDetail, "_OUT_ ret=[%d]", ret);
}
