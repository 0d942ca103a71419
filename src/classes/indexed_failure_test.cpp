// SPDX-License-Identifier: Apache-2.0
#include "runtime/trace.h"
#include "support/indexed_fixture.h"

#include <gmock/gmock.h>

using namespace tavstrg;

using broker::NamedValue;
using broker::Reply;
using broker::Request;
using broker::Value;
using testing::ElementsAre;

namespace {

TEST_F(Indexed, AnUnknownKeyIsAnInvalidParameter)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        fill(member.classId, {1, 2});
        const Reply reply = get(member, "3");
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_INVALID_PARAMETER);
        EXPECT_EQ(reply.message, "NotFound Index");
        EXPECT_TRUE(reply.instances.empty());
        EXPECT_TRUE(
            trace.has(kDetail, "CMSetStatusWithChars() - CMPI_RC_ERR_INVALID_PARAMETER Index", getName(member)));
    }
}

TEST_F(Indexed, AKeyThatIsZeroOrUnreadableFailsBeforeTheStoreIsAsked)
{
    Value null;
    null.type = CMPI_string;
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        fill(member.classId, {1});
        for (const Value &key : {Value::text("0"), Value::text("none"), Value::number(0), null}) {
            trace.clear();
            const Reply reply = get(member, {{"Index", key}});
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
            EXPECT_EQ(reply.message, "getKeyIndex() FAILED");
            EXPECT_THAT(trace.linesOf(getName(member)), ElementsAre("0 _IN_", "3 getKeyIndex() Failure!!", "0 _OUT_"));
            EXPECT_TRUE(trace.textsOf("strgGetInstance").empty());
        }
        EXPECT_EQ(get(member, std::vector<NamedValue>{}).message, "getKeyIndex() FAILED");
    }
}

TEST_F(Indexed, WithoutCallInformationThereIsNoMessage)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        for (InstanceHandler *const handler : {member.get, member.enumerate}) {
            const CMPIStatus status = handler(nullptr, nullptr, nullptr, nullptr);
            EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
            EXPECT_EQ(status.msg, nullptr);
        }
        EXPECT_TRUE(trace.has(kFailure, "param(cInfo) Failure!!", getName(member)));
        EXPECT_TRUE(trace.has(kFailure, "param(cInfo) Failure!!", enumName(member)));
    }
}

TEST_F(Indexed, AStoreThatCannotBeReadFails)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        fill(member.classId, {1});
        pthread_mutex_lock(&shmSt[member.classId].mutex.mutex); // held elsewhere for longer than a request waits
        for (const Reply &reply : {get(member, "1"), enumerate(member)}) {
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
            EXPECT_EQ(reply.message, "strgGetInstance() FAILED");
        }
        pthread_mutex_unlock(&shmSt[member.classId].mutex.mutex);
        EXPECT_TRUE(trace.has(kFailure, "strgGetInstance() Failure!!", getName(member)));
        EXPECT_TRUE(trace.has(kFailure, "strgGetInstance() Failure!!", enumName(member)));
    }
}

TEST_F(Indexed, RecordsWithoutAnArrayAreAFailureNotAnEmptyClass)
{
    fill(TAV_CID_STRG_HDD, {1});
    void *array = std::exchange(instSt[TAV_CID_STRG_HDD].datAdr, nullptr);
    for (const Reply &reply : {get(hardDisk(), "1"), enumerate(hardDisk())}) {
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "strgGetInstance() FAILED");
    }
    instSt[TAV_CID_STRG_HDD].datAdr = array;
}

TEST_F(Indexed, SetPropInstChecksItsParametersInOrder)
{
    const uint64_t record[64] = {};
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        const Request request(broker, member.cimName);
        const CInfo cInfo = {broker.handle(), request.context()};
        EXPECT_EQ(member.build(nullptr, nullptr, nullptr, nullptr), nullptr);
        EXPECT_EQ(member.build(&cInfo, nullptr, nullptr, nullptr), nullptr);
        EXPECT_EQ(member.build(&cInfo, request.path(), nullptr, nullptr), nullptr);
        EXPECT_EQ(member.build(&cInfo, nullptr, nullptr, record), nullptr);
        EXPECT_THAT(trace.linesOf(buildName(member)),
                    ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ Param(cop) Failure!!",
                                "0 _IN_", std::string("3 _OUT_ Param(") + member.recordParam + ") Failure!!", "0 _IN_",
                                "3 _OUT_ Param(cop) Failure!!"));
    }
}

TEST_F(Indexed, AnInstanceThatCannotBeBuiltFails)
{
    for (const Member &member : kMembers) {
        fill(member.classId, {1});
        for (const FailingBuild &c : kFailingBuilds) {
            SCOPED_TRACE(std::string(member.cimName) + " " + c.slot);
            for (const bool one : {true, false}) {
                trace.clear();
                broker.failCall(c.slot, 1);
                const Reply reply = one ? get(member, "1") : enumerate(member);
                EXPECT_TRUE(broker.failureStruck());
                EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
                EXPECT_EQ(reply.message, buildName(member) + "() FAILED");
                EXPECT_FALSE(reply.done);
                EXPECT_TRUE(trace.has(kFailure, c.text, buildName(member)));
                EXPECT_TRUE(
                    trace.has(kFailure, buildName(member) + "() Failure!!", one ? getName(member) : enumName(member)));
            }
        }
    }
}

TEST_F(Indexed, ObjectsWithoutAHandleAreNotUsed)
{
    fill(TAV_CID_STRG_HDD, {1});
    for (const char *const slot : {"getNameSpace", "newObjectPath", "newInstance"}) {
        broker.failCall(slot, 1, broker::Broker::kNullHandle);
        EXPECT_EQ(get(hardDisk(), "1").message, "TAV_STRGHddSetPropInst() FAILED") << slot;
        EXPECT_TRUE(broker.failureStruck());
    }
}

TEST_F(Indexed, AnInstanceThatIsNotTakenFails)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        fill(member.classId, {1, 2, 3});
        broker.failCall("returnInstance", 1);
        const Reply one = get(member, "1");
        EXPECT_EQ(one.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(one.message, "CMReturnInstance() FAILED");
        EXPECT_FALSE(one.done);
        EXPECT_TRUE(trace.has(kFailure, "CMReturnInstance() Failure!!", getName(member)));
        broker.failCall("returnInstance", 2);
        const Reply all = enumerate(member);
        EXPECT_EQ(all.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(all.message, "CMReturnInstance() FAILED");
        EXPECT_EQ(all.instances.size(), 1u) << "what was returned stays returned";
        EXPECT_FALSE(all.done);
        EXPECT_TRUE(trace.has(kFailure, "CMReturnInstance() Failure!!", enumName(member)));
    }
}

TEST_F(Indexed, AnEnumerationEndsAtTheFirstInstanceThatCannotBeBuilt)
{
    fill(TAV_CID_STRG_HDD, {1, 2, 3});
    broker.failCall("newInstance", 2);
    const Reply reply = enumerate(hardDisk());
    EXPECT_EQ(reply.message, "TAV_STRGHddSetPropInst() FAILED");
    EXPECT_EQ(reply.instances.size(), 1u);
    EXPECT_FALSE(reply.done);
}

// Fails the first, second, ... call into the broker until a request gets through; after each, everything that was made
// has been released (the fixture looks), and a failure has told itself.
TEST_F(Indexed, NoFailureOfTheBrokerLeavesAnythingBehind)
{
    for (const Member &member : kMembers) {
        fill(member.classId, {1, 2});
        for (const bool one : {true, false}) {
            SCOPED_TRACE(one ? getName(member) : enumName(member));
            bool struck = true;
            for (unsigned nth = 1; struck; ++nth) {
                ASSERT_LT(nth, 100u);
                broker.failCall("*", nth);
                const Reply reply = one ? get(member, "1") : enumerate(member);
                struck = broker.failureStruck();
                broker.failCall("*", 0);
                ASSERT_TRUE(broker.accounting().clean()) << nth << testing::PrintToString(broker.accounting().notes);
                if (!struck) {
                    EXPECT_EQ(reply.rc, CMPI_RC_OK);
                    EXPECT_EQ(reply.instances.size(), one ? 1u : 2u);
                }
            }
        }
    }
}

} // namespace
