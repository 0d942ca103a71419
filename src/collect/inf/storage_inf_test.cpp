// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/storage_inf.h"

#include "collect/base/attribute.h"
#include "collect/inf/inf_section.h"
#include "sim/sim.h"
#include "support/short_memory.h"
#include "support/trace_recorder.h"
#include "support/trace_watch.h"

#include <cstdio>
#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <vector>

using namespace tavstrg;

namespace {

constexpr char kStorageInfFile[] = "/opt/qlm/tavkit_sa/data/storage.inf";
constexpr int32_t kUntouchedStatus = 77;

class StorageInfFile : public testing::Test {
protected:
    ~StorageInfFile() override
    {
        DestroyStorageInfoTable(&management);
        DestroyStorageInfoTable(&diagnostic);
    }

    int create() { return CreatStorageInfoTable(&management, &diagnostic, &status); }

    static std::vector<std::string> names(const StorageInfo *list)
    {
        std::vector<std::string> result;
        for (; list != nullptr; list = list->next) {
            result.emplace_back(list->name);
        }
        return result;
    }

    sim::Machine machine{R"({"sysfs": false})"};
    StorageInfo *management = nullptr;
    StorageInfo *diagnostic = nullptr;
    int32_t status = kUntouchedStatus;
};

using Names = std::vector<std::string>;

// A file of exactly this size, with one name at its very end.
std::string infOfSize(size_t size)
{
    std::string text;
    while (text.size() + 64 + 5 <= size) {
        text += std::string(63, '#') + "\n";
    }
    text += std::string(size - text.size() - 5, ' ') + "\nahci";
    return text;
}

} // namespace

using CreatStorageInfoTableTest = StorageInfFile;
using GetSectionFromInfFile = StorageInfFile;
using GetInfFromFileTest = StorageInfFile;

TEST_F(CreatStorageInfoTableTest, NamesAreInReverseOrder)
{
    machine.write(kStorageInfFile, "[Management Port]\nahci\nmegaraid_sas\nmpt3sas\n[Diagnostic Port]\nisci\n");
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(names(management), (Names{"mpt3sas", "megaraid_sas", "ahci"}));
    EXPECT_EQ(names(diagnostic), (Names{"isci"}));
}

TEST_F(CreatStorageInfoTableTest, WithoutHeadersAllNamesAreManaged)
{
    machine.write(kStorageInfFile, "ahci\n  mpt3sas # SAS\n");
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(names(management), (Names{"mpt3sas", "ahci"}));
    EXPECT_EQ(names(diagnostic), Names{});
}

TEST_F(CreatStorageInfoTableTest, OnlyDiagnosticPortIsStatus1)
{
    machine.write(kStorageInfFile, "[Diagnostic Port]\nisci\n");
    TraceRecorder trace;
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(management, nullptr);
    EXPECT_EQ(diagnostic, nullptr);
    EXPECT_TRUE(trace.has(0, "_OUT_ getSectionFromInfFile() Rtn=[1]", "CreatStorageInfoTable"));
}

TEST_F(CreatStorageInfoTableTest, AMissingFileIsStatus1)
{
    TraceRecorder trace;
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(trace.has(0, "strgFilepath=[/opt/qlm/tavkit_sa/data/storage.inf]", "CreatStorageInfoTable"));
    EXPECT_TRUE(trace.has(0, "_OUT_ file storage.inf not exist", "CreatStorageInfoTable"));
}

TEST_F(CreatStorageInfoTableTest, TheRootComesFromTheAgentsConfiguration)
{
    machine.write("/etc/tavkit/tavkit.conf", "TavDir /opt/qlm/tavkit_sa/other\n");
    machine.write("/opt/qlm/tavkit_sa/other/data/storage.inf", "sd\n");
    TraceRecorder trace;
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(names(management), (Names{"sd"}));
    EXPECT_TRUE(trace.has(0, "strgFilepath=[/opt/qlm/tavkit_sa/other/data/storage.inf]"));
}

TEST_F(CreatStorageInfoTableTest, AFileOf65536BytesIsRead)
{
    machine.write(kStorageInfFile, infOfSize(65536));
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(names(management), (Names{"ahci"}));
}

TEST_F(CreatStorageInfoTableTest, MoreThan65536BytesIsStatusMinus4)
{
    machine.write(kStorageInfFile, infOfSize(65537));
    TraceRecorder trace;
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(status, -4);
    EXPECT_EQ(management, nullptr);
    EXPECT_TRUE(trace.has(3, "_OUT_ storage.inf files size >64K..", "CreatStorageInfoTable"));
}

TEST_F(CreatStorageInfoTableTest, AFailedStatIsStatusMinus9)
{
    machine.remove("/opt/qlm/tavkit_sa/data");
    machine.write("/opt/qlm/tavkit_sa/data", "a file where the directory should be");
    TraceRecorder trace;
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(status, -9);
    EXPECT_TRUE(trace.has(3, "_OUT_ stat error", "CreatStorageInfoTable"));
}

TEST_F(CreatStorageInfoTableTest, WithoutMemoryIsStatusMinus9)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    machine.write(kStorageInfFile, "ahci\n");
    const TraceWatch watch(3, "_OUT_ MPbuf or DPbuf malloc error");
    for (const unsigned nth : {1U, 2U}) {
        const ShortMemory shortMemory(nth);
        const int result = create();
        EXPECT_EQ(result, 0);
        EXPECT_EQ(status, -9);
    }
    EXPECT_EQ(watch.seen(), 2);
}

TEST_F(CreatStorageInfoTableTest, ANameThatCannotBeAllocatedIsDropped)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    machine.write(kStorageInfFile, "one\ntwo\nthree\n");
    int result = 0;
    {
        const ShortMemory shortMemory(5); // after two buffers, the work buffer and the first name
        result = create();
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(names(management), (Names{"three", "one"}));
}

TEST_F(CreatStorageInfoTableTest, ANullStatusReturns0AtOnce)
{
    TraceRecorder trace;
    EXPECT_EQ(CreatStorageInfoTable(&management, &diagnostic, nullptr), 0);
    EXPECT_EQ(trace.textsOf("CreatStorageInfoTable"), (Names{"_IN_", "_OUT_ return 0"}));
}

TEST_F(CreatStorageInfoTableTest, BothListsNullIsStatusMinus3)
{
    TraceRecorder trace;
    EXPECT_EQ(CreatStorageInfoTable(nullptr, nullptr, &status), 0);
    EXPECT_EQ(status, -3);
    EXPECT_TRUE(trace.has(3, "_OUT_ both pSCSI_Tbl and pDiagnoTbl is NULL.", "CreatStorageInfoTable"));
}

TEST_F(CreatStorageInfoTableTest, EitherListMayBeNull)
{
    machine.write(kStorageInfFile, "[Management Port]\nahci\n[Diagnostic Port]\nisci\n");
    EXPECT_EQ(CreatStorageInfoTable(&management, nullptr, &status), 1);
    EXPECT_EQ(names(management), (Names{"ahci"}));
    EXPECT_EQ(CreatStorageInfoTable(nullptr, &diagnostic, &status), 1);
    EXPECT_EQ(names(diagnostic), (Names{"isci"}));
}

TEST_F(CreatStorageInfoTableTest, RefusedLinesAreSkippedAndTraced)
{
    machine.write(kStorageInfFile, "[Management Port]\n# comment\n\nahci\n[Management Port]\n" +
                                       std::string(1025, 'x') + "\n" + std::string(1024, 'x') + "\n" +
                                       std::string(65, 'n') + "\n" + std::string(64, 'n') + "\n[Diagnostic Port]\n");
    TraceRecorder trace;
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(names(management), (Names{std::string(64, 'n'), "ahci"}));
    Names own = trace.textsOf("CreatStorageInfoTable");
    own.erase(own.begin(), own.begin() + 2);
    for (std::string &text : own) {
        text = text.starts_with("memfree(0x") ? "memfree" : text;
    }
    EXPECT_EQ(own, (Names{"this line of storage.inf file is invalid", "this line of storage.inf file is invalid",
                          "MP or DP appears more than 1 times", "line is too long",
                          "this line of storage.inf file is invalid", "this line of storage.inf file is invalid",
                          "memfree", "memfree", "_OUT_ return 1"}));
    for (const TraceRecord &record : trace.records()) {
        EXPECT_EQ(record.level, 0) << record.text;
    }
}

TEST_F(CreatStorageInfoTableTest, ALineIsMeasuredWithoutItsEnd)
{
    machine.write(kStorageInfFile, std::string(1024, ' ') + "\r\n");
    TraceRecorder trace;
    EXPECT_EQ(create(), 1);
    EXPECT_FALSE(trace.has(0, "line is too long", "CreatStorageInfoTable"));
}

TEST_F(CreatStorageInfoTableTest, AnEmptyFileIsAnEmptyList)
{
    machine.write(kStorageInfFile, "");
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(management, nullptr);
}

TEST_F(CreatStorageInfoTableTest, DirectoryOrFifoFailsToOpen)
{
    machine.makeDirectory(kStorageInfFile);
    TraceRecorder trace;
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(trace.has(3, "_OUT_ getSectionFromInfFile() Rtn=[-1]", "CreatStorageInfoTable"));
    machine.remove(kStorageInfFile);
    ASSERT_EQ(::mkfifo(machine.where(kStorageInfFile).c_str(), 0600), 0);
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(CreatStorageInfoTableTest, BinaryBytesEndTheTextAtTheFirstNul)
{
    machine.write(kStorageInfFile, std::string("ahci\nmp\0t\nsd\n", 13));
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(names(management), (Names{"mp", "ahci"}));
}

// Whenever the file is exchanged for a longer one, one of the two is read, and never the beginning of the second one.
TEST_F(CreatStorageInfoTableTest, AFileThatIsReplacedMeanwhileIsReadWhole)
{
    sim::countCallsOf("");
    for (const sim::Call kind : {sim::Call::open, sim::Call::read, sim::Call::stat}) {
        for (unsigned nth = 1; nth <= 6; ++nth) {
            machine.write(kStorageInfFile, "ahci\n");
            sim::atNth(kind, nth, [this] {
                machine.write(std::string(kStorageInfFile) + ".new", "[Management Port]\nmpt3sas\n[Diagnostic Port]\n");
                std::rename(machine.where(std::string(kStorageInfFile) + ".new").c_str(),
                            machine.where(kStorageInfFile).c_str());
            });
            EXPECT_EQ(create(), 1) << nth;
            sim::atNth(kind, 0, {});
            const Names read = names(management);
            EXPECT_TRUE(read == Names{"ahci"} || read == Names{"mpt3sas"}) << testing::PrintToString(read);
            DestroyStorageInfoTable(&management);
            DestroyStorageInfoTable(&diagnostic);
        }
    }
}

TEST_F(CreatStorageInfoTableTest, ManyNamesAreAllKept)
{
    std::string text;
    for (int i = 0; i < 10000; ++i) {
        text += "d" + std::to_string(i) + "\n";
    }
    machine.write(kStorageInfFile, text);
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(names(management).size(), 10000U);
}

TEST_F(GetSectionFromInfFile, ReadsAtMostTheGivenSize)
{
    machine.write(kStorageInfFile, "ahci\nsd\nmore\n");
    char first[8] = {};
    char second[8] = {};
    EXPECT_EQ(getSectionFromInfFile(kStorageInfFile, 7, first, second, kGroupManagementPort, kGroupDiagnosticPort), 0);
    EXPECT_STREQ(first, "ahci\nsd");
    EXPECT_STREQ(second, "");
}

TEST_F(GetSectionFromInfFile, TakesAFileThatHasShrunkAsItIs)
{
    machine.write(kStorageInfFile, "ahci\n");
    std::string first(101, '\0');
    std::string second(101, '\0');
    EXPECT_EQ(getSectionFromInfFile(kStorageInfFile, 100, first.data(), second.data(), kGroupManagementPort,
                                    kGroupDiagnosticPort),
              0);
    EXPECT_STREQ(first.c_str(), "ahci\n");
}

TEST_F(GetSectionFromInfFile, ReportsItsFailures)
{
    char first[16] = {};
    char second[16] = {};
    const auto split = [&](const char *path, int size) {
        return getSectionFromInfFile(path, size, first, second, kGroupManagementPort, kGroupDiagnosticPort);
    };
    TraceRecorder trace;
    EXPECT_EQ(split(nullptr, 15), -1);
    EXPECT_EQ(getSectionFromInfFile(kStorageInfFile, 15, nullptr, second, kGroupManagementPort, kGroupDiagnosticPort),
              -1);
    EXPECT_EQ(getSectionFromInfFile(kStorageInfFile, 15, first, nullptr, kGroupManagementPort, kGroupDiagnosticPort),
              -1);
    EXPECT_TRUE(trace.has(3, "_OUT_ Mpbuf is NULL or Dpbuf is NULL.", "getSectionFromInfFile"));
    EXPECT_EQ(getSectionFromInfFile(kStorageInfFile, 15, first, second, nullptr, kGroupDiagnosticPort), -1);
    EXPECT_EQ(getSectionFromInfFile(kStorageInfFile, 15, first, second, kGroupManagementPort, nullptr), -1);
    EXPECT_EQ(split(kStorageInfFile, 15), 1);
    EXPECT_TRUE(
        trace.has(0, "_OUT_ file [/opt/qlm/tavkit_sa/data/storage.inf] is not exist.", "getSectionFromInfFile"));
    machine.write(kStorageInfFile, "ahci\n");
    EXPECT_EQ(split(kStorageInfFile, -1), -1);
    EXPECT_EQ(split(kStorageInfFile, INT32_MAX), -1);
    EXPECT_TRUE(trace.has(3, "_OUT_ malloc buf error.", "getSectionFromInfFile"));
    sim::countCallsOf("");
    sim::failNth(sim::Call::read, 1);
    EXPECT_EQ(split(kStorageInfFile, 15), -1);
    sim::failNth(sim::Call::read, 0);
    EXPECT_TRUE(trace.has(3, "_OUT_ fread [/opt/qlm/tavkit_sa/data/storage.inf] error.", "getSectionFromInfFile"));
    machine.remove(kStorageInfFile);
    machine.makeDirectory(kStorageInfFile);
    EXPECT_EQ(split(kStorageInfFile, 15), -1);
    EXPECT_TRUE(trace.has(3, "_OUT_ fopen [/opt/qlm/tavkit_sa/data/storage.inf] error.", "getSectionFromInfFile"));
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST(GetInfoFromLine, IgnoresBlanksFurtherWordsAndComment)
{
    TraceRecorder trace;
    char name[kMaxDriverName + 1] = {};
    int32_t status = kUntouchedStatus;
    EXPECT_EQ(GetInfoFromLine(" \tahci the chip set # comment\n", name, &status), 1);
    EXPECT_STREQ(name, "ahci");
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(trace.has(0, "_OUT_ result=[ahci]", "GetInfoFromLine"));
}

TEST(GetInfoFromLine, EveryRefusalHasItsStatusAndText)
{
    struct Case {
        std::string line;
        int32_t status;
        std::string text;
    };
    const std::string huge(257, 'h');
    const std::string longName(65, 'n');
    const Case cases[] = {
        {huge, -4, "_OUT_ return 0.line is too long [" + huge + "]"},
        {"x [Management Port]", -5, "_OUT_ GRP_MGMTPORT or GRP_DIAGNOPORT is invalid"},
        {"[Diagnostic Port]\n", -5, "_OUT_ GRP_MGMTPORT or GRP_DIAGNOPORT is invalid"},
        {"  # comment", -4, "_OUT_ p=# failure"},
        {" \t\r\n", -4, "_OUT_ line is null failure"},
        {longName + " x", -4, "_OUT_ driver name has more than 64 characters line:[" + longName + " x]"},
    };
    for (const Case &refused : cases) {
        TraceRecorder trace;
        char name[kMaxDriverName + 1] = "before";
        int32_t status = kUntouchedStatus;
        EXPECT_EQ(GetInfoFromLine(refused.line.c_str(), name, &status), 0) << refused.line;
        EXPECT_EQ(status, refused.status) << refused.line;
        EXPECT_TRUE(trace.has(0, refused.text, "GetInfoFromLine")) << refused.line;
        EXPECT_STREQ(name, "before") << refused.line;
    }
}

TEST(GetInfoFromLine, NullArgumentsAreStatusMinus3)
{
    char name[kMaxDriverName + 1] = {};
    int32_t status = kUntouchedStatus;
    EXPECT_EQ(GetInfoFromLine(nullptr, name, &status), 0);
    EXPECT_EQ(status, -3);
    status = kUntouchedStatus;
    EXPECT_EQ(GetInfoFromLine("ahci", nullptr, &status), 0);
    EXPECT_EQ(status, -3);
    EXPECT_EQ(GetInfoFromLine("ahci", name, nullptr), 0);
}

TEST(GetInfoFromLine, ANameOf64CharactersFillsItsField)
{
    char name[kMaxDriverName + 1] = {};
    int32_t status = kUntouchedStatus;
    ASSERT_EQ(GetInfoFromLine(std::string(64, 'n').c_str(), name, &status), 1);
    EXPECT_STREQ(name, std::string(64, 'n').c_str());
}

TEST(DestroyStorageInfoTable, FreesEveryNodeOnceAndReportsANullList)
{
    StorageInfo *list = nullptr;
    AddStorageInfoTable(&list, "a");
    AddStorageInfoTable(&list, "b");
    TraceRecorder trace;
    EXPECT_EQ(DestroyStorageInfoTable(&list), 1);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(trace.textsOf("DestroyStorageInfoTable").size(), 4U); // entry, two blocks, exit
    trace.clear();
    EXPECT_EQ(DestroyStorageInfoTable(&list), 0);
    EXPECT_EQ(DestroyStorageInfoTable(nullptr), 0);
    EXPECT_TRUE(trace.has(0, "_OUT_ pManageTbl is NULL.", "DestroyStorageInfoTable"));
}

TEST(AddStorageInfoTable, NullArgumentsChangeNothing)
{
    StorageInfo *list = nullptr;
    AddStorageInfoTable(nullptr, "a");
    AddStorageInfoTable(&list, nullptr);
    EXPECT_EQ(list, nullptr);
}

TEST(AddStorageInfoTable, TracesANodeThatCannotBeAllocated)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    StorageInfo *list = nullptr;
    const TraceWatch watch(3, "_OUT_ malloc for pMANAGE_TBL error.");
    {
        const ShortMemory shortMemory(1);
        AddStorageInfoTable(&list, "ahci");
    }
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(watch.seen(), 1);
}

TEST_F(GetInfFromFileTest, GivesTheFirstLineTrimmed)
{
    machine.write("/sys/attribute", "  QEMU HARDDISK   \nmore\n");
    char text[kAttributeSize] = {};
    TraceRecorder trace;
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", text), 0);
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(text, "QEMU HARDDISK");
    EXPECT_EQ(trace.textsOf("GetInfFromFile"), (Names{"_IN_", "_OUT_ (0) result=[QEMU HARDDISK]"}));
}

TEST_F(GetInfFromFileTest, AnAbsentFileIsStatus1)
{
    char text[kAttributeSize] = {};
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", text), -1);
    EXPECT_EQ(status, 1);
}

TEST_F(GetInfFromFileTest, ADirectoryOrAFifoIsNotOpened)
{
    machine.makeDirectory("/sys/attribute");
    char text[kAttributeSize] = {};
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", text), -1);
    EXPECT_EQ(status, -1);
    ASSERT_EQ(::mkfifo(machine.where("/sys/fifo").c_str(), 0600), 0);
    status = kUntouchedStatus;
    EXPECT_EQ(GetInfFromFile(&status, "/sys/fifo", text), -1);
    EXPECT_EQ(status, -1);
}

TEST_F(GetInfFromFileTest, AReadErrorIsStatusMinus2)
{
    machine.write("/sys/attribute", "value\n");
    char text[kAttributeSize] = {};
    sim::countCallsOf("");
    sim::failNth(sim::Call::read, 1);
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", text), -1);
    sim::failNth(sim::Call::read, 0);
    EXPECT_EQ(status, -2);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(GetInfFromFileTest, AHugeLineIsCut)
{
    machine.write("/sys/attribute", std::string(1 << 20, 'v'));
    char text[kAttributeSize] = {};
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", text), 0);
    EXPECT_STREQ(text, std::string(63, 'v').c_str());
}

TEST_F(GetInfFromFileTest, TheNewlineMustBeAmongTheFirst1023Characters)
{
    char text[kAttributeSize] = {};
    machine.write("/sys/attribute", "v" + std::string(1021, ' ') + "\n");
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", text), 0);
    EXPECT_STREQ(text, "v");
    machine.write("/sys/attribute", "v" + std::string(1022, ' ') + "\n");
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", text), 0);
    EXPECT_STREQ(text, ("v" + std::string(62, ' ')).c_str());
}

TEST_F(GetInfFromFileTest, WritesNoTerminator)
{
    machine.write("/sys/attribute", "ab\n");
    char text[kAttributeSize];
    std::fill(std::begin(text), std::end(text), 'z');
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", text), 0);
    EXPECT_EQ(std::string(text, 3), "abz");
}

TEST_F(GetInfFromFileTest, NullArgumentsAreStatusMinus3)
{
    char text[kAttributeSize] = {};
    EXPECT_EQ(GetInfFromFile(nullptr, "/sys/attribute", text), -1);
    EXPECT_EQ(GetInfFromFile(&status, nullptr, text), -1);
    EXPECT_EQ(status, -3);
    status = kUntouchedStatus;
    EXPECT_EQ(GetInfFromFile(&status, "/sys/attribute", nullptr), -1);
    EXPECT_EQ(status, -3);
}
