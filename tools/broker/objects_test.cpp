// SPDX-License-Identifier: Apache-2.0
// Values in paths, arguments, contexts, strings and arrays.

#include "support/broker_fixture.h"

namespace broker {

namespace {

class Objects : public BrokerTest {
protected:
    Request request{broker, "TAV_Thing", {{"Index", Value::text("3")}, {"Count", Value::number(5)}}};
};

} // namespace

TEST_F(Objects, TextIsReadAsAStringWithItsHandle)
{
    CMPIObjectPath *const path = newPath();
    path->ft->addKey(path, "Index", asValue("12"), CMPI_chars);
    const CMPIData key = path->ft->getKey(path, "index", &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(key.type, CMPI_string);
    EXPECT_EQ(key.state, CMPI_goodValue);
    EXPECT_EQ(textOf(key.value.string), "12");
    EXPECT_STREQ(key.value.string->ft->getCharPtr(key.value.string, nullptr), "12");
    release(path);
}

TEST_F(Objects, NarrowNumberIsZeroExtended)
{
    CMPIObjectPath *const path = newPath();
    const CMPISint16 minusOne = -1;
    path->ft->addKey(path, "Number", asValue(&minusOne), CMPI_sint16);
    const CMPIData key = path->ft->getKey(path, "Number", nullptr);
    EXPECT_EQ(key.type, CMPI_sint16);
    EXPECT_EQ(key.value.uint64, 0xFFFFu);
    release(path);
}

TEST_F(Objects, OnlyTheTypesBytesAreRead)
{
    CMPIObjectPath *const path = newPath();
    const CMPIUint64 wide = 0x1122334455667788;
    path->ft->addKey(path, "A", asValue(&wide), CMPI_uint8);
    path->ft->addKey(path, "B", asValue(&wide), CMPI_uint32);
    path->ft->addKey(path, "C", asValue(&wide), CMPI_uint64);
    EXPECT_EQ(path->ft->getKey(path, "A", nullptr).value.uint64, 0x88u);
    EXPECT_EQ(path->ft->getKey(path, "B", nullptr).value.uint64, 0x55667788u);
    EXPECT_EQ(path->ft->getKey(path, "C", nullptr).value.uint64, wide);
    release(path);
}

TEST_F(Objects, KeysFromAClientAreStringsAndUnsignedNumbers)
{
    const CMPIData text = request.path()->ft->getKey(request.path(), "Index", &status);
    EXPECT_EQ(text.type, CMPI_string);
    const CMPIData number = request.path()->ft->getKey(request.path(), "COUNT", &status);
    EXPECT_EQ(number.type, CMPI_uint64);
    EXPECT_EQ(number.value.uint16, 5);
    EXPECT_EQ(request.path()->ft->getKeyCount(request.path(), nullptr), 2u);
}

TEST_F(Objects, NullTextIsAStringWithoutHandle)
{
    const Request other(broker, "TAV_Thing", {{"Index", Value{}}});
    const CMPIData key = other.path()->ft->getKey(other.path(), "Index", &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(key.type, CMPI_string);
    EXPECT_EQ(key.state, CMPI_nullValue);
    ASSERT_NE(key.value.string, nullptr);
    EXPECT_EQ(key.value.string->hdl, nullptr);
}

TEST_F(Objects, MissingKeyIsNotFound)
{
    const CMPIData key = request.path()->ft->getKey(request.path(), "Other", &status);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(key.state, CMPI_notFound);
    EXPECT_EQ(key.type, CMPI_null);
    EXPECT_EQ(key.value.uint64, 0u);
}

TEST_F(Objects, EmptyNameIsAStringWithoutHandle)
{
    CMPIObjectPath *const path = newPath("", nullptr);
    CMPIString *const className = path->ft->getClassName(path, &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    ASSERT_NE(className, nullptr);
    EXPECT_EQ(className->hdl, nullptr);
    release(className);
    release(path);
}

TEST_F(Objects, NameOfAPathIsANewStringEachTime)
{
    CMPIString *const first = request.path()->ft->getClassName(request.path(), nullptr);
    CMPIString *const second = request.path()->ft->getClassName(request.path(), nullptr);
    EXPECT_EQ(textOf(first), "TAV_Thing");
    EXPECT_NE(first, second);
    release(first);
    release(second);
    CMPIString *const nameSpace = request.path()->ft->getNameSpace(request.path(), nullptr);
    EXPECT_EQ(textOf(nameSpace), "root/TAVKIT/AS");
    release(nameSpace);
}

TEST_F(Objects, PathToStringHasTheKeys)
{
    CMPIString *const text = request.path()->ft->toString(request.path(), nullptr);
    EXPECT_EQ(textOf(text), "root/TAVKIT/AS:TAV_Thing.Index=\"3\",Count=5");
    release(text);
}

TEST_F(Objects, KeysCanBeReadByPosition)
{
    CMPIString *name = nullptr;
    const CMPIData key = request.path()->ft->getKeyAt(request.path(), 1, &name, &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(textOf(name), "Count");
    EXPECT_EQ(key.value.uint64, 5u);
    request.path()->ft->getKeyAt(request.path(), 2, &name, &status);
    EXPECT_NE(status.rc, CMPI_RC_OK);
}

TEST_F(Objects, ArgumentKeepsItsType)
{
    request.setIn({{"Cycle", Value::number(0, CMPI_uint16)}, {"Mode", Value::text("1")}});
    const CMPIData cycle = request.in()->ft->getArg(request.in(), "cycle", &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(cycle.type, CMPI_uint16);
    EXPECT_EQ(cycle.value.uint64, 0u);
    EXPECT_EQ(textOf(request.in()->ft->getArg(request.in(), "Mode", nullptr).value.string), "1");
    const CMPIData missing = request.in()->ft->getArg(request.in(), "Other", &status);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(missing.state, CMPI_notFound);
}

TEST_F(Objects, ContextHasTheEntriesOfARequest)
{
    const CMPIContext *const context = request.context();
    const CMPIData flags = context->ft->getEntry(context, CMPIInvocationFlags, &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(flags.type, CMPI_uint32);
    EXPECT_EQ(textOf(context->ft->getEntry(context, CMPIPrincipal, nullptr).value.string), "root");
    const CMPIData wrongCase = context->ft->getEntry(context, "cmpiprincipal", &status);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_EQ(wrongCase.state, CMPI_nullValue);
    EXPECT_EQ(context->ft->clone(context, &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_NOT_SUPPORTED);
}

TEST_F(Objects, ArrayElementBelongsToTheArray)
{
    CMPIArray *const array = broker.handle()->eft->newArray(broker.handle(), 2, CMPI_chars, &status);
    EXPECT_EQ(array->ft->getSize(array, nullptr), 2u);
    EXPECT_EQ(array->ft->getSimpleType(array, nullptr), CMPI_string);
    EXPECT_EQ(array->ft->getElementAt(array, 0, nullptr).state, CMPI_nullValue);
    EXPECT_EQ(array->ft->setElementAt(array, 0, asValue("one"), CMPI_chars).rc, CMPI_RC_OK);
    const CMPIData first = array->ft->getElementAt(array, 0, nullptr);
    EXPECT_EQ(textOf(first.value.string), "one");
    EXPECT_EQ(array->ft->getElementAt(array, 0, nullptr).value.string, first.value.string);
    const CMPIUint16 number = 1;
    EXPECT_EQ(array->ft->setElementAt(array, 1, asValue(&number), CMPI_uint16).rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(array->ft->setElementAt(array, 2, asValue("x"), CMPI_chars).rc, CMPI_RC_ERR_FAILED);
    release(array);
}

TEST_F(Objects, ElementOutOfRangeIsABadValueWithSuccess)
{
    CMPIArray *const array = broker.handle()->eft->newArray(broker.handle(), 1, CMPI_uint16, nullptr);
    const CMPIData beyond = array->ft->getElementAt(array, 1, &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(beyond.state, CMPI_badValue);
    EXPECT_EQ(beyond.type, CMPI_uint16);
    release(array);
}

TEST_F(Objects, DatesAreReadAndWritten)
{
    const CMPIBroker *const handle = broker.handle();
    CMPIDateTime *const date = handle->eft->newDateTimeFromChars(handle, "20240229120000.000001+060", &status);
    ASSERT_NE(date, nullptr);
    EXPECT_EQ(date->ft->getBinaryFormat(date, nullptr), 1709204400000001u);
    EXPECT_EQ(date->ft->isInterval(date, nullptr), 0);
    CMPIString *const text = date->ft->getStringFormat(date, nullptr);
    EXPECT_EQ(textOf(text), "20240229110000.000001+000");
    CMPIDateTime *const span = handle->eft->newDateTimeFromBinary(handle, 90061000000, 1, nullptr);
    CMPIString *const spanText = span->ft->getStringFormat(span, nullptr);
    EXPECT_EQ(textOf(spanText), "00000001010101.000000:000");
    EXPECT_EQ(handle->eft->newDateTimeFromChars(handle, "yesterday", &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_PARAMETER);
    for (CMPIString *const string : {text, spanText}) {
        release(string);
    }
    release(date);
    release(span);
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(Objects, IsOfTypeKnowsEveryObject)
{
    const CMPIBroker *const handle = broker.handle();
    EXPECT_EQ(handle->eft->isOfType(handle, request.path(), "CMPIObjectPath", nullptr), 1);
    EXPECT_EQ(handle->eft->isOfType(handle, request.in(), "CMPIObjectPath", nullptr), 0);
}

TEST(Tables, VersionIs200ByDefault)
{
    const Broker usual;
    EXPECT_EQ(usual.handle()->eft->ftVersion, 200);
    EXPECT_EQ(usual.handle()->bft->brokerVersion, 200u);
    Options options;
    options.ftVersion = 1;
    options.brokerVersion = 0;
    const Broker real(options);
    EXPECT_EQ(real.handle()->eft->ftVersion, 1);
    EXPECT_EQ(real.handle()->bft->brokerVersion, 0u);
}

TEST(Tables, MissingSlotsOfTheRealBrokerAreNull)
{
    const Broker broker;
    const CMPIBroker *const handle = broker.handle();
    EXPECT_EQ(handle->mft, nullptr);
    EXPECT_EQ(handle->eft->newCMPIError, nullptr);
    EXPECT_EQ(handle->eft->openMessageFile, nullptr);
    EXPECT_EQ(handle->eft->logMessage(handle, 1, "id", "text", nullptr).rc, CMPI_RC_ERR_NOT_SUPPORTED);
}

} // namespace broker
