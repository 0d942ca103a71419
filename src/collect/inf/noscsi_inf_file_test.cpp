// SPDX-License-Identifier: Apache-2.0
// The file of unmanaged devices, and what it leaves out of the inventory.

#include "collect/inf/data_path.h"
#include "collect/inf/inf_section.h"
#include "devcmd/smart/smart_watch.h"
#include "support/short_memory.h"
#include "support/snapshot_fixture.h"
#include "support/trace_watch.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <vector>

using namespace tavstrg;

namespace {

constexpr char kInf[] = "/opt/qlm/tavkit_sa/data/noscsi.inf";
constexpr int32_t kUntouched = 77;

using Entries = std::vector<std::string>; // "vendor/model"

class NoScsiFile : public testing::Test {
protected:
    ~NoScsiFile() override
    {
        DestroyNoManageSCSIInfoTable(&management);
        DestroyNoManageSCSIInfoTable(&diagnostic);
    }

    int create() { return CreateNoSCSIInfoTable(&management, &diagnostic, &status); }

    static Entries entries(const NoSCSIInfo *list)
    {
        Entries result;
        for (; list != nullptr; list = list->next) {
            result.push_back(std::string(list->vendor) + "/" + list->model);
        }
        return result;
    }

    // A refused file: its status and its last trace.
    void expectRefused(int32_t wanted, int level, const std::string &text)
    {
        TraceRecorder trace;
        EXPECT_EQ(create(), 0);
        EXPECT_EQ(status, wanted);
        EXPECT_EQ(management, nullptr);
        EXPECT_EQ(diagnostic, nullptr);
        EXPECT_TRUE(trace.has(level, text, "CreateNoSCSIInfoTable"));
        EXPECT_EQ(trace.textsOf("CreateNoSCSIInfoTable").back(), text);
        EXPECT_EQ(machine.openDescriptors(), 0);
    }

    sim::Machine machine{R"({"sysfs": false})"};
    NoSCSIInfo *management = nullptr;
    NoSCSIInfo *diagnostic = nullptr;
    int32_t status = kUntouched;
};

const std::string kUnusable =
    "_OUT_ getSectionFromInfFile() file not exist or invalid file content or file content nothing.";

// A file of exactly this size, with one entry at its end.
std::string fileOfSize(size_t size)
{
    const std::string entry = "\nVendor: LAST Model:";
    std::string text;
    while (text.size() + 64 + entry.size() <= size) {
        text += std::string(63, '#') + "\n";
    }
    text += std::string(size - text.size() - entry.size(), '#') + entry;
    return text;
}

TEST_F(NoScsiFile, TheListsHoldTheirSectionsInReverseOrder)
{
    machine.write(kInf, "[Management Port]\nVendor: A Model: 1\n# no\nVendor: B Model:\n\nVendor: Model: 3\n"
                        "[Diagnostic Port]\nVendor: D Model: 4\n");
    TraceRecorder trace;
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(entries(management), (Entries{"/3", "B/", "A/1"}));
    EXPECT_EQ(entries(diagnostic), (Entries{"D/4"}));
    EXPECT_TRUE(trace.has(kDetail, "scsipath=/opt/qlm/tavkit_sa/data/noscsi.inf", "CreateNoSCSIInfoTable"));
    // Every line is traced unchanged, with the message of its section.
    for (const char *const text :
         {"linebuf=[Vendor: A Model: 1\n],vendor=[A],model=[1]", "linebuf=[# no\n],vendor=[],model=[]",
          "linebuf=[\n],vendor=[],model=[]", "linebuf=[Vendor: Model: 3\n],vendor=[],model=[3]",
          "=linebuf=Vendor: D Model: 4\n .vendor=D,model=4"}) {
        EXPECT_TRUE(trace.has(kDetail, text, "CreateNoSCSIInfoTable")) << text;
    }
    EXPECT_EQ(trace.textsOf("CreateNoSCSIInfoTable").back(), "_OUT_ return 1");
}

TEST_F(NoScsiFile, OnlyTheListsThatAreAskedForAreBuilt)
{
    machine.write(kInf, "[Management Port]\nVendor: A Model: 1\n[Diagnostic Port]\nVendor: D Model: 4\n");
    EXPECT_EQ(CreateNoSCSIInfoTable(&management, nullptr, &status), 1);
    EXPECT_EQ(CreateNoSCSIInfoTable(nullptr, &diagnostic, &status), 1);
    EXPECT_EQ(entries(management), (Entries{"A/1"}));
    EXPECT_EQ(entries(diagnostic), (Entries{"D/4"}));
}

TEST_F(NoScsiFile, WithoutHeadersTheWholeFileIsTheFirstSection)
{
    machine.write(kInf, "Vendor: A Model: 1\nVendor: B Model: 2");
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(entries(management), (Entries{"B/2", "A/1"}));
    EXPECT_EQ(diagnostic, nullptr);
}

TEST_F(NoScsiFile, BadLinesAreSkippedOneByOne)
{
    const std::string entry = "Vendor: OK Model: OK";
    const std::string of256 = entry + std::string(256 - entry.size() - 1, ' ') + "\n";
    machine.write(kInf, "Vendor: A\n" + of256 + std::string(256, 'x') + "\n" + "Vendor: B Model: 2\n");
    TraceRecorder trace;
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(entries(management), (Entries{"B/2"}));
    const std::vector<std::string> texts = trace.textsOf("CreateNoSCSIInfoTable");
    // A line of 257 characters with its newline is skipped; one of 256 is parsed and refused.
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "line is  too long."), 1);
    EXPECT_TRUE(trace.has(kDetail, "line is  too long.", "CreateNoSCSIInfoTable"));
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ line is  too long. line=[" + of256 + "]", "ParseVendorandModel"));
    EXPECT_TRUE(trace.has(kDetail, "linebuf=[" + of256 + "],vendor=[],model=[]"));
}

TEST_F(NoScsiFile, AMissingFileIsStatus1)
{
    expectRefused(1, kDetail, "_OUT_ file noscsi.inf not exist");
}

TEST_F(NoScsiFile, AFileOf65536BytesIsReadAndOneOf65537IsRefused)
{
    machine.write(kInf, fileOfSize(65536));
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(entries(management), (Entries{"LAST/"}));
    DestroyNoManageSCSIInfoTable(&management);
    machine.write(kInf, fileOfSize(65537));
    expectRefused(1, kFailure, "_OUT_ noscsi.inf files size >64K.");
}

TEST_F(NoScsiFile, AFileWithOnlyOneHeaderIsStatus1)
{
    for (const char *const text : {"[Management Port]\nVendor: A Model: 1\n", "[Diagnostic Port]\nVendor: A Model: 1\n",
                                   "[Diagnostic Port]\n[Management Port]\n"}) {
        machine.write(kInf, text);
        expectRefused(1, kDetail, kUnusable);
    }
}

TEST_F(NoScsiFile, AFailedStatIsStatusMinus9)
{
    machine.remove("/opt/qlm/tavkit_sa/data");
    machine.write("/opt/qlm/tavkit_sa/data", "a file where the directory should be");
    expectRefused(-9, kFailure, "_OUT_ stat error.");
}

TEST_F(NoScsiFile, ADirectoryOrAFifoInItsPlaceIsStatusMinus9)
{
    machine.makeDirectory(kInf);
    expectRefused(-9, kFailure, "_OUT_ getSectionFromInfFile() failed");
    machine.remove(kInf);
    ASSERT_EQ(::mkfifo(machine.where(kInf).c_str(), 0600), 0);
    expectRefused(-9, kFailure, "_OUT_ getSectionFromInfFile() failed");
}

// Whenever the file is exchanged for a longer one, one of the two is read, and never the beginning of the second one.
TEST_F(NoScsiFile, OneThatIsReplacedMeanwhileIsReadWhole)
{
    sim::countCallsOf("");
    for (const sim::Call kind : {sim::Call::open, sim::Call::read, sim::Call::stat}) {
        for (unsigned nth = 1; nth <= 6; ++nth) {
            machine.write(kInf, "Vendor:A Model:B\n");
            sim::atNth(kind, nth, [this] {
                machine.write(std::string(kInf) + ".new", "Vendor: LONGER Model: THAN\n");
                std::rename(machine.where(std::string(kInf) + ".new").c_str(), machine.where(kInf).c_str());
            });
            EXPECT_EQ(create(), 1) << nth;
            sim::atNth(kind, 0, {});
            const Entries read = entries(management);
            EXPECT_TRUE(read == Entries{"A/B"} || read == Entries{"LONGER/THAN"}) << testing::PrintToString(read);
            DestroyNoManageSCSIInfoTable(&management);
            DestroyNoManageSCSIInfoTable(&diagnostic);
        }
    }
}

TEST_F(NoScsiFile, AReadErrorIsStatusMinus9)
{
    machine.write(kInf, "Vendor: A Model: 1\n");
    sim::countCallsOf("");
    sim::failNth(sim::Call::read, 1);
    expectRefused(-9, kFailure, "_OUT_ getSectionFromInfFile() failed");
    sim::failNth(sim::Call::read, 0);
}

TEST_F(NoScsiFile, TheRootComesFromTheAgentsConfiguration)
{
    machine.write("/etc/tavkit/tavkit.conf", "TavDir /opt/qlm/tavkit_sa/other\n");
    machine.write("/opt/qlm/tavkit_sa/other/data/noscsi.inf", "Vendor: A Model: 1\n");
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(entries(management), (Entries{"A/1"}));
}

TEST_F(NoScsiFile, EveryAllocationThatFailsHasItsText)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    machine.write(kInf, "Vendor: A Model: 1\nVendor: B Model: 2\n");
    // The buffers, the splitter's own buffer, the two nodes.
    const struct {
        const char *text;
        int result;
    } cases[] = {
        {"_OUT_ malloc Mpbuf failed.", 0},           {"_OUT_ malloc Dpbuf failed.", 0},
        {"_OUT_ getSectionFromInfFile() failed", 0}, {"_OUT_ malloc for PNOSCSI_INFO error.", 1},
        {"_OUT_ malloc for PNOSCSI_INFO error.", 1},
    };
    for (unsigned nth = 1; nth <= std::size(cases); ++nth) {
        int result = -1;
        int seen = 0;
        {
            const TraceWatch watch(kFailure, cases[nth - 1].text);
            const ShortMemory memory(nth);
            result = create();
            seen = watch.seen();
        }
        EXPECT_EQ(seen, 1) << nth;
        EXPECT_EQ(result, cases[nth - 1].result) << nth;
        EXPECT_EQ(status, result == 1 ? 0 : -9) << nth;
        // A node that cannot be allocated is left out; the others stay.
        EXPECT_EQ(entries(management), nth < 4 ? Entries{} : nth == 4 ? Entries{"B/2"} : Entries{"A/1"});
        DestroyNoManageSCSIInfoTable(&management);
    }
}

TEST_F(NoScsiFile, ANodeNeverHasBothTextsEmpty)
{
    TraceRecorder trace;
    AddNoSCSITable(&management, "", "");
    EXPECT_EQ(management, nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ strlen = 0", "AddNoSCSITable"));
    AddNoSCSITable(nullptr, "A", "B");
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(list) Failure!!", "AddNoSCSITable"));
    AddNoSCSITable(&management, nullptr, "B");
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(vendor) Failure!!", "AddNoSCSITable"));
    AddNoSCSITable(&management, "A", nullptr);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(model) Failure!!", "AddNoSCSITable"));
    EXPECT_EQ(management, nullptr);
}

// Three disks: which of them the inventory has with a given file.
struct InventoryCase {
    const char *name;
    std::string file;
    Entries serials;
};

void PrintTo(const InventoryCase &inventory, std::ostream *out)
{
    *out << inventory.name;
}

const Entries kAll = {"S1", "S2", "S3"};

const InventoryCase kInventories[] = {
    {"ALineWithoutModelKeyExcludesNothing", "Vendor: ATA\n", kAll},
    {"AModelExcludesWhatBeginsWithItWhateverItsVendor", "Vendor: Model: NORD\n", {"S3"}},
    {"AVendorExcludesAllItsDisks", "Vendor: ATA Model:\n", {}},
    {"AVendorIsCaseEqual", "Vendor: ata Model:\n", kAll},
    {"BothMustMatch", "Vendor: ATA Model: NORDWIND 2\n", {"S1", "S3"}},
    {"DiagnosticLinesExcludeNothing", "[Management Port]\n[Diagnostic Port]\nVendor: ATA Model:\n", kAll},
    {"AFileOf65537BytesExcludesNothing", "Vendor: ATA Model:\n" + std::string(65537 - 19, '#'), kAll},
    {"AFileWithOneHeaderExcludesNothing", "[Management Port]\nVendor: ATA Model:\n", kAll},
    {"TextBeforeTheHeadersExcludesNothing",
     "Vendor: ATA Model:\n[Management Port]\nVendor: Model: SUED\n[Diagnostic Port]\n",
     {"S1", "S2"}},
};

class UnmanagedDisks : public testing::TestWithParam<InventoryCase> {
protected:
    UnmanagedDisks() { g_SmartMode = 1; }
    ~UnmanagedDisks() override { g_SmartMode = 0; }
};

TEST_P(UnmanagedDisks, AreLeftOutOfTheInventoryAndNotWatched)
{
    sim::Machine machine(R"({"hosts": [{"driver": "ahci", "devices": [
        {"id": 0, "ata": true, "model": "NORDWIND 1", "serial": "S1", "identifyWords": {"20": 0}},
        {"id": 1, "ata": true, "model": "NORDWIND 2", "serial": "S2", "identifyWords": {"20": 0}},
        {"id": 2, "ata": true, "model": "SUEDWIND 3", "serial": "S3", "identifyWords": {"20": 0}}]}],
        "files": {"storage.inf": "ahci\n"}})");
    machine.write(kInf, GetParam().file);
    const std::string bounds = ",231,100,80,60,40,20,0\n";
    const EnduranceTable table(machine, "NORDWIND 1" + bounds + "NORDWIND 2" + bounds + "SUEDWIND 3" + bounds);
    const Collection inventory;
    ASSERT_EQ(DllMain(), 0);
    Entries serials;
    std::set<std::string> nodes;
    ASSERT_EQ(collection().hd_dev_cnt, collection().scsi_dev_cnt);
    for (int i = 0; i < collection().scsi_dev_cnt; ++i) {
        serials.emplace_back(collection().pSCSIDevTbl[i].SerialNumber);
        nodes.insert(collection().pHDDevTbl[i].DevPath);
        EXPECT_EQ(collection().pSCSIDevTbl[i].Index, i + 1);
    }
    EXPECT_EQ(serials, GetParam().serials);
    EXPECT_EQ(static_cast<size_t>(collection().hd_dev_cnt), GetParam().serials.size());
    EXPECT_EQ(collection().DevNumMib.TotalLifeSpan, GetParam().serials.size());
    EXPECT_EQ(askedForSmart(machine), nodes);
}

INSTANTIATE_TEST_SUITE_P(All, UnmanagedDisks, testing::ValuesIn(kInventories),
                         [](const auto &test) { return std::string(test.param.name); });

TEST(UnmanagedCheck, AFileThatCannotBeReadFailsTheCollection)
{
    sim::Machine machine(R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true}]}],
                             "files": {"storage.inf": "ahci\n"}})");
    machine.makeDirectory(kInf);
    TraceRecorder trace;
    const Collection inventory;
    EXPECT_EQ(DllMain(), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ CreateNoSCSIInfoTable() failed", "GetSCSIDeviceTotalNumber"));
}

} // namespace
