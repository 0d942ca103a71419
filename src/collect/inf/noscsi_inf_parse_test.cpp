// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/noscsi_inf.h"

#include "runtime/trace.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tavstrg;

namespace {

const std::string kLong64(64, 'v');
const std::string kLong65(65, 'v');

std::string ofLength(size_t length, const std::string &beginning)
{
    return beginning + std::string(length - beginning.size(), 'x');
}

struct LineCase {
    const char *name;
    std::string line;
    NoScsiLine kind;
    std::string vendor;
    std::string model;
    std::vector<std::string> texts; // of ParseVendorandModel, after its entry
};

void PrintTo(const LineCase &line, std::ostream *out)
{
    *out << line.name;
}

std::string invalid(const std::string &line)
{
    return "_OUT_ invalid line:[" + line + "]";
}

std::string tooLong(const std::string &line)
{
    return "_OUT_ line is  too long. line=[" + line + "]";
}

std::string repeats(const std::string &line)
{
    return "_OUT_ line invalid include Key: GRP_MGMTPORT or GRP_DIAGNOPORT.line:[" + line + "]";
}

const LineCase kLines[] = {
    {"BothKeys", "Vendor: ACME Model: DISK 1\n", NoScsiLine::entry, "ACME", "DISK 1", {"_OUT_ ret=[0]"}},
    {"KeysMayTouchTheirValues", "Vendor:ACMEModel:D", NoScsiLine::entry, "ACME", "D", {"_OUT_ ret=[0]"}},
    {"BlanksAround", " \t Vendor:\tA B \t Model: \t C D \r\n", NoScsiLine::entry, "A B", "C D", {"_OUT_ ret=[0]"}},
    {"TextBeforeTheKeyIsPassedOver", "x Vendor: A Model: B", NoScsiLine::entry, "A", "B", {"_OUT_ ret=[0]"}},
    {"VendorMayBeEmpty", "Vendor: Model: DISK", NoScsiLine::entry, "", "DISK", {"_OUT_ ret=[0]"}},
    {"ModelMayBeEmpty", "Vendor: ACME Model:\n", NoScsiLine::entry, "ACME", "", {"_OUT_ ret=[0]"}},
    {"ModelBeforeVendorRunsToTheEnd", "Model: M Vendor: V", NoScsiLine::entry, "V", "M Vendor: V", {"_OUT_ ret=[0]"}},
    {"ValuesOf64Characters",
     "Vendor:" + kLong64 + " Model:" + kLong64,
     NoScsiLine::entry,
     kLong64,
     kLong64,
     {"_OUT_ ret=[0]"}},
    {"LineOf255Characters",
     "Vendor:" + std::string(240, ' ') + "V Model:",
     NoScsiLine::entry,
     "V",
     "",
     {"_OUT_ ret=[0]"}},
    {"Empty", "", NoScsiLine::empty, "", "", {"_OUT_ null line"}},
    {"NewlineAlone", "\n", NoScsiLine::empty, "", "", {"_OUT_ null line"}},
    {"NewlineFirst", "\nVendor: A Model: B", NoScsiLine::empty, "", "", {"_OUT_ null line"}},
    {"LineOf256Characters",
     ofLength(256, "Vendor: A Model: B"),
     NoScsiLine::tooLong,
     "",
     "",
     {tooLong(ofLength(256, "Vendor: A Model: B"))}},
    {"ManagementHeader", "[Management Port]", NoScsiLine::header, "", "", {repeats("[Management Port]")}},
    {"HeaderInsideALine",
     "# Vendor: A Model: [Diagnostic Port]",
     NoScsiLine::header,
     "",
     "",
     {repeats("# Vendor: A Model: [Diagnostic Port]")}},
    {"Blanks", " \t \r\n", NoScsiLine::blank, "", "", {"_OUT_ blank line or tab line."}},
    {"Comment", "\t # Vendor: A Model: B", NoScsiLine::comment, "", "", {"_OUT_ This line is commentary."}},
    {"VendorWithoutModelKey", "Vendor: ACME\n", NoScsiLine::badModel, "ACME", "", {invalid("Vendor: ACME")}},
    {"ModelWithoutVendorKey", "Model: X", NoScsiLine::badVendor, "", "", {invalid("Model: X")}},
    {"KeysKnowTheirCase", "vendor: A model: B", NoScsiLine::badVendor, "", "", {invalid("vendor: A model: B")}},
    {"BlankBeforeTheColon", "Vendor : A Model: B", NoScsiLine::badVendor, "", "", {invalid("Vendor : A Model: B")}},
    {"BlankBeforeTheModelsColon",
     "Vendor: A Model : B",
     NoScsiLine::badModel,
     "A",
     "",
     {invalid("Vendor: A Model : B")}},
    {"VendorOf65Characters",
     "Vendor:" + kLong65 + " Model:",
     NoScsiLine::badVendor,
     kLong65,
     "",
     {invalid("Vendor:" + kLong65 + " Model:")}},
    {"ModelOf65Characters",
     "Vendor: A Model:" + kLong65,
     NoScsiLine::badModel,
     "A",
     kLong65,
     {invalid("Vendor: A Model:" + kLong65)}},
    {"BothEmpty",
     "Vendor: Model: \n",
     NoScsiLine::bothEmpty,
     "",
     "",
     {"_OUT_ vendor and model is null .line:[Vendor: Model:]"}},
};

class NoScsiLines : public testing::TestWithParam<LineCase> {};

TEST_P(NoScsiLines, AreParsedOrRefusedWithTheirReason)
{
    const LineCase &expected = GetParam();
    const NoScsiReading reading = parseNoScsiLine(expected.line);
    EXPECT_EQ(reading.kind, expected.kind);
    EXPECT_EQ(reading.vendor, expected.vendor);
    EXPECT_EQ(reading.model, expected.model);

    TraceRecorder trace;
    char vendor[kMaxNoScsiKey + 1] = {};
    char model[kMaxNoScsiKey + 1] = {};
    const bool usable = expected.kind == NoScsiLine::entry;
    EXPECT_EQ(ParseVendorandModel(expected.line.c_str(), vendor, 64, model, 64), usable ? 0 : -1);
    if (usable) {
        EXPECT_EQ(vendor, expected.vendor);
        EXPECT_EQ(model, expected.model);
    }
    std::vector<std::string> texts = trace.textsOf("ParseVendorandModel");
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.front(), "_IN_");
    texts.erase(texts.begin());
    EXPECT_EQ(texts, expected.texts);
    EXPECT_TRUE(trace.has(kDetail, expected.texts.back(), "ParseVendorandModel"));
    const bool keysFailed = expected.kind == NoScsiLine::badVendor || expected.kind == NoScsiLine::badModel;
    EXPECT_EQ(trace.has(kDetail, "_OUT_ FindString() failed.", "GetNoSCSIInfo"), keysFailed);
}

INSTANTIATE_TEST_SUITE_P(All, NoScsiLines, testing::ValuesIn(kLines),
                         [](const auto &test) { return std::string(test.param.name); });

struct FindCase {
    const char *text;
    const char *key;
    int size;
    const char *stop;
    const char *value; // null: not found
    const char *trace;
};

void PrintTo(const FindCase &find, std::ostream *out)
{
    *out << find.text << " / " << find.key;
}

const FindCase kFinds[] = {
    {"Key: value", "Key", 5, nullptr, "value", "_OUT_ value=[value]"},
    {"Key: value", "Key", 4, nullptr, nullptr, "_OUT_ v_len[4] < strlen(h_tmp)[5]"},
    {"Key:\t a b \r\n", "Key", 64, nullptr, "a b", "_OUT_ value=[a b]"},
    {"Key:\r a", "Key", 64, nullptr, "\r a", "_OUT_ value=[\r a]"}, // deliberate: a leading carriage return stays
    {"Key:", "Key", 0, nullptr, "", "_OUT_ value=[]"},
    {"Key:", "Key", -1, nullptr, "", "_OUT_ value=[]"},
    {"Key:a", "Key", -1, nullptr, nullptr, "_OUT_ v_len[-1] < strlen(h_tmp)[1]"},
    {"Key:a End b", "Key", 64, "End", "a", "_OUT_ value=[a]"},
    {"End Key:a", "Key", 64, "End", "a", "_OUT_ value=[a]"}, // a stop text before the colon does not stop
    {"Key:a", "Key", 64, "End", "a", "_OUT_ value=[a]"},
    {"Key:a End", "Key", 64, "", "a End", "_OUT_ value=[a End]"},
    {"MyKeyring Key:a", "Key", 64, nullptr, nullptr, "_OUT_ b_buf format err."}, // the first occurrence counts
    {"Key", "Key", 64, nullptr, nullptr, "_OUT_ b_buf format err."},
    {"key:a", "Key", 64, nullptr, nullptr, "_OUT_ cann't find [Key] in [key:a]."},
    {"", "Key", 64, nullptr, nullptr, "_OUT_ cann't find [Key] in []."},
};

class Finds : public testing::TestWithParam<FindCase> {};

TEST_P(Finds, GiveTheValueOrSayWhyNot)
{
    const FindCase &find = GetParam();
    TraceRecorder trace;
    char value[65] = "untouched";
    EXPECT_EQ(FindString(find.text, find.key, value, find.size, find.stop), find.value == nullptr ? 0 : 1);
    EXPECT_STREQ(value, find.value == nullptr ? "untouched" : find.value);
    EXPECT_TRUE(trace.has(kDetail, find.trace, "FindString"));
}

INSTANTIATE_TEST_SUITE_P(All, Finds, testing::ValuesIn(kFinds));

TEST(FindKeyValue, TrimsNoMoreThanTheTrimmersLength)
{
    std::string_view value;
    EXPECT_EQ(findKeyValue("K:" + std::string(256, ' ') + "v", {"K", 64}, value), KeyValue::found);
    EXPECT_EQ(value, "");
    EXPECT_EQ(findKeyValue("K:" + std::string(300, 'v'), {"K", 256}, value), KeyValue::found);
    EXPECT_EQ(value.size(), 256U);
}

// The functions that were entered, in order.
std::vector<std::string> entered(const TraceRecorder &trace)
{
    std::vector<std::string> functions;
    for (const TraceRecord &record : trace.records()) {
        if (record.text == "_IN_") {
            functions.push_back(record.function);
        }
    }
    return functions;
}

TEST(NoScsiTrim, LineVendorAndModelAreTrimmedTraced)
{
    const TraceRecorder trace;
    char vendor[kMaxNoScsiKey + 1] = {};
    char model[kMaxNoScsiKey + 1] = {};
    ASSERT_EQ(ParseVendorandModel(" Vendor: A Model: B \n", vendor, kMaxNoScsiKey, model, kMaxNoScsiKey), 0);
    EXPECT_EQ(entered(trace), (std::vector<std::string>{"ParseVendorandModel", "del_space", "GetNoSCSIInfo",
                                                        "FindString", "del_space", "FindString", "del_space"}));
}

TEST(NoScsiTrim, WhatIsRefusedBeforeTrimmingIsNotTrimmed)
{
    const TraceRecorder trace;
    char vendor[kMaxNoScsiKey + 1] = {};
    char model[kMaxNoScsiKey + 1] = {};
    for (const std::string &line : {std::string("\n"), std::string(256, 'x'), std::string("[Management Port]")}) {
        EXPECT_EQ(ParseVendorandModel(line.c_str(), vendor, kMaxNoScsiKey, model, kMaxNoScsiKey), -1);
    }
    EXPECT_EQ(FindString("no key", "Vendor", vendor, kMaxNoScsiKey, nullptr), 0);
    EXPECT_EQ(FindString("Vendor ", "Vendor", vendor, kMaxNoScsiKey, nullptr), 0);
    EXPECT_TRUE(trace.textsOf("del_space").empty());
    EXPECT_EQ(ParseVendorandModel(" # \n", vendor, kMaxNoScsiKey, model, kMaxNoScsiKey), -1);
    EXPECT_EQ(ParseVendorandModel(" \n", vendor, kMaxNoScsiKey, model, kMaxNoScsiKey), -1);
    EXPECT_EQ(trace.textsOf("del_space").size(), 4U);
}

TEST(NoScsiArguments, AreCheckedInTheirOrder)
{
    TraceRecorder trace;
    char vendor[65] = {};
    char model[65] = {};
    EXPECT_EQ(FindString(nullptr, nullptr, nullptr, 1, nullptr), 0);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ buf is NULL", "FindString"));
    EXPECT_EQ(FindString("", nullptr, nullptr, 1, nullptr), 0);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ name is NULL", "FindString"));
    EXPECT_EQ(FindString("", "", nullptr, 1, nullptr), 0);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ value is NULL", "FindString"));
    EXPECT_EQ(FindString(":x", "", vendor, 1, nullptr), 0);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ strlen(name)=[0]", "FindString"));

    EXPECT_EQ(ParseVendorandModel(nullptr, nullptr, 64, nullptr, 64), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ line is null", "ParseVendorandModel"));
    EXPECT_EQ(GetNoSCSIInfo(nullptr, nullptr, 64, nullptr, 64), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(line) Failure!!", "GetNoSCSIInfo"));
    for (const auto function : {ParseVendorandModel, GetNoSCSIInfo}) {
        const char *const name = function == GetNoSCSIInfo ? "GetNoSCSIInfo" : "ParseVendorandModel";
        EXPECT_EQ(function("Vendor: A Model: B", nullptr, 64, nullptr, 64), -1);
        EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(vendor) Failure!!", name));
        EXPECT_EQ(function("Vendor: A Model: B", vendor, 64, nullptr, 64), -1);
        EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(model) Failure!!", name));
        EXPECT_EQ(function("Vendor: A Model: B", vendor, 64, model, 64), 0);
        EXPECT_TRUE(trace.has(kDetail, "_OUT_ ret=[0]", name));
    }
}

TEST(ParseVendorandModelTest, RefusesWhatTheCallersFieldsDoNotHold)
{
    char vendor[3] = {};
    char model[3] = {};
    EXPECT_EQ(ParseVendorandModel("Vendor: AB Model: CD", vendor, 2, model, 2), 0);
    EXPECT_STREQ(vendor, "AB");
    EXPECT_STREQ(model, "CD");
    EXPECT_EQ(ParseVendorandModel("Vendor: ABC Model: CD", vendor, 2, model, 2), -1);
    EXPECT_EQ(ParseVendorandModel("Vendor: AB Model: CDE", vendor, 2, model, 2), -1);
}

TEST(TakeWholeLine, GivesEachLineWithItsNewline)
{
    std::string_view rest = "a\n\nb";
    std::vector<std::string> lines;
    for (std::string_view line; takeWholeLine(rest, line);) {
        lines.emplace_back(line);
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"a\n", "\n", "b"}));
}

} // namespace
