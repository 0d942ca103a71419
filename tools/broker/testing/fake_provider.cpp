// SPDX-License-Identifier: Apache-2.0
// A small provider for the broker's tests. The class name of a request selects its behaviour.

#include "broker/testing/fake_provider.h"

#include <chrono>
#include <cmpift.h>
#include <cstring>

namespace {

std::atomic<const CMPIBroker *> brokerHandle; // factories run while other requests read it
FakeProvider unused;
std::atomic<FakeProvider *> fake{&unused};

const CMPIBroker *theBroker()
{
    return brokerHandle.load();
}

// Waits until another thread is inside too, for at most one second.
bool meetAnother(std::atomic<int> &inside)
{
    using namespace std::chrono;
    ++inside;
    const auto until = steady_clock::now() + seconds(1);
    bool met = false;
    while (!met && steady_clock::now() < until) {
        met = inside >= 2;
        std::this_thread::yield();
    }
    return met;
}

CMPIStatus status(int rc, const char *message = nullptr)
{
    CMPIStatus made{static_cast<CMPIrc>(rc), nullptr};
    if (message != nullptr) {
        made.msg = CMNewString(theBroker(), message, nullptr);
    }
    return made;
}

bool requestIs(const CMPIObjectPath *path, const char *className)
{
    CMPIString *const name = CMGetClassName(path, nullptr);
    const bool same = strcmp(CMGetCharPtr(name), className) == 0;
    CMRelease(name);
    return same;
}

void answerOne(const CMPIResult *result, CMPIObjectPath *path, const char **properties)
{
    CMPIInstance *const instance = CMNewInstance(theBroker(), path, nullptr);
    CMSetPropertyFilter(instance, properties, nullptr);
    const CMPIUint16 number = 7;
    CMSetProperty(instance, "Index", reinterpret_cast<const CMPIValue *>("1"), CMPI_chars);
    CMSetProperty(instance, "Number", reinterpret_cast<const CMPIValue *>(&number), CMPI_uint16);
    CMReturnInstance(result, instance);
    CMReturnDone(result);
    CMRelease(instance);
}

CMPIStatus FakeGetInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *result, const CMPIObjectPath *path,
                           const char **properties)
{
    fake.load()->requestThread = std::this_thread::get_id();
    if (requestIs(path, "Fake_Nothing")) {
        return status(CMPI_RC_OK);
    }
    if (requestIs(path, "Fake_Failure")) {
        return status(CMPI_RC_ERR_INVALID_PARAMETER, "no such thing");
    }
    if (requestIs(path, "Fake_Leak")) {
        CMNewObjectPath(theBroker(), "root", "Fake_Leak", nullptr);
        CMNewString(theBroker(), "dropped", nullptr);
        return status(CMPI_RC_ERR_FAILED, "seen");
    }
    if (requestIs(path, "Fake_Meeting") && meetAnother(fake.load()->inside)) {
        fake.load()->overlapped = true;
    }
    CMPIObjectPath *const own = CMNewObjectPath(theBroker(), "root/TAVKIT/AS", "Fake_Good", nullptr);
    answerOne(result, own, properties);
    CMRelease(own);
    return status(CMPI_RC_OK);
}

CMPIStatus FakeEnumInstances(CMPIInstanceMI *mi, const CMPIContext *context, const CMPIResult *result,
                             const CMPIObjectPath *path, const char **properties)
{
    return FakeGetInstance(mi, context, result, path, properties);
}

CMPIStatus FakeEnumInstanceNames(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *result,
                                 const CMPIObjectPath *path)
{
    CMReturnObjectPath(result, path);
    return status(CMPI_RC_OK);
}

CMPIStatus FakeCreateInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                              const CMPIInstance *)
{
    return status(CMPI_RC_ERR_NOT_SUPPORTED, "create");
}

CMPIStatus FakeModifyInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                              const CMPIInstance *, const char **)
{
    return status(CMPI_RC_ERR_NOT_SUPPORTED, "modify");
}

CMPIStatus FakeDeleteInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *)
{
    return status(CMPI_RC_ERR_NOT_SUPPORTED, "delete");
}

CMPIStatus FakeExecQuery(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                         const char *query, const char *)
{
    return status(CMPI_RC_ERR_NOT_SUPPORTED, query);
}

CMPIStatus cleanup(const CMPIContext *context, CMPIBoolean terminating, std::atomic<int> &count, int answer)
{
    FakeProvider &state = *fake.load();
    ++count;
    state.terminatingCleanups += terminating != 0 ? 1 : 0;
    if (state.cleanupWaitsForAnother && &count == &state.instanceCleanups && meetAnother(state.inside)) {
        state.cleanupsMet = true;
    }
    if (state.cleanupCallsBroker) {
        CMPIObjectPath *const path = CMNewObjectPath(theBroker(), "root/TAVKIT/AS", "TAV_GeneralInformation", nullptr);
        CBGetInstance(theBroker(), context, path, nullptr, nullptr);
        CMRelease(path);
    }
    return status(answer, "cleaned");
}

CMPIStatus FakeCleanup(CMPIInstanceMI *, const CMPIContext *context, CMPIBoolean terminating)
{
    FakeProvider &state = *fake.load();
    return cleanup(context, terminating, state.instanceCleanups, state.instanceCleanupAnswer);
}

CMPIStatus FakeMethodCleanup(CMPIMethodMI *, const CMPIContext *context, CMPIBoolean terminating)
{
    FakeProvider &state = *fake.load();
    return cleanup(context, terminating, state.methodCleanups, state.methodCleanupAnswer);
}

// Returns the argument "Text" and, as the method's value, its name.
CMPIStatus FakeInvokeMethod(CMPIMethodMI *, const CMPIContext *, const CMPIResult *result, const CMPIObjectPath *,
                            const char *method, const CMPIArgs *in, CMPIArgs *out)
{
    CMPIStatus found = status(CMPI_RC_OK);
    const CMPIData text = CMGetArg(in, "Text", &found);
    if (found.rc == CMPI_RC_OK) {
        CMAddArg(out, "Text", &text.value, text.type);
    }
    CMReturnData(result, reinterpret_cast<const CMPIValue *>(method), CMPI_chars);
    CMReturnDone(result);
    return status(CMPI_RC_OK);
}

CMPIInstanceMIFT instanceTable = {CMPIVersion200,        CMPIVersion200,     "instanceFakeProvider", FakeCleanup,
                                  FakeEnumInstanceNames, FakeEnumInstances,  FakeGetInstance,        FakeCreateInstance,
                                  FakeModifyInstance,    FakeDeleteInstance, FakeExecQuery};
CMPIMethodMIFT methodTable = {CMPIVersion200, CMPIVersion200, "methodFakeProvider", FakeMethodCleanup,
                              FakeInvokeMethod};
CMPIInstanceMI instanceObject = {nullptr, &instanceTable};
CMPIMethodMI methodObject = {nullptr, &methodTable};

// A successful factory does not change the status.
void countFactory(std::atomic<int> &count, const CMPIBroker *broker, CMPIStatus *rc)
{
    brokerHandle = broker;
    ++count;
    FakeProvider &state = *fake.load();
    state.factoryThread = std::this_thread::get_id();
    if (state.factoryAnswer != 0) {
        rc->rc = static_cast<CMPIrc>(state.factoryAnswer.load());
    }
}

} // namespace

extern "C" {

CMPI_EXPORT void useFakeProvider(FakeProvider *given);
CMPI_EXPORT CMPIInstanceMI *FakeProvider_Create_InstanceMI(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
CMPI_EXPORT CMPIMethodMI *FakeProvider_Create_MethodMI(const CMPIBroker *, const CMPIContext *, CMPIStatus *);

void useFakeProvider(FakeProvider *given)
{
    fake = given == nullptr ? &unused : given;
}

CMPIInstanceMI *FakeProvider_Create_InstanceMI(const CMPIBroker *broker, const CMPIContext *, CMPIStatus *rc)
{
    countFactory(fake.load()->instanceFactories, broker, rc);
    return &instanceObject;
}

CMPIMethodMI *FakeProvider_Create_MethodMI(const CMPIBroker *broker, const CMPIContext *, CMPIStatus *rc)
{
    countFactory(fake.load()->methodFactories, broker, rc);
    return &methodObject;
}

} // extern "C"
