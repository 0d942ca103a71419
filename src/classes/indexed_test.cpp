// SPDX-License-Identifier: Apache-2.0
#include "runtime/trace.h"
#include "store/arrays.h"
#include "support/indexed_fixture.h"
#include "support/lock_at.h"

#include <atomic>
#include <gmock/gmock.h>
#include <thread>

using namespace tavstrg;

using broker::NamedValue;
using broker::Reply;
using broker::Request;
using broker::Value;
using testing::ElementsAre;

namespace {

TEST_F(Indexed, GetInstanceFindsTheKeyAtAnyPosition)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        fill(member.classId, {3, 1, 2, 2});
        const Reply reply = get(member, "2");
        ASSERT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
        EXPECT_TRUE(reply.done);
        ASSERT_EQ(reply.instances.size(), 1u);
        EXPECT_EQ(reply.instances[0].className, member.cimName);
        EXPECT_EQ(reply.instances[0].nameSpace, "root/TAVKIT/AS");
        EXPECT_EQ(reply.instances[0].find("Index")->toString(), "2");
        const std::string record = member.recordName;
        EXPECT_THAT(trace.linesOf(getName(member)),
                    ElementsAre("0 _IN_", std::string("0 strgGetInstance(") + member.classIdName + ")",
                                "0 " + record + "[0]->Index=[3]", "0 " + record + "[1]->Index=[1]",
                                "0 " + record + "[2]->Index=[2]", "0 CMReturnInstance()", "0 CMReturnDone()",
                                "0 _OUT_"));
        put<StrgDevRec>(TAV_CID_STRG_CDROM, {});
    }
}

TEST_F(Indexed, PropertiesHaveTheirOrderTypesAndValues)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        fill(member.classId, {7});
        const Reply reply = get(member, "7");
        ASSERT_EQ(reply.instances.size(), 1u) << reply.message;
        const std::vector<NamedValue> &given = reply.instances[0].properties;
        ASSERT_EQ(given.size(), member.properties.size());
        const ClassDesc &desc = kClasses[member.classId];
        EXPECT_STREQ(desc.cimName, member.cimName);
        ASSERT_EQ(desc.fields.size(), given.size());
        for (size_t i = 0; i < given.size(); ++i) {
            const FieldDesc &field = desc.fields[i];
            EXPECT_EQ(given[i].name, member.properties[i].first);
            EXPECT_EQ(given[i].value.type, member.properties[i].second) << given[i].name;
            EXPECT_EQ(field.name, given[i].name);
            const std::string expected = field.key                  ? "7"
                                         : field.type == CMPI_chars ? textOf(field, 7)
                                                                    : std::to_string(numberOf(field, 7));
            EXPECT_EQ(given[i].value.toString(), expected) << given[i].name;
        }
    }
}

TEST_F(Indexed, SetPropInstTracesEveryStep)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        fill(member.classId, {7});
        broker.forgetCalls();
        ASSERT_EQ(get(member, "7").rc, CMPI_RC_OK);
        EXPECT_EQ(broker.calls("addKey"), 1u);
        std::vector<std::string> texts = trace.textsOf(buildName(member));
        ASSERT_GT(texts.size(), 4u);
        EXPECT_THAT(texts[2], testing::StartsWith("memfree(0x"));
        texts.erase(texts.begin() + 2);
        std::vector<std::string> expected = {"_IN_",
                                             "CMNewObjectPath() NameSpace=[root/TAVKIT/AS]",
                                             "CMNewInstance()",
                                             "CMSetPropertyFilter()",
                                             "CMAddKey() Index_str=[7]",
                                             "CMSetProperty() Index_str=[7]"};
        for (const FieldDesc &field : kClasses[member.classId].fields) {
            if (!field.key) {
                expected.push_back("CMSetProperty() " + std::string(field.name) + "=[" +
                                   (field.type == CMPI_chars ? textOf(field, 7) : std::to_string(numberOf(field, 7))) +
                                   "]");
            }
        }
        expected.push_back("_OUT_");
        EXPECT_EQ(texts, expected);
    }
}

TEST_F(Indexed, AKeyOrPropertyThatIsNotTakenIsNoFailure)
{
    fill(TAV_CID_STRG_HDD, {1});
    const struct {
        const char *slot;
        unsigned nth;
        const char *property; // that the instance then lacks
    } cases[] = {{"addKey", 1, nullptr}, {"setProperty", 1, "Index"}, {"setProperty", 2, "InterfaceType"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.slot);
        broker.failCall(c.slot, c.nth);
        const Reply reply = get(hardDisk(), "1");
        EXPECT_TRUE(broker.failureStruck());
        EXPECT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
        ASSERT_EQ(reply.instances.size(), 1u);
        EXPECT_EQ(reply.instances[0].properties.size(), hardDisk().properties.size() - (c.property == nullptr ? 0 : 1));
        EXPECT_TRUE(c.property == nullptr || reply.instances[0].find(c.property) == nullptr);
    }
}

TEST_F(Indexed, EnumInstancesGivesEveryRecordInArrayOrder)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        fill(member.classId, {3, 1, 2});
        const Reply reply = enumerate(member);
        ASSERT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
        EXPECT_TRUE(reply.done);
        ASSERT_EQ(reply.instances.size(), 3u);
        EXPECT_EQ(reply.instances[0].find("Index")->toString(), "3");
        EXPECT_EQ(reply.instances[1].find("Index")->toString(), "1");
        EXPECT_EQ(reply.instances[2].find("Index")->toString(), "2");
        const std::string record = member.recordName;
        EXPECT_THAT(trace.linesOf(enumName(member)),
                    ElementsAre("0 _IN_", std::string("0 strgGetInstance(") + member.enumClassIdName + ")",
                                "0 " + record + "[0]->Index=[3]", "0 CMReturnInstance()",
                                "0 " + record + "[1]->Index=[1]", "0 CMReturnInstance()",
                                "0 " + record + "[2]->Index=[2]", "0 CMReturnInstance()", "0 CMReturnDone()",
                                "0 _OUT_"));
    }
}

TEST_F(Indexed, AClassWithoutRecordsIsNotFound)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        for (const Reply &reply : {get(member, "1"), enumerate(member)}) {
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_NOT_FOUND);
            EXPECT_EQ(reply.message, "NotFound Data");
            EXPECT_FALSE(reply.done);
        }
        EXPECT_TRUE(trace.has(kFailure, "strgGetInstance() NoData Failure!!", getName(member)));
        EXPECT_TRUE(trace.has(kFailure, "strgGetInstance() NoData Failure!!", enumName(member)));
    }
}

TEST_F(Indexed, AKeyMayBeANumberToo)
{
    fill(TAV_CID_STRG_HDD, {1, 2});
    for (const Value &key : {Value::number(2), Value::number(2, CMPI_uint16), Value::signedNumber(2), Value::text("2"),
                             Value::text("65538")}) {
        const Reply reply = get(hardDisk(), {{"Index", key}});
        ASSERT_EQ(reply.instances.size(), 1u) << reply.message;
        EXPECT_EQ(reply.instances[0].find("Index")->toString(), "2");
    }
}

TEST_F(Indexed, APropertyListLimitsThePropertiesButNotTheKey)
{
    const std::vector<std::string> list = {"Capacity", "smartstatus"};
    fill(TAV_CID_STRG_HDD, {2});
    const Reply reply = get(hardDisk(), {{"Index", Value::text("2")}}, &list);
    ASSERT_EQ(reply.instances.size(), 1u) << reply.message;
    const broker::Instance &disk = reply.instances[0];
    EXPECT_NE(disk.find("Capacity"), nullptr);
    EXPECT_NE(disk.find("SmartStatus"), nullptr);
    EXPECT_EQ(disk.find("CylindersPerUnit"), nullptr);
    EXPECT_EQ(disk.find("PNPDeviceID"), nullptr);
}

TEST_F(Indexed, TheKeyIsInTheObjectPathOfAnInstanceWhoseClassIsKnown)
{
    broker.addClass("TAV_StorageHardDisk", {{"Index", CMPI_string, true},
                                            {"Capacity", CMPI_uint32, false},
                                            {"SmartStatus", CMPI_sint16, false},
                                            {"InterfaceType", CMPI_sint16, false},
                                            {"InterfaceTypeIndex", CMPI_uint16, false},
                                            {"PNPDeviceID", CMPI_string, false},
                                            {"CylindersPerUnit", CMPI_uint32, false},
                                            {"TracksPerCylinder", CMPI_uint32, false},
                                            {"SectorsPerTrack", CMPI_uint32, false}});
    const std::vector<std::string> list = {"Capacity"};
    fill(TAV_CID_STRG_HDD, {2});
    const Reply reply = get(hardDisk(), {{"Index", Value::text("2")}}, &list);
    ASSERT_EQ(reply.instances.size(), 1u) << reply.message;
    ASSERT_EQ(reply.instances[0].keys.size(), 1u);
    EXPECT_EQ(reply.instances[0].keys[0].name, "Index");
    EXPECT_EQ(reply.instances[0].keys[0].value.toString(), "2");
}

TEST_F(Indexed, AHardDiskHasAnEmptyPNPDeviceIDAndASignedSmartStatus)
{
    StrgHddRec disk = {};
    disk.Index = 1;
    disk.Capacity = 4000000000u;
    disk.SmartStatus = -1;
    put<StrgHddRec>(TAV_CID_STRG_HDD, {disk});
    const Reply reply = get(hardDisk(), "1");
    ASSERT_EQ(reply.instances.size(), 1u) << reply.message;
    const Value *const id = reply.instances[0].find("PNPDeviceID");
    ASSERT_NE(id, nullptr);
    EXPECT_FALSE(id->isNull());
    EXPECT_EQ(id->toString(), "");
    EXPECT_EQ(reply.instances[0].find("SmartStatus")->toString(), "-1");
    EXPECT_EQ(reply.instances[0].find("Capacity")->toString(), "4000000000");
}

TEST_F(Indexed, AnEnduranceThatWasNotReadYetIsMinusOne)
{
    StrgLifeRec life = {};
    life.Index = 1;
    life.HDDIndex = 1;
    life.EnduranceRemaining = -1;
    put<StrgLifeRec>(TAV_CID_STRG_LIFE, {life});
    const Reply reply = get(lifeSpan(), "1");
    ASSERT_EQ(reply.instances.size(), 1u) << reply.message;
    EXPECT_EQ(reply.instances[0].find("EnduranceRemaining")->toString(), "-1");
}

TEST_F(Indexed, TheInstanceLivesInTheNameSpaceOfTheRequest)
{
    fill(TAV_CID_STRG_HDD, {1});
    Request request(broker, "TAV_StorageHardDisk", {}, "root/elsewhere");
    const CInfo cInfo = {broker.handle(), request.context()};
    const Reply reply = request.reply(TAV_STRGHddEnumInstances(&cInfo, request.result(), request.path(), nullptr));
    ASSERT_EQ(reply.instances.size(), 1u);
    EXPECT_EQ(reply.instances[0].nameSpace, "root/elsewhere");
}

// A monitoring pass replaces the array while clients enumerate it: never a freed array, never half a record, and never
// records of two states in one answer (each state has its number of records, and every record tells it).
TEST_F(Indexed, AnEnumerationShowsOneStateWhileTheArrayIsReplaced)
{
    put<StrgDevRec>(TAV_CID_STRG_TAPE, {{1, 3, 1, 0}, {2, 3, 2, 0}, {3, 3, 3, 0}});
    const auto records = [](int32_t num) {
        auto *const array = static_cast<StrgDevRec *>(memalloc(static_cast<int32_t>(sizeof(StrgDevRec)) * num));
        for (int32_t i = 0; i < num; ++i) {
            const auto index = static_cast<uint16_t>(i + 1);
            array[i] = {index, static_cast<int16_t>(num), index, 0};
        }
        return array;
    };
    std::atomic<bool> done{false};
    std::thread pass([&] {
        for (int32_t num = 1; !done; num = num % 3 + 1) {
            replaceRecords(instSt[TAV_CID_STRG_TAPE], num, records(num), &shmSt[TAV_CID_STRG_TAPE]);
        }
    });
    std::vector<Reply> replies;
    for (int n = 0; n < 50; ++n) {
        replies.push_back(enumerate(kMembers[5]));
        EXPECT_EQ(get(kMembers[5], "1").rc, CMPI_RC_OK);
    }
    done = true;
    pass.join();
    for (const Reply &reply : replies) {
        ASSERT_EQ(reply.rc, CMPI_RC_OK) << reply.message;
        ASSERT_GE(reply.instances.size(), 1u);
        ASSERT_LE(reply.instances.size(), 3u);
        for (const broker::Instance &tape : reply.instances) {
            EXPECT_EQ(tape.find("Index")->toString(), tape.find("InterfaceTypeIndex")->toString());
            EXPECT_EQ(tape.find("InterfaceType")->toString(), std::to_string(reply.instances.size()));
        }
    }
}

// So a broker that is slow, or a trace file that hangs, delays no other request and no stop.
TEST_F(Indexed, NoRecordsLockIsHeldWhileTheTraceOrTheBrokerIsCalled)
{
    for (const Member &member : kMembers) {
        for (const bool one : {true, false}) {
            fill(member.classId, {1, 2});
            // Between the copy and the instance's return each step traces, and then calls the broker.
            for (const char *line : {"CMNewInstance()", "CMSetPropertyFilter()", "CMReturnInstance()"}) {
                SCOPED_TRACE(std::string(member.cimName) + " " + line);
                int met = 0;
                const AtLine look(line, [&met] {
                    ++met;
                    const std::unique_lock held(g_recordsLock, std::try_to_lock);
                    EXPECT_TRUE(held.owns_lock());
                });
                EXPECT_EQ((one ? get(member, "2") : enumerate(member)).rc, CMPI_RC_OK);
                EXPECT_EQ(met, one ? 1 : 2);
            }
        }
    }
}

} // namespace
