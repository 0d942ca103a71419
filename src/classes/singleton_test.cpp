// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

#include "runtime/trace.h"
#include "support/lock_at.h"
#include "support/store_fixture.h"

#include <gmock/gmock.h>
#include <thread>

using namespace tavstrg;

using broker::NamedValue;
using broker::Reply;
using broker::Request;
using testing::ElementsAre;

namespace {

struct Member {
    const char *cimName;
    int classId;
    InstanceHandler *get;
    InstanceBuilder<void> *build;
    const char *getName;
    const char *buildName;
    const char *storeCall;
    const char *noData;
    const char *noRecord;
    std::vector<std::pair<std::string, CMPIType>> properties;
};

const Member kMembers[] = {
    {"TAV_StorageConfig",
     TAV_CID_STRG_CONF,
     TAV_STRGConfigGetInstance,
     buildFrom<StrgConfRec, TAV_STRGConfigSetPropInst>,
     "TAV_STRGConfigGetInstance",
     "TAV_STRGConfigSetPropInst",
     "strgGetInstance(TAV_CID_STRG_CONF)",
     "strgGetInstance() NoData Failure!!",
     "_OUT_ Param(datconf) Failure!!",
     {{"MonitorCycle", CMPI_uint16},
      {"MonitorCycleMin", CMPI_uint16},
      {"MonitorCycleMax", CMPI_uint16},
      {"MonitorCycleDefault", CMPI_uint16},
      {"HardDiskSmartMode", CMPI_sint16}}},
    {"TAV_StorageTotalNumber",
     TAV_CID_STRG_TNUM,
     TAV_STRGTotalNumGetInstance,
     buildFrom<StrgTnumRec, TAV_STRGTotalNumSetPropInst>,
     "TAV_STRGTotalNumGetInstance",
     "TAV_STRGTotalNumSetPropInst",
     "strgGetInstance(TAV_CID_STRG_TNUM)",
     "fsGetInstance() NoData Failure!!",
     "_OUT_ Param(dattotal) Failure!!",
     {{"ControllerTotalNumber", CMPI_uint16},
      {"SCSIDeviceTotalNumber", CMPI_uint16},
      {"IDEDeviceTotalNumber", CMPI_uint16},
      {"HardDiskTotalNumber", CMPI_uint16},
      {"CDROMTotalNumber", CMPI_uint16},
      {"TapeTotalNumber", CMPI_uint16},
      {"OpticalMemoryTotalNumber", CMPI_uint16},
      {"MiscTotalNumber", CMPI_uint16}}},
};

class Singleton : public ServedStore {
protected:
    Reply get(const Member &member, const std::vector<std::string> *properties = nullptr)
    {
        Request request(broker, member.cimName);
        if (properties != nullptr) {
            request.setProperties(*properties);
        }
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(member.get(&cInfo, request.result(), request.path(), request.properties()));
    }
    static const Member &config() { return kMembers[0]; }
    static const Member &totals() { return kMembers[1]; }
};

TEST_F(Singleton, OneInstanceWithThePropertiesInTheirOrder)
{
    put<StrgConfRec>(TAV_CID_STRG_CONF, {{61, 11, 3601, 62, -1, 0}});
    put<StrgTnumRec>(TAV_CID_STRG_TNUM, {{1, 2, 3, 4, 5, 6, 7, 65535, 9, 0}});
    const std::vector<std::string> values[] = {{"61", "11", "3601", "62", "-1"},
                                               {"1", "2", "3", "4", "5", "6", "7", "65535"}};
    for (int m = 0; m < 2; ++m) {
        const Member &member = kMembers[m];
        SCOPED_TRACE(member.cimName);
        const Reply reply = get(member);
        ASSERT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
        EXPECT_TRUE(reply.done);
        ASSERT_EQ(reply.instances.size(), 1u);
        EXPECT_EQ(reply.instances[0].className, member.cimName);
        EXPECT_TRUE(reply.instances[0].keys.empty());
        const std::vector<NamedValue> &given = reply.instances[0].properties;
        ASSERT_EQ(given.size(), member.properties.size());
        std::vector<std::string> steps = {"_IN_", "CMNewObjectPath() NameSpace=[root/TAVKIT/AS]", "CMNewInstance()",
                                          "CMSetPropertyFilter()"};
        for (size_t i = 0; i < given.size(); ++i) {
            EXPECT_EQ(given[i].name, member.properties[i].first);
            EXPECT_EQ(given[i].value.type, member.properties[i].second);
            EXPECT_EQ(given[i].value.toString(), values[m][i]) << given[i].name;
            steps.push_back("CMSetProperty() " + given[i].name + "=[" + values[m][i] + "]");
        }
        steps.push_back("_OUT_");
        EXPECT_THAT(trace.linesOf(member.getName), ElementsAre("0 _IN_", std::string("0 ") + member.storeCall,
                                                               "0 CMReturnInstance()", "0 CMReturnDone()", "0 _OUT_"));
        std::vector<std::string> texts = trace.textsOf(member.buildName);
        ASSERT_GT(texts.size(), 2u);
        EXPECT_THAT(texts[2], testing::StartsWith("memfree(0x"));
        texts.erase(texts.begin() + 2);
        EXPECT_EQ(texts, steps);
    }
}

TEST_F(Singleton, TheTotalOfLifeSpansIsNeverPublished)
{
    put<StrgTnumRec>(TAV_CID_STRG_TNUM, {{0, 0, 0, 0, 0, 0, 0, 0, 3, 0}});
    put<StrgLifeRec>(TAV_CID_STRG_LIFE, {{1, 1, 2, 0}, {2, 2, 2, 0}, {3, 3, 2, 0}});
    const Reply reply = get(totals());
    ASSERT_EQ(reply.instances.size(), 1u);
    EXPECT_EQ(reply.instances[0].find("LifeSpanTotalNumber"), nullptr);
    EXPECT_EQ(broker.calls("setProperty"), 8u);
}

TEST_F(Singleton, APropertyListLimitsTheProperties)
{
    const std::vector<std::string> list = {"MonitorCycleMax"};
    const Reply reply = get(config(), &list);
    ASSERT_EQ(reply.instances.size(), 1u);
    ASSERT_EQ(reply.instances[0].properties.size(), 1u);
    EXPECT_EQ(reply.instances[0].properties[0].name, "MonitorCycleMax");
}

TEST_F(Singleton, APropertyThatIsNotTakenIsNoFailure)
{
    for (const Member &member : kMembers) {
        broker.failCall("setProperty", 2);
        const Reply reply = get(member);
        EXPECT_TRUE(broker.failureStruck());
        EXPECT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
        ASSERT_EQ(reply.instances.size(), 1u);
        EXPECT_EQ(reply.instances[0].properties.size(), member.properties.size() - 1);
        EXPECT_EQ(reply.instances[0].find(member.properties[1].first), nullptr);
    }
}

TEST_F(Singleton, WithoutCallInformationThereIsNoMessage)
{
    for (const Member &member : kMembers) {
        const CMPIStatus status = member.get(nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(status.msg, nullptr);
        EXPECT_TRUE(trace.has(kFailure, "param(cInfo) Failure!!", member.getName));
    }
}

TEST_F(Singleton, AStoreThatCannotBeReadFails)
{
    for (const Member &member : kMembers) {
        pthread_mutex_lock(&shmSt[member.classId].mutex.mutex);
        const Reply reply = get(member);
        pthread_mutex_unlock(&shmSt[member.classId].mutex.mutex);
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "strgGetInstance() FAILED");
        EXPECT_TRUE(trace.has(kFailure, "strgGetInstance() Failure!!", member.getName));
    }
}

TEST_F(Singleton, ARecordWithoutAnArrayFails)
{
    void *array = std::exchange(instSt[TAV_CID_STRG_TNUM].datAdr, nullptr);
    const Reply reply = get(totals());
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "strgGetInstance() FAILED");
    instSt[TAV_CID_STRG_TNUM].datAdr = array;
}

TEST_F(Singleton, AMissingRecordIsNotFound)
{
    put<StrgTnumRec>(TAV_CID_STRG_TNUM, {});
    const Reply reply = get(totals());
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(reply.message, "NotFound Data");
    EXPECT_TRUE(trace.has(kFailure, totals().noData, totals().getName));

    // Without its record the configuration cannot be read. If the record goes between the two checks, the answer is
    // that of every class without records.
    const TraceScope scope(config().getName);
    const Refusal refused = noData({.classId = 0,
                                    .classIdName = "",
                                    .noDataText = config().noData,
                                    .recordParam = "",
                                    .setPropInstName = "",
                                    .setPropInst = nullptr});
    EXPECT_EQ(refused.code, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_STREQ(refused.text, "NotFound Data");
    EXPECT_TRUE(trace.has(kFailure, config().noData, config().getName));
}

TEST_F(Singleton, OnAFreedStoreWithAThreadOnlyTheConfigurationFails)
{
    *strgGetThreadID() = 0;
    ASSERT_EQ(strgFreeInstance(&outside), 0);
    *strgGetThreadID() = pthread_self();
    Reply reply = get(totals());
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(reply.message, "NotFound Data");
    reply = get(config());
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "strgGetInstance() FAILED");
}

TEST_F(Singleton, NoRecordsLockIsHeldWhileTheTraceOrTheBrokerIsCalled)
{
    for (const Member &member : kMembers) {
        int met = 0;
        const AtLine look("CMNewInstance()", [&met] {
            ++met;
            const std::unique_lock held(g_recordsLock, std::try_to_lock);
            EXPECT_TRUE(held.owns_lock());
        });
        EXPECT_EQ(get(member).rc, CMPI_RC_OK);
        EXPECT_EQ(met, 1);
    }
}

TEST_F(Singleton, ResultIsClosedBeforeTheInstanceIsReleased)
{
    for (const Member &member : kMembers) {
        Request request(broker, member.cimName);
        const CInfo cInfo = {broker.handle(), request.context()};
        int64_t alive = 0;
        {
            const AtLine look("CMReturnDone()", [&] { alive = broker.accounting().live; });
            // What another thread makes belongs to no request, and is counted at once.
            std::thread([&] { member.get(&cInfo, request.result(), request.path(), nullptr); }).join();
        }
        EXPECT_EQ(alive, 1) << "the instance";
        EXPECT_EQ(broker.accounting().live, 0);
    }
}

TEST_F(Singleton, SetPropInstChecksItsParametersInOrder)
{
    const uint64_t record[8] = {};
    for (const Member &member : kMembers) {
        const Request request(broker, member.cimName);
        const CInfo cInfo = {broker.handle(), request.context()};
        EXPECT_EQ(member.build(nullptr, nullptr, nullptr, nullptr), nullptr);
        EXPECT_EQ(member.build(&cInfo, nullptr, nullptr, record), nullptr);
        EXPECT_EQ(member.build(&cInfo, request.path(), nullptr, nullptr), nullptr);
        EXPECT_THAT(trace.linesOf(member.buildName),
                    ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ Param(cop) Failure!!",
                                "0 _IN_", std::string("3 ") + member.noRecord));
    }
}

TEST_F(Singleton, AnInstanceThatCannotBeBuiltOrTakenFails)
{
    for (const Member &member : kMembers) {
        for (const FailingBuild &c : kFailingBuilds) {
            SCOPED_TRACE(c.slot);
            broker.failCall(c.slot, 1);
            const Reply reply = get(member);
            EXPECT_TRUE(broker.failureStruck());
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
            EXPECT_EQ(reply.message, std::string(member.buildName) + "() FAILED");
            EXPECT_TRUE(trace.has(kFailure, c.text, member.buildName));
            EXPECT_TRUE(trace.has(kFailure, std::string(member.buildName) + "() Failure!!", member.getName));
        }
        broker.failCall("returnInstance", 1);
        const Reply reply = get(member);
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "CMReturnInstance() FAILED");
        EXPECT_FALSE(reply.done);
        EXPECT_TRUE(trace.has(kFailure, "CMReturnInstance() Failure!!", member.getName));
    }
}

TEST_F(Singleton, NoFailureOfTheBrokerLeavesAnythingBehind)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        bool struck = true;
        for (unsigned nth = 1; struck; ++nth) {
            ASSERT_LT(nth, 100u);
            broker.failCall("*", nth);
            const Reply reply = get(member);
            struck = broker.failureStruck();
            broker.failCall("*", 0);
            ASSERT_TRUE(broker.accounting().clean()) << nth << testing::PrintToString(broker.accounting().notes);
            EXPECT_TRUE(struck || reply.rc == CMPI_RC_OK);
        }
    }
}

} // namespace
