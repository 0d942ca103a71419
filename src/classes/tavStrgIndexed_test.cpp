#include "classes/tavStrgIndexed.h"

#include "provider/runtime/tavCommonTrace.h"
#include "store/records/tavStrgCommonArrays.h"
#include "support/store_fixture.h"

#include <atomic>
#include <gmock/gmock.h>
#include <thread>

using broker::NamedValue;
using broker::Reply;
using broker::Request;
using broker::Value;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// What is told of each member of the family.
struct Member {
    int classId;
    const char *cimName;
    InstanceHandler *get;
    InstanceHandler *enumerate;
    InstanceBuilder<void> *build;
    const char *prefix; // of the function names
    const char *classIdName;
    const char *enumClassIdName;
    const char *recordName;
    const char *recordParam;
    std::vector<std::pair<std::string, CMPIType>> properties; // as a client sees them
};

const std::vector<std::pair<std::string, CMPIType>> kDeviceProperties = {
    {"Index", CMPI_string}, {"InterfaceType", CMPI_sint16}, {"InterfaceTypeIndex", CMPI_uint16}};

#define MEMBER(Name, Rec)                                                                                              \
    TAV_STRG##Name##GetInstance, TAV_STRG##Name##EnumInstances, buildFrom<Rec, TAV_STRG##Name##SetPropInst>,           \
        "TAV_STRG" #Name

const Member kMembers[] = {
    {TAV_CID_STRG_CTRL,
     "TAV_StorageController",
     MEMBER(Ctrl, StrgCtrlRec),
     "TAV_CID_STRG_CTRL",
     "TAV_CID_STRG_CTRL",
     "datCtrl",
     "datctrl",
     {{"Index", CMPI_string},
      {"InterfaceType", CMPI_sint16},
      {"Model", CMPI_string},
      {"InterruptNumber", CMPI_uint16},
      {"Driver", CMPI_string},
      {"DriverVersion", CMPI_string}}},
    {TAV_CID_STRG_SCSI,
     "TAV_StorageSCSIDevice",
     MEMBER(Scsi, StrgScsiRec),
     "TAV_CID_STRG_SCSI",
     "TAV_CID_STRG_SCSI",
     "datScsi",
     "datscsi",
     {{"Index", CMPI_string},
      {"DeviceType", CMPI_sint16},
      {"DeviceTypeIndex", CMPI_uint16},
      {"ControllerIndex", CMPI_uint16},
      {"Bus", CMPI_uint16},
      {"TargetID", CMPI_uint16},
      {"LUN", CMPI_uint16},
      {"Vendor", CMPI_string},
      {"Model", CMPI_string},
      {"FirmwareRevision", CMPI_string},
      {"SerialNumber", CMPI_string}}},
    {TAV_CID_STRG_IDE,
     "TAV_StorageIDEDevice",
     MEMBER(Ide, StrgIdeRec),
     "TAV_CID_STRG_IDE",
     "TAV_CID_STRG_IDE",
     "datIde",
     "datide",
     {{"Index", CMPI_string},
      {"DeviceType", CMPI_sint16},
      {"DeviceTypeIndex", CMPI_uint16},
      {"ControllerIndex", CMPI_uint16},
      {"IDEConfiguration", CMPI_sint16},
      {"Model", CMPI_string},
      {"FirmwareRevision", CMPI_string},
      {"SerialNumber", CMPI_string}}},
    {TAV_CID_STRG_HDD,
     "TAV_StorageHardDisk",
     MEMBER(Hdd, StrgHddRec),
     "TAV_CID_STRG_HDD",
     "TAV_CID_STRG_HDD",
     "datHdd",
     "dathdd",
     {{"Index", CMPI_string},
      {"InterfaceType", CMPI_sint16},
      {"InterfaceTypeIndex", CMPI_uint16},
      {"PNPDeviceID", CMPI_string},
      {"CylindersPerUnit", CMPI_uint32},
      {"TracksPerCylinder", CMPI_uint32},
      {"SectorsPerTrack", CMPI_uint32},
      {"Capacity", CMPI_uint32},
      {"SmartStatus", CMPI_sint16}}},
    {TAV_CID_STRG_CDROM, "TAV_StorageCDROM", MEMBER(Cdrom, StrgDevRec), "TAV_CID_STRG_CDROM", "TAV_CID_STRG_CDROM",
     "datCd", "datcd", kDeviceProperties},
    {TAV_CID_STRG_TAPE, "TAV_StorageTape", MEMBER(Tape, StrgDevRec), "TAV_CID_STRG_TAPE", "TAV_CID_STRG_TAPE",
     "datTape", "dattap", kDeviceProperties},
    {TAV_CID_STRG_OPTM, "TAV_StorageOpticalMemory", MEMBER(OptMem, StrgDevRec), "TAV_CID_STRG_OPTM",
     "TAV_CID_STRG_OPTM", "datOptm", "datoptm", kDeviceProperties},
    {TAV_CID_STRG_MISC, "TAV_StorageMisc", MEMBER(Misc, StrgDevRec), "TAV_CID_STRG_MISC", "TAV_CID_STRG_MISC",
     "datMisc", "datmisc", kDeviceProperties},
    {TAV_CID_STRG_LIFE,
     "TAV_StorageLifeSpan",
     MEMBER(LifeSpan, StrgLifeRec),
     "TAV_CID_STRG_LIFE",
     "TAV_CID_STRG_LifeSpan",
     "datLifeSpan",
     "datlifespan",
     {{"Index", CMPI_string}, {"HDDIndex", CMPI_sint16}, {"EnduranceRemaining", CMPI_sint16}}},
};

#undef MEMBER

class Indexed : public StoreFixture {
protected:
    // Records 1 to count of a class, of which every field has a value of its own.
    void fill(int classId, const std::vector<uint16_t> &indices)
    {
        const ClassDesc &desc = kClasses[classId];
        std::vector<uint8_t> bytes(desc.recordSize * indices.size());
        for (size_t i = 0; i < indices.size(); ++i) {
            uint8_t *const record = bytes.data() + i * desc.recordSize;
            for (const FieldDesc &field : desc.fields) {
                if (field.key) {
                    std::memcpy(record + field.offset, &indices[i], sizeof indices[i]);
                } else if (field.type == CMPI_chars) {
                    const std::string text = textOf(field, indices[i]);
                    std::memcpy(record + field.offset, text.c_str(), text.size() + 1);
                } else {
                    const int64_t number = numberOf(field, indices[i]);
                    std::memcpy(record + field.offset, &number, field.size);
                }
            }
        }
        switch (desc.recordSize) {
        case sizeof(StrgCtrlRec):
            putBytes<StrgCtrlRec>(classId, bytes);
            break;
        case sizeof(StrgScsiRec):
            putBytes<StrgScsiRec>(classId, bytes);
            break;
        case sizeof(StrgIdeRec):
            putBytes<StrgIdeRec>(classId, bytes);
            break;
        case sizeof(StrgHddRec):
            putBytes<StrgHddRec>(classId, bytes);
            break;
        default:
            putBytes<StrgDevRec>(classId, bytes);
        }
    }
    template <class Rec> void putBytes(int classId, const std::vector<uint8_t> &bytes)
    {
        std::vector<Rec> records(bytes.size() / sizeof(Rec));
        std::memcpy(records.data(), bytes.data(), bytes.size());
        put<Rec>(classId, records);
    }
    static std::string textOf(const FieldDesc &field, int index)
    {
        const std::string text = std::to_string(index) + " " + field.name;
        return text.substr(0, field.size - 1u);
    }
    // Negative in signed fields: a sign that gets lost shows.
    static int64_t numberOf(const FieldDesc &field, int index)
    {
        return field.type == CMPI_sint16 ? -index - field.offset : 1000 * index + field.offset;
    }

    Reply get(const Member &member, const std::vector<NamedValue> &keys,
              const std::vector<std::string> *properties = nullptr)
    {
        Request request(broker, member.cimName, keys);
        if (properties != nullptr) {
            request.setProperties(*properties);
        }
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(member.get(&cInfo, request.result(), request.path(), request.properties()));
    }
    Reply get(const Member &member, const std::string &index) { return get(member, {{"Index", Value::text(index)}}); }
    Reply enumerate(const Member &member)
    {
        Request request(broker, member.cimName);
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(member.enumerate(&cInfo, request.result(), request.path(), request.properties()));
    }
    std::string getName(const Member &member) { return std::string(member.prefix) + "GetInstance"; }
    std::string enumName(const Member &member) { return std::string(member.prefix) + "EnumInstances"; }
    std::string buildName(const Member &member) { return std::string(member.prefix) + "SetPropInst"; }
    static const Member &hardDisk() { return kMembers[3]; }
    static const Member &lifeSpan() { return kMembers[8]; }
};

TEST_F(Indexed, GetInstanceGivesTheRecordWithTheKeyWhereverItStands)
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
        const std::vector<std::string> texts = trace.textsOf(getName(member));
        EXPECT_THAT(texts, ElementsAre("_IN_", std::string("strgGetInstance(") + member.classIdName + ")",
                                       record + "[0]->Index=[3]", record + "[1]->Index=[1]", record + "[2]->Index=[2]",
                                       "CMReturnInstance()", "CMReturnDone()", "_OUT_"));
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
        ASSERT_EQ(get(member, "7").rc, CMPI_RC_OK);
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
        EXPECT_THAT(trace.textsOf(enumName(member)),
                    ElementsAre("_IN_", std::string("strgGetInstance(") + member.enumClassIdName + ")",
                                record + "[0]->Index=[3]", "CMReturnInstance()", record + "[1]->Index=[1]",
                                "CMReturnInstance()", record + "[2]->Index=[2]", "CMReturnInstance()", "CMReturnDone()",
                                "_OUT_"));
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
            EXPECT_THAT(trace.textsOf(getName(member)), ElementsAre("_IN_", "getKeyIndex() Failure!!", "_OUT_"));
            EXPECT_TRUE(trace.textsOf("strgGetInstance").empty());
        }
        EXPECT_EQ(get(member, std::vector<NamedValue>{}).message, "getKeyIndex() FAILED");
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
        pthread_mutex_lock(&shmSt[member.classId].mutex.mutex); // somebody else's, for longer than a request waits
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
        EXPECT_THAT(trace.textsOf(buildName(member)),
                    ElementsAre("_IN_", "_OUT_ param(cInfo) Failure!!", "_IN_", "_OUT_ Param(cop) Failure!!", "_IN_",
                                std::string("_OUT_ Param(") + member.recordParam + ") Failure!!", "_IN_",
                                "_OUT_ Param(cop) Failure!!"));
        EXPECT_TRUE(trace.has(kFailure, std::string("_OUT_ Param(") + member.recordParam + ") Failure!!"));
    }
}

TEST_F(Indexed, AnInstanceThatCannotBeBuiltFails)
{
    const struct {
        const char *slot;
        const char *text;
    } cases[] = {
        {"getNameSpace", "_OUT_ CMGetCharPtr() Failure!!"},
        {"newObjectPath", "_OUT_ CMNewObjectPath() Failure!!"},
        {"newInstance", "_OUT_ CMNewInstance() Failure!!"},
        {"setPropertyFilter", "CMSetPropertyFilter() Failure!!"},
    };
    for (const Member &member : kMembers) {
        fill(member.classId, {1});
        for (const auto &c : cases) {
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
