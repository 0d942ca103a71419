#include "provider/runtime/tavCommonMode.h"

#include "provider/runtime/tavCommonData.h"
#include "provider/runtime/tavCommonHolders.h"
#include "provider/runtime/tavCommonTrace.h"

#include <cerrno>
#include <csignal>

std::atomic<int32_t> g_srvmod{-1};

namespace {

constexpr char kNameSpace[] = "root/TAVKIT/AS";
constexpr char kClassName[] = "TAV_GeneralInformation";

// The threads' functions take an identifier as a word; the trace prints its low 32 bits.
int tracedId(pthread_t tid)
{
    return static_cast<int>(tid);
}

} // namespace

int getServiceMode(const CInfo *cInfo)
{
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(0, kFailure, "_OUT_ Param(cInfo) Failure!!");
    }
    if (const int32_t known = g_srvmod; known != -1) {
        return TRACED(known, kDetail, "_OUT_ srvmod=[%d]", known);
    }
    TRACE(kDetail, "GetInstance(%s)", kClassName);
    if (cInfo->context == nullptr) {
        return TRACED(0, kFailure, "_OUT_ CBGetInstance() Failure!!");
    }
    const CMPIBroker *const broker = cInfo->broker;
    CMPIStatus status{};
    const CmpiHolder<CMPIObjectPath> path(broker->eft->newObjectPath(broker, kNameSpace, kClassName, &status));
    if (status.rc != CMPI_RC_OK || !path) {
        return TRACED(0, kFailure, "_OUT_ CMNewObjectPath() Failure!!");
    }
    const CmpiHolder<CMPIInstance> instance(
        broker->bft->getInstance(broker, cInfo->context, path.get(), nullptr, &status));
    if (status.rc != CMPI_RC_OK || !instance) {
        return TRACED(0, kFailure, "_OUT_ CBGetInstance() Failure!!");
    }
    const CMPIData data = instance.get()->ft->getProperty(instance.get(), "InstalledServiceMode", &status);
    if (status.rc != CMPI_RC_OK) {
        return TRACED(0, kFailure, "_OUT_ CMGetProperty() Failure!!");
    }
    const CmpiHolder<CMPIString> text(ownedText(data)); // nothing when the property is the boolean that it should be
    const int mode = data.value.boolean;
    if (mode > 1 || !isPlainValue(data)) { // the value member of a NULL means nothing
        return TRACED(0, kFailure, "_OUT_ getValue() Failure!! boolean=[%d]", mode);
    }
    g_srvmod = mode;
    return TRACED(mode, kDetail, "_OUT_ InstalledServiceMode=[%d]", mode);
}

int getThreadSts(pthread_t *tid)
{
    if (tid == nullptr) {
        TRACE(kDetail, "_IN_ tid=[%d]", 0);
        return TRACED(0, kDetail, "_OUT_ thread is non");
    }
    // Requests ask while a start or a stop writes the identifier.
    const std::atomic_ref<pthread_t> shared(*tid);
    pthread_t seen = shared;
    TRACE(kDetail, "_IN_ tid=[%d]", tracedId(seen));
    if (seen == 0) {
        return TRACED(0, kDetail, "_OUT_ thread is non");
    }
    if (pthread_kill(seen, 0) == ESRCH) {
        shared.compare_exchange_strong(seen, 0); // one that was started meanwhile stays
        return TRACED(0, kDetail, "_OUT_ thread is NotRun");
    }
    return TRACED(1, kDetail, "_OUT_ thread is Running");
}
