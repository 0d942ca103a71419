// SPDX-License-Identifier: Apache-2.0
// Instances of known and unknown classes, and the property filter.

#include "support/broker_fixture.h"

#include <fstream>
#include <iterator>

namespace broker {

namespace {

struct Names {
    std::vector<const char *> list;
    Names(std::initializer_list<const char *> names) : list(names) { list.push_back(nullptr); }
    const char **get() { return list.data(); }
};

class Instances : public BrokerTest {
protected:
    Request request{broker, "TAV_Thing"};

    Reply returned(CMPIInstance *instance)
    {
        request.result()->ft->returnInstance(request.result(), instance);
        return request.reply({});
    }
    // As the provider does: adds the key to the path after the instance was made, and sets it as a property.
    CMPIInstance *thing(const char **filter = nullptr)
    {
        CMPIObjectPath *const path = newPath();
        CMPIInstance *const instance = newInstance(path);
        EXPECT_EQ(instance->ft->setPropertyFilter(instance, filter, nullptr).rc, CMPI_RC_OK);
        path->ft->addKey(path, "Index", asValue("4"), CMPI_chars);
        const CMPIUint16 number = 70;
        instance->ft->setProperty(instance, "Index", asValue("4"), CMPI_chars);
        instance->ft->setProperty(instance, "Number", asValue(&number), CMPI_uint16);
        instance->ft->setProperty(instance, "Text", asValue("words"), CMPI_chars);
        release(path);
        return instance;
    }
};

} // namespace

TEST_F(Instances, KnownClassStartsWithNullProperties)
{
    addThing();
    CMPIObjectPath *const path = newPath();
    CMPIInstance *const instance = newInstance(path);
    EXPECT_EQ(instance->ft->getPropertyCount(instance, nullptr), 3u);
    const CMPIData number = instance->ft->getProperty(instance, "number", &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(number.type, CMPI_uint16);
    EXPECT_EQ(number.state, CMPI_nullValue);
    const Instance seen = returned(instance).instances.at(0);
    ASSERT_NE(seen.find("Text"), nullptr);
    EXPECT_TRUE(seen.find("Text")->isNull());
    release(path);
    release(instance);
}

TEST_F(Instances, UnknownClassKeepsPropertiesAndHasNoPath)
{
    CMPIInstance *const instance = thing();
    EXPECT_EQ(instance->ft->getPropertyCount(instance, nullptr), 3u);
    EXPECT_EQ(instance->ft->getObjectPath(instance, &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_CLASS);
    release(instance);
}

TEST_F(Instances, PathComesFromTheSchemasKey)
{
    addThing();
    CMPIInstance *const instance = thing();
    CMPIObjectPath *const path = instance->ft->getObjectPath(instance, &status);
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path->ft->getKeyCount(path, nullptr), 1u);
    EXPECT_EQ(textOf(path->ft->getKey(path, "Index", nullptr).value.string), "4");
    const Instance seen = returned(instance).instances.at(0);
    ASSERT_EQ(seen.keys.size(), 1u);
    EXPECT_EQ(seen.keys[0].value.toString(), "4");
    release(path);
    release(instance);
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(Instances, KeysOfThePathAreTakenOver)
{
    CMPIObjectPath *const path = newPath();
    path->ft->addKey(path, "Before", asValue("1"), CMPI_chars);
    CMPIInstance *const instance = newInstance(path);
    path->ft->addKey(path, "After", asValue("2"), CMPI_chars);
    instance->ft->getProperty(instance, "Before", &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    instance->ft->getProperty(instance, "After", &status);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    release(path);
    release(instance);
}

TEST_F(Instances, PropertiesKeepTheOrderInWhichTheyWereSet)
{
    addThing();
    CMPIObjectPath *const path = newPath();
    CMPIInstance *const instance = newInstance(path);
    const CMPIUint16 number = 1;
    instance->ft->setProperty(instance, "Text", asValue("x"), CMPI_chars);
    instance->ft->setProperty(instance, "Number", asValue(&number), CMPI_uint16);
    const Instance seen = returned(instance).instances.at(0);
    ASSERT_EQ(seen.properties.size(), 3u);
    EXPECT_EQ(seen.properties[0].name, "Text");
    EXPECT_EQ(seen.properties[1].name, "Number");
    EXPECT_EQ(seen.properties[2].name, "Index");
    release(path);
    release(instance);
}

TEST_F(Instances, ReturnedInstanceIsACopy)
{
    CMPIInstance *const instance = thing();
    request.result()->ft->returnInstance(request.result(), instance);
    instance->ft->setProperty(instance, "Text", asValue("later"), CMPI_chars);
    release(instance);
    EXPECT_EQ(request.reply({}).instances.at(0).find("text")->toString(), "words");
}

TEST_F(Instances, SignedNumbersKeepTheirSign)
{
    CMPIObjectPath *const path = newPath();
    CMPIInstance *const instance = newInstance(path);
    const CMPISint16 minusOne = -1;
    const CMPIBoolean yes = 1;
    instance->ft->setProperty(instance, "Status", asValue(&minusOne), CMPI_sint16);
    instance->ft->setProperty(instance, "Flag", asValue(&yes), CMPI_boolean);
    const Instance seen = returned(instance).instances.at(0);
    EXPECT_EQ(std::get<int64_t>(seen.find("Status")->data), -1);
    EXPECT_EQ(seen.find("Status")->type, CMPI_sint16);
    EXPECT_EQ(std::get<bool>(seen.find("Flag")->data), true);
    release(path);
    release(instance);
}

TEST_F(Instances, EmptyTextIsNotNull)
{
    CMPIObjectPath *const path = newPath();
    CMPIInstance *const instance = newInstance(path);
    instance->ft->setProperty(instance, "Empty", asValue(""), CMPI_chars);
    instance->ft->setProperty(instance, "Null", nullptr, CMPI_chars);
    const Instance seen = returned(instance).instances.at(0);
    EXPECT_FALSE(seen.find("Empty")->isNull());
    EXPECT_TRUE(seen.find("Null")->isNull());
    release(path);
    release(instance);
}

TEST_F(Instances, FilterKeepsListedPropertiesAndTheKey)
{
    addThing();
    Names filter{"number"};
    CMPIInstance *const instance = thing(filter.get());
    const Instance seen = returned(instance).instances.at(0);
    EXPECT_NE(seen.find("Number"), nullptr);
    EXPECT_EQ(seen.find("Text"), nullptr);
    EXPECT_NE(seen.find("Index"), nullptr);
    EXPECT_EQ(seen.keys.size(), 1u);
    release(instance);
}

TEST_F(Instances, MissingListFiltersNothing)
{
    addThing();
    CMPIInstance *const instance = thing(nullptr);
    EXPECT_EQ(returned(instance).instances.at(0).properties.size(), 3u);
    release(instance);
}

TEST_F(Instances, EmptyListKeepsOnlyTheKey)
{
    addThing();
    Names filter{};
    CMPIInstance *const instance = thing(filter.get());
    const Instance seen = returned(instance).instances.at(0);
    ASSERT_EQ(seen.properties.size(), 1u);
    EXPECT_EQ(seen.properties[0].name, "Index");
    release(instance);
}

TEST_F(Instances, FilterDropsEarlierProperties)
{
    addThing();
    CMPIInstance *const instance = thing();
    Names filter{"Text"};
    instance->ft->setPropertyFilter(instance, filter.get(), nullptr);
    EXPECT_EQ(returned(instance).instances.at(0).find("Number"), nullptr);
    release(instance);
}

TEST_F(Instances, PropertyOutsideTheFilterIsIgnoredWithSuccess)
{
    Names filter{"Text"};
    CMPIInstance *const instance = thing(filter.get());
    const CMPIUint16 number = 1;
    EXPECT_EQ(instance->ft->setProperty(instance, "Number", asValue(&number), CMPI_uint16).rc, CMPI_RC_OK);
    EXPECT_EQ(returned(instance).instances.at(0).find("Number"), nullptr);
    release(instance);
}

TEST(OldFilter, DropsAnUnlistedKey)
{
    Options options;
    options.oldPropertyFilter = true;
    options.missingPropertyCode = CMPI_RC_ERR_NOT_FOUND;
    Broker broker(options);
    broker.addClass("TAV_Thing", {{"Index", CMPI_string, true}, {"Text", CMPI_string}});
    const Request request(broker, "TAV_Thing");
    CMPIInstance *const instance = broker.handle()->eft->newInstance(broker.handle(), request.path(), nullptr);
    Names filter{"Text"};
    instance->ft->setPropertyFilter(instance, filter.get(), nullptr);
    instance->ft->setProperty(instance, "Index", asValue("1"), CMPI_chars);
    CMPIStatus status{};
    instance->ft->getProperty(instance, "Index", &status);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NOT_FOUND);
    Names keys{"Index"};
    instance->ft->setPropertyFilter(instance, filter.get(), keys.get());
    instance->ft->setProperty(instance, "Index", asValue("1"), CMPI_chars);
    instance->ft->getProperty(instance, "Index", &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    instance->ft->release(instance);
}

TEST_F(Instances, TypeMismatchIsCountedAndNotStored)
{
    addThing();
    CMPIInstance *const instance = thing();
    EXPECT_EQ(instance->ft->setProperty(instance, "Number", asValue("70"), CMPI_chars).rc, CMPI_RC_OK);
    EXPECT_EQ(instance->ft->getProperty(instance, "Number", nullptr).value.uint16, 70);
    EXPECT_EQ(broker.accounting().schemaViolations, 1);
    const CMPIUint16 number = 1;
    EXPECT_EQ(instance->ft->setProperty(instance, "Text", asValue(&number), CMPI_uint16).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    EXPECT_EQ(broker.accounting().schemaViolations, 2);
    release(instance);
}

TEST_F(Instances, UndeclaredPropertyIsCounted)
{
    addThing();
    CMPIInstance *const instance = thing();
    instance->ft->setProperty(instance, "Nummer", asValue("1"), CMPI_chars);
    const Accounting account = broker.accounting();
    EXPECT_EQ(account.schemaViolations, 1);
    EXPECT_FALSE(account.clean());
    ASSERT_FALSE(account.notes.empty());
    EXPECT_NE(account.notes[0].find("Nummer"), std::string::npos);
    release(instance);
}

TEST_F(Instances, SetObjectPathTakesOverItsKeys)
{
    addThing();
    CMPIInstance *const instance = thing();
    CMPIObjectPath *const path = newPath("TAV_Thing", "root/other");
    path->ft->addKey(path, "Index", asValue("9"), CMPI_chars);
    EXPECT_EQ(instance->ft->setObjectPath(instance, path).rc, CMPI_RC_OK);
    const Instance seen = returned(instance).instances.at(0);
    EXPECT_EQ(seen.nameSpace, "root/other");
    EXPECT_EQ(seen.keys.at(0).value.toString(), "9");
    release(path);
    release(instance);
}

TEST(BrokerSchema, ClassInheritsPropertiesAndKeys)
{
    Broker broker;
    EXPECT_EQ(broker.addSchema(R"(
        #pragma locale ("en_US")
        // A class and a derived class.
        Qualifier Key : boolean = false, Scope(property, reference);
        [Version("1.0"), Description("with ] and ; and \" in it")]
        class TAV_Base { [Key, MaxLen(8)] string Index; /* ; */ };
        class TAV_Thing : TAV_Base
        {
            [ValueMap{"0", "1"}, Values{"No", "Yes"}] uint16 Number = 5;
            sint16 Level; uint8 Bytes[]; TAV_Base REF Other;
            uint32 Do([IN] string Text, [IN(false), OUT] uint16 Result);
        };)"),
              "");
    const Request request(broker, "tav_thing");
    CMPIInstance *const instance = broker.handle()->eft->newInstance(broker.handle(), request.path(), nullptr);
    EXPECT_EQ(instance->ft->getPropertyCount(instance, nullptr), 5u);
    EXPECT_EQ(instance->ft->getProperty(instance, "Level", nullptr).type, CMPI_sint16);
    EXPECT_EQ(instance->ft->getProperty(instance, "Bytes", nullptr).type, CMPI_uint8A);
    instance->ft->setProperty(instance, "Index", asValue("1"), CMPI_chars);
    CMPIObjectPath *const path = instance->ft->getObjectPath(instance, nullptr);
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path->ft->getKeyCount(path, nullptr), 1u);
    path->ft->release(path);
    instance->ft->release(instance);
    EXPECT_TRUE(broker.accounting().clean());
}

TEST(BrokerSchema, ErrorNamesTheLine)
{
    Broker broker;
    EXPECT_EQ(broker.addSchema("class A {\n nosuchtype X;\n};"), "line 2: unknown type at \"nosuchtype\"");
    EXPECT_NE(broker.addSchema("class A { string X;"), "");
    EXPECT_NE(broker.addSchema("class A"), "");
    EXPECT_NE(broker.addSchema("[Description(\"x\""), "");
    EXPECT_NE(broker.addSchema("instance of A { };"), "");
}

TEST(BrokerSchema, ReadsTheProvidersSchema)
{
    std::ifstream file(TAV_SOURCE_DIR "/schema/TAV_Storage.mof");
    const std::string mof(std::istreambuf_iterator<char>(file), {});
    Broker broker;
    ASSERT_FALSE(mof.empty());
    EXPECT_EQ(broker.addSchema(mof), "");
    const Request request(broker, "TAV_StorageHardDisk");
    CMPIInstance *const instance = broker.handle()->eft->newInstance(broker.handle(), request.path(), nullptr);
    EXPECT_EQ(instance->ft->getProperty(instance, "Index", nullptr).type, CMPI_string);
    EXPECT_EQ(instance->ft->getProperty(instance, "SmartStatus", nullptr).type, CMPI_sint16);
    instance->ft->release(instance);
}

TEST(BrokerValues, ToString)
{
    EXPECT_EQ(Value::text("a").toString(), "a");
    EXPECT_EQ(Value::number(7, CMPI_uint16).toString(), "7");
    EXPECT_EQ(Value::signedNumber(-7).toString(), "-7");
    EXPECT_EQ((Value{CMPI_boolean, true}).toString(), "true");
    EXPECT_EQ(Value{}.toString(), "");
}

} // namespace broker
