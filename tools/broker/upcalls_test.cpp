// SPDX-License-Identifier: Apache-2.0
// Requests to the broker: the agent's service mode, other classes, enumerations, threads; and calls made to fail.

#include "support/broker_fixture.h"

#include <thread>

namespace broker {

namespace {

class Upcalls : public BrokerTest {
protected:
    CMPIInstance *general(CMPIObjectPath *path)
    {
        return broker.handle()->bft->getInstance(broker.handle(), request.context(), path, nullptr, &status);
    }
    void addOthers()
    {
        broker.addInstance(
            {"", "TAV_Other", {{"Index", Value::text("1")}}, {{"Size", Value::number(10, CMPI_uint32)}}});
        broker.addInstance(
            {"", "TAV_Other", {{"Index", Value::text("2")}}, {{"Size", Value::number(20, CMPI_uint32)}}});
    }
    CMPIEnumeration *others(CMPIObjectPath *path)
    {
        return broker.handle()->bft->enumerateInstances(broker.handle(), request.context(), path, nullptr, &status);
    }

    Request request{broker, "TAV_Thing"};
};

} // namespace

TEST_F(Upcalls, ServiceModeIsABoolean)
{
    for (const bool mode : {false, true}) {
        broker.setServiceMode(mode);
        CMPIObjectPath *const path = newPath("tav_generalinformation");
        CMPIInstance *const instance = general(path);
        ASSERT_NE(instance, nullptr);
        const CMPIData data = instance->ft->getProperty(instance, "InstalledServiceMode", &status);
        EXPECT_EQ(status.rc, CMPI_RC_OK);
        EXPECT_EQ(data.type, CMPI_boolean);
        EXPECT_EQ(data.value.boolean, mode ? 1 : 0);
        release(instance);
        release(path);
    }
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(Upcalls, WithoutServiceModeTheClassIsUnknown)
{
    broker.setServiceMode(std::nullopt);
    CMPIObjectPath *const path = newPath("TAV_GeneralInformation");
    EXPECT_EQ(general(path), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_CLASS);
    release(path);
}

TEST_F(Upcalls, NamespaceIsComparedWithoutCase)
{
    CMPIObjectPath *const lower = newPath("TAV_GeneralInformation", "root/tavkit/as");
    CMPIInstance *const instance = general(lower);
    EXPECT_NE(instance, nullptr);
    CMPIObjectPath *const wrong = newPath("TAV_GeneralInformation", "root/cimv2");
    EXPECT_EQ(general(wrong), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_NAMESPACE);
    release(instance);
    release(lower);
    release(wrong);
}

TEST_F(Upcalls, AddedInstanceReplacesTheBuiltInOne)
{
    broker.addInstance({"", "TAV_GeneralInformation", {}, {{"InstalledServiceMode", Value::number(2, CMPI_boolean)}}});
    CMPIObjectPath *const path = newPath("TAV_GeneralInformation");
    CMPIInstance *const instance = general(path);
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(instance->ft->getProperty(instance, "InstalledServiceMode", nullptr).value.boolean, 2);
    release(instance);
    release(path);
}

TEST_F(Upcalls, GetInstanceComparesKeys)
{
    addOthers();
    CMPIObjectPath *const path = newPath("TAV_Other");
    path->ft->addKey(path, "Index", asValue("2"), CMPI_chars);
    CMPIInstance *const instance = general(path);
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(instance->ft->getProperty(instance, "Size", nullptr).value.uint32, 20u);
    release(instance);
    path->ft->addKey(path, "Index", asValue("3"), CMPI_chars);
    EXPECT_EQ(general(path), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NOT_FOUND);
    release(path);
}

TEST_F(Upcalls, EnumerationGivesItsInstancesAndArray)
{
    addOthers();
    CMPIObjectPath *const path = newPath("TAV_Other");
    CMPIEnumeration *const all = others(path);
    ASSERT_NE(all, nullptr);
    CMPIArray *const array = all->ft->toArray(all, &status);
    EXPECT_EQ(all->ft->toArray(all, nullptr), array);
    EXPECT_EQ(array->ft->getSize(array, nullptr), 2u);
    EXPECT_EQ(array->ft->getElementAt(array, 1, nullptr).type, CMPI_instance);
    unsigned sum = 0;
    while (all->ft->hasNext(all, nullptr) != 0) {
        CMPIInstance *const instance = all->ft->getNext(all, nullptr).value.inst;
        sum += instance->ft->getProperty(instance, "Size", nullptr).value.uint32;
    }
    EXPECT_EQ(sum, 30u);
    EXPECT_EQ(all->ft->getNext(all, &status).state, CMPI_badValue);
    release(all);
    EXPECT_EQ(array->ft->getSize(array, &status), 0u);
    EXPECT_EQ(broker.accounting().useAfterRelease, 1);
    release(path);
}

TEST_F(Upcalls, ArrayMayBeReleasedBeforeItsEnumeration)
{
    addOthers();
    CMPIObjectPath *const path = newPath("TAV_Other");
    CMPIEnumeration *const all = others(path);
    CMPIArray *const array = all->ft->toArray(all, &status);
    CMPIArray *const clone = array->ft->clone(array, &status);
    release(array);
    EXPECT_EQ(all->ft->hasNext(all, nullptr), 0);
    EXPECT_EQ(broker.accounting().useAfterRelease, 1);
    release(all);
    release(path);
    EXPECT_EQ(broker.accounting().doubleReleases, 0);
    // The clone is deep.
    CMPIInstance *const instance = clone->ft->getElementAt(clone, 0, nullptr).value.inst;
    EXPECT_EQ(instance->ft->getProperty(instance, "Size", nullptr).value.uint32, 10u);
    EXPECT_EQ(instance->ft->release(instance).rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(broker.accounting().releasedForeign, 1);
    release(clone);
    EXPECT_EQ(broker.accounting().live, 0);
}

TEST_F(Upcalls, ArrayIsReleasedWithItsEnumeration)
{
    addOthers();
    CMPIObjectPath *const path = newPath("TAV_Other");
    CMPIEnumeration *const all = others(path);
    CMPIArray *const array = all->ft->toArray(all, &status);
    release(all);
    array->ft->release(array);
    EXPECT_EQ(broker.accounting().doubleReleases, 1);
    release(path);
}

TEST(StrictToArray, ArrayIsTheEnumerationsToRelease)
{
    Options options;
    options.strictToArray = true;
    Broker broker(options);
    broker.addInstance({"", "TAV_Other", {}, {}});
    const Request request(broker, "TAV_Other");
    CMPIEnumeration *const all =
        broker.handle()->bft->enumerateInstances(broker.handle(), request.context(), request.path(), nullptr, nullptr);
    CMPIArray *const array = all->ft->toArray(all, nullptr);
    EXPECT_EQ(array->ft->release(array).rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(broker.accounting().releasedForeign, 1);
    all->ft->release(all);
}

TEST_F(Upcalls, EnumerateInstanceNamesGivesPaths)
{
    addOthers();
    broker.addClass("TAV_Other", {{"Index", CMPI_string, true}, {"Size", CMPI_uint32}});
    CMPIObjectPath *const path = newPath("TAV_Other");
    CMPIEnumeration *const all =
        broker.handle()->bft->enumerateInstanceNames(broker.handle(), request.context(), path, &status);
    ASSERT_NE(all, nullptr);
    const CMPIData first = all->ft->getNext(all, nullptr);
    EXPECT_EQ(first.type, CMPI_ref);
    EXPECT_EQ(textOf(first.value.ref->ft->getKey(first.value.ref, "Index", nullptr).value.string), "1");
    release(all);
    release(path);
}

TEST_F(Upcalls, PropertyListLimitsTheAnswer)
{
    addOthers();
    CMPIObjectPath *const path = newPath("TAV_Other");
    const char *list[] = {"Index", nullptr};
    CMPIInstance *const instance =
        broker.handle()->bft->getInstance(broker.handle(), request.context(), path, list, &status);
    instance->ft->getProperty(instance, "Size", &status);
    EXPECT_NE(status.rc, CMPI_RC_OK);
    release(instance);
    release(path);
}

TEST_F(Upcalls, PreparedContextLivesUntilDetached)
{
    const CMPIBroker *const handle = broker.handle();
    CMPIContext *prepared = nullptr;
    {
        const Request other(broker, "TAV_Thing");
        prepared = handle->bft->prepareAttachThread(handle, other.context());
    }
    ASSERT_NE(prepared, nullptr);
    std::thread([&] {
        EXPECT_EQ(handle->bft->attachThread(handle, prepared).rc, CMPI_RC_OK);
        CMPIObjectPath *const path =
            handle->eft->newObjectPath(handle, "root/TAVKIT/AS", "TAV_GeneralInformation", nullptr);
        CMPIInstance *const instance = handle->bft->getInstance(handle, prepared, path, nullptr, nullptr);
        EXPECT_NE(instance, nullptr);
        instance->ft->release(instance);
        path->ft->release(path);
    }).join();
    EXPECT_TRUE(broker.accounting().clean()); // the broker owns the context of a thread that never detaches
    EXPECT_EQ(handle->bft->detachThread(handle, prepared).rc, CMPI_RC_OK);
    EXPECT_EQ(handle->bft->attachThread(handle, prepared).rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(broker.accounting().useAfterRelease, 1);
    EXPECT_NE(handle->bft->detachThread(handle, request.context()).rc, CMPI_RC_OK);
}

TEST_F(Upcalls, OtherRequestsAreNotSupported)
{
    const CMPIBroker *const handle = broker.handle();
    EXPECT_EQ(handle->bft->execQuery(handle, request.context(), request.path(), "", "", &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(handle->bft->deleteInstance(handle, request.context(), request.path()).rc, CMPI_RC_ERR_NOT_SUPPORTED);
    handle->bft->getProperty(handle, request.context(), request.path(), "X", &status);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NOT_SUPPORTED);
}

TEST_F(Upcalls, ThreadsAndLocksOfTheExtendedTable)
{
    CMPIBrokerExtFT *const system = broker.handle()->xft;
    void *const mutex = system->newMutex(0);
    static int value;
    value = 0;
    void *const thread = system->newThread(
        [](void *) -> void * {
            value = 5;
            return &value;
        },
        nullptr, 0);
    void *result = nullptr;
    EXPECT_EQ(system->joinThread(thread, &result), 0);
    EXPECT_EQ(result, &value);
    system->lockMutex(mutex);
    EXPECT_EQ(value, 5);
    system->unlockMutex(mutex);
    system->destroyMutex(mutex);
}

namespace {

class FailedCalls : public Upcalls {};

} // namespace

TEST_F(FailedCalls, NthCallOfASlotFails)
{
    broker.failCall("newObjectPath", 2, CMPI_RC_ERR_ACCESS_DENIED);
    CMPIObjectPath *const first = newPath();
    ASSERT_NE(first, nullptr);
    EXPECT_FALSE(broker.failureStruck());
    EXPECT_EQ(newPath(), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_ACCESS_DENIED);
    EXPECT_TRUE(broker.failureStruck());
    CMPIObjectPath *const third = newPath();
    EXPECT_NE(third, nullptr);
    release(first);
    release(third);
}

TEST_F(FailedCalls, StarCountsEveryCallButRelease)
{
    broker.failCall("*", 3);
    CMPIObjectPath *const path = newPath();
    release(path);
    CMPIObjectPath *const other = newPath();
    EXPECT_EQ(other->ft->addKey(other, "Index", asValue("1"), CMPI_chars).rc, CMPI_RC_ERR_FAILED);
    EXPECT_TRUE(broker.failureStruck());
    release(other);
    EXPECT_EQ(broker.calls("*"), 3u);
    EXPECT_EQ(broker.calls("release"), 2u);
    EXPECT_EQ(broker.calls("newObjectPath"), 2u);
    EXPECT_EQ(broker.calls("getKey"), 0u);
    broker.forgetCalls();
    EXPECT_EQ(broker.calls("*"), 0u);
}

TEST_F(FailedCalls, DisarmedFailureDoesNotStrike)
{
    broker.failCall("newObjectPath", 1);
    broker.failCall("newObjectPath", 0);
    CMPIObjectPath *const path = newPath();
    EXPECT_NE(path, nullptr);
    EXPECT_FALSE(broker.failureStruck());
    release(path);
}

TEST_F(FailedCalls, SlotCanReturnNullWithSuccess)
{
    broker.failCall("newObjectPath", 1, CMPI_RC_OK);
    EXPECT_EQ(newPath(), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    CMPIObjectPath *const path = newPath("TAV_GeneralInformation");
    broker.failCall("getInstance", 1, CMPI_RC_OK);
    EXPECT_EQ(general(path), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    release(path);
}

TEST_F(FailedCalls, SlotCanReturnAnObjectWithoutHandle)
{
    broker.failCall("newObjectPath", 1, Broker::kNullHandle);
    CMPIObjectPath *const path = newPath();
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path->hdl, nullptr);
    EXPECT_TRUE(broker.failureStruck());
    release(path);
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(FailedCalls, EveryNamedSlotCanFail)
{
    broker.addInstance({"", "TAV_Other", {}, {{"Size", Value::number(1)}}});
    const CMPIBroker *const handle = broker.handle();
    const CMPIContext *const context = request.context();
    CMPIObjectPath *const path = newPath("TAV_Other");
    CMPIInstance *const instance = newInstance(path);
    CMPIEnumeration *const all = others(path);
    CMPIArray *const array = all->ft->toArray(all, nullptr);
    CMPIContext *const prepared = handle->bft->prepareAttachThread(handle, context);
    const CMPIUint16 one = 1;
    CMPIResult *const result = request.result();
    const auto viaStatus = [&](auto *) { return status.rc; };
    using Attempt = std::function<int()>;
    const std::vector<std::pair<const char *, Attempt>> attempts = {
        {"newObjectPath", [&] { return viaStatus(newPath()); }},
        {"newInstance", [&] { return viaStatus(newInstance(path)); }},
        {"newString", [&] { return viaStatus(handle->eft->newString(handle, "", &status)); }},
        {"getInstance", [&] { return viaStatus(general(path)); }},
        {"getProperty", [&] { return instance->ft->getProperty(instance, "Size", &status), int{status.rc}; }},
        {"getKey", [&] { return path->ft->getKey(path, "Index", &status), int{status.rc}; }},
        {"getArg", [&] { return request.in()->ft->getArg(request.in(), "A", &status), int{status.rc}; }},
        {"getNameSpace", [&] { return viaStatus(path->ft->getNameSpace(path, &status)); }},
        {"getClassName", [&] { return viaStatus(path->ft->getClassName(path, &status)); }},
        {"setPropertyFilter", [&] { return instance->ft->setPropertyFilter(instance, nullptr, nullptr).rc; }},
        {"setProperty", [&] { return instance->ft->setProperty(instance, "X", asValue(&one), CMPI_uint16).rc; }},
        {"addKey", [&] { return path->ft->addKey(path, "X", asValue(&one), CMPI_uint16).rc; }},
        {"returnInstance", [&] { return result->ft->returnInstance(result, instance).rc; }},
        {"returnData", [&] { return result->ft->returnData(result, asValue(&one), CMPI_uint16).rc; }},
        {"returnDone", [&] { return result->ft->returnDone(result).rc; }},
        {"attachThread", [&] { return handle->bft->attachThread(handle, prepared).rc; }},
        {"enumerateInstances", [&] { return viaStatus(others(path)); }},
        {"toArray", [&] { return viaStatus(all->ft->toArray(all, &status)); }},
        {"getSize", [&] { return array->ft->getSize(array, &status), int{status.rc}; }},
        {"clone", [&] { return viaStatus(array->ft->clone(array, &status)); }},
    };
    for (const auto &[slot, attempt] : attempts) {
        broker.failCall(slot, 1, CMPI_RC_ERR_ACCESS_DENIED);
        EXPECT_EQ(attempt(), CMPI_RC_ERR_ACCESS_DENIED) << slot;
        EXPECT_TRUE(broker.failureStruck()) << slot;
    }
    broker.failCall("prepareAttachThread", 1);
    EXPECT_EQ(handle->bft->prepareAttachThread(handle, context), nullptr);
    EXPECT_TRUE(broker.failureStruck());
    release(all);
    release(instance);
    release(path);
    EXPECT_TRUE(broker.accounting().clean());
}

} // namespace broker
