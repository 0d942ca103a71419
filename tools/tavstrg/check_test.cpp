// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/check.h"

#include "support/tool_process.h"
#include "tavstrg/failure.h"

#include "endurance/endurance_parse.h"
#include "runtime/options.h"
#include "sim/sim.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace tavstrg;

namespace {

using namespace tool;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing_support::Finished;
using testing_support::runProgram;

namespace fs = std::filesystem;

using Reported = std::vector<std::string>; // "LINE verdict: text"

Reported reported(const std::vector<CheckedLine> &lines)
{
    constexpr const char *kWords[] = {"accepted", "skipped", "note"};
    Reported result;
    for (const CheckedLine &line : lines) {
        result.push_back(std::to_string(line.line) + " " + kWords[static_cast<int>(line.verdict)] + ": " + line.text);
    }
    return result;
}

using Check = std::vector<CheckedLine> (*)(std::string_view);

struct CheckCase {
    const char *name;
    Check check;
    std::string text;
    Reported expected;
};

void PrintTo(const CheckCase &one, std::ostream *out)
{
    *out << one.name;
}

std::string entry(const std::string &model)
{
    return model + ",231,100,80,60,40,20,0\n";
}

const std::string kSection = "[Endurance Remaining]\n";
const std::string kLevels = ": attribute 231, level 5 from 80 to 100, level 4 from 60 to 79, level 3 from 40 to 59, "
                            "level 2 from 20 to 39, level 1 from 0 to 19";

std::string exactly(const std::string &model)
{
    return "accepted: drives whose model is exactly \"" + model + "\"" + kLevels;
}

constexpr const char *kBothOrNeither = "0 skipped: needs both [Management Port] and, after it, [Diagnostic Port], or "
                                       "neither; it is ignored as if it were absent";

const CheckCase kCases[] = {
    {"StorageAcceptsDrivers",
     checkStorage,
     "# drivers\n\n ahci  # AHCI\nmpt3sas more words\n",
     {"3 accepted: driver \"ahci\"", "4 accepted: driver \"mpt3sas\""}},
    {"StorageSections",
     checkStorage,
     "old\n# fine\n\n[Management Port]\nahci\n[Diagnostic Port]\nisci\n",
     {"1 skipped: before [Management Port]", "5 accepted: driver \"ahci\"",
      "7 accepted: driver \"isci\" ([Diagnostic Port]: not managed)"}},
    {"StorageReasons",
     checkStorage,
     "[Management Port]\n[Management Port]\n" + std::string(65, 'n') + "\n" + std::string(257, 'y') + "\n" +
         std::string(64, 'n') + "\n[Diagnostic Port]\nx [Diagnostic Port]",
     {"2 skipped: repeats a section header", "3 skipped: the driver name has more than 64 characters",
      "4 skipped: longer than 256 characters", "5 accepted: driver \"" + std::string(64, 'n') + "\"",
      "7 skipped: repeats a section header"}},
    {"StorageNeverManagedDrivers",
     checkStorage,
     "usb-storage\nscsi_debug\nahci\n",
     {"1 skipped: driver \"usb-storage\" is never managed, like all whose names begin with scsi, iscsi, sg, usb, ovfx2 "
      "or hub",
      "2 skipped: driver \"scsi_debug\" is never managed, like all whose names begin with scsi, iscsi, sg, usb, ovfx2 "
      "or "
      "hub",
      "3 accepted: driver \"ahci\""}},
    {"StorageDriverInBothSections",
     checkStorage,
     "[Management Port]\nahci\n[Diagnostic Port]\nahci\nisci\n",
     {"2 accepted: driver \"ahci\"", "4 accepted: driver \"ahci\" ([Diagnostic Port]: no effect)",
      "4 note: managed all the same: it is also under [Management Port], and [Diagnostic Port] has no effect",
      "5 accepted: driver \"isci\" ([Diagnostic Port]: not managed)"}},
    {"StorageNeedsBothHeaders", checkStorage, "[Management Port]\nahci\n", {kBothOrNeither}},
    {"StorageEndsAtNul",
     checkStorage,
     std::string("ahci\nmpt\0sas\nisci\n", 18),
     {"1 accepted: driver \"ahci\"", "2 accepted: driver \"mpt\"", "2 skipped: a NUL byte: nothing behind it is read"}},
    {"StorageTextIsMadePrintable", checkStorage, "a\x1b[31m\n", {"1 accepted: driver \"a\\x1b[31m\""}},
    {"EmptyFileGivesNothing", checkStorage, "", {}},
    {"StorageCommentsAreNoProblem", checkStorage, " # see [Management Port]\n#" + std::string(300, 'x'), {}},
    {"NoScsiCommentsAreNoProblem", checkNoScsi, " # see [Management Port]\n#" + std::string(300, 'x'), {}},
    {"NoScsiAcceptsExclusions",
     checkNoScsi,
     "Vendor: ACME Model: DISK\n\n# Vendor: X Model:\nVendor: Model: D1\nVendor: ACME Model:\n",
     {"1 accepted: excludes disks: vendor exactly \"ACME\", model beginning with \"DISK\"",
      "4 accepted: excludes disks: any vendor, model beginning with \"D1\"",
      "5 accepted: excludes disks: vendor exactly \"ACME\", any model"}},
    {"NoScsiSections",
     checkNoScsi,
     "Vendor: A Model:\n[Management Port]\n[Diagnostic Port]\nVendor: B Model:\n",
     {"1 skipped: before [Management Port]",
      "4 accepted: excludes disks: vendor exactly \"B\", any model ([Diagnostic Port]: excludes nothing)"}},
    {"NoScsiReasons",
     checkNoScsi,
     "Vendor: ACME\nModel: X\nVendor : A Model: B\nVendor: A Model : B\nVendor:" + std::string(65, 'v') +
         " Model:\nVendor: A Model: " + std::string(65, 'm') + "\nVendor: Model:\n" + std::string(255, 'x') +
         "\nx [Management Port]\n \t\n",
     {"1 skipped: has no key \"Model\"", "2 skipped: has no key \"Vendor\"",
      "3 skipped: has no colon directly behind \"Vendor\"", "4 skipped: has no colon directly behind \"Model\"",
      "5 skipped: the value of \"Vendor\" has more than 64 characters",
      "6 skipped: the value of \"Model\" has more than 64 characters", "7 skipped: neither vendor nor model",
      "8 skipped: longer than 255 characters, its end included", "9 skipped: repeats a section header"}},
    {"NoScsiNeedsBothHeaders", checkNoScsi, "[Diagnostic Port]\n[Management Port]\n", {kBothOrNeither}},
    {"EnduranceAcceptsEntries",
     checkEndurance,
     kSection + entry("DRIVE") + "\r\n" + entry("MODELNAME0123456 and more"),
     {"2 " + exactly("DRIVE"), "4 accepted: drives whose model begins with \"MODELNAME0123456\"" + kLevels}},
    {"EnduranceReasons",
     checkEndurance,
     kSection + "# a comment\nM,231,100\nM,231,100,80,60,40,20,0,0,0\n",
     {"3 skipped: has 3 fields instead of 8", "4 skipped: has more than 8 fields instead of 8"}},
    {"EnduranceSections",
     checkEndurance,
     "one\n\n" + kSection + entry("D") + "[Other]\nx\n\n",
     {"4 " + exactly("D"), "0 note: 3 lines outside [Endurance Remaining] are not read"}},
    {"EnduranceOneLineOutside",
     checkEndurance,
     "one\n" + kSection,
     {"0 note: 1 line outside [Endurance Remaining] is not read"}},
    {"EnduranceWithoutItsSection",
     checkEndurance,
     entry("D"),
     {"0 skipped: no line begins with \"[Endurance Remaining]\": nothing is read"}},
    {"EnduranceOddEntries",
     checkEndurance,
     kSection + "#D,0x10,70000,10,20,x,5, 0\nD ,231,100,80,60,40,20,0\n",
     {"2 accepted: drives whose model is exactly \"#D\": attribute 0, level 5 from 10 to 4464, level 4 from 20 to 9, "
      "level 3 from 0 to 19, level 2 from 5 to -1, level 1 from 0 to 4",
      "2 note: the table has no comments: \"#\" is part of the model",
      "2 note: attribute is \"0x10\", no attribute id from 1 to 255", "2 note: max is \"70000\", no number of 16 bits",
      "2 note: level 3 is \"x\", no number of 16 bits", "2 note: level 4 holds no figure: the bounds do not fall",
      "2 note: level 2 holds no figure: the bounds do not fall", "3 " + exactly("D"),
      "3 note: blanks and unprintable bytes are part of the model"}},
    {"EnduranceTheFirstEntryOfAModelCounts",
     checkEndurance,
     kSection + entry("D") + entry("E") + entry("D"),
     {"2 " + exactly("D"), "3 " + exactly("E"), "4 " + exactly("D"),
      "4 note: never used: an earlier entry is for this model"}},
    {"EnduranceLongLinesAreSeveral",
     checkEndurance,
     kSection + std::string(127, 'x') + entry("REST"),
     {"2 note: longer than 127 characters: what follows is read as a line of its own",
      "2 skipped: has 1 fields instead of 8", "2 " + exactly("REST")}},
};

class Checks : public testing::TestWithParam<CheckCase> {};

TEST_P(Checks, ReportHowEachLineIsRead)
{
    EXPECT_EQ(reported(GetParam().check(GetParam().text)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(All, Checks, testing::ValuesIn(kCases),
                         [](const auto &test) { return std::string(test.param.name); });

TEST(CheckEndurance, ReportsEntriesBeyondAFullTable)
{
    std::string text = kSection;
    for (int i = 0; i < 129; ++i) {
        text += entry("M" + std::to_string(i));
    }
    const Reported lines = reported(checkEndurance(text + "# comment\n\n"));
    ASSERT_EQ(lines.size(), 129U);
    EXPECT_EQ(lines[127], "129 " + exactly("M127"));
    EXPECT_EQ(lines[128], "130 skipped: the table is full: it holds 128 entries");
}

TEST(CheckEndurance, IgnoresASectionBehindAFullTable)
{
    std::string text = kSection;
    for (int i = 0; i < 128; ++i) {
        text += entry("M" + std::to_string(i));
    }
    for (const std::string &line : reported(checkEndurance(text + "[Other]\n" + entry("X")))) {
        EXPECT_EQ(line.find("skipped"), std::string::npos) << line;
    }
}

TEST(CheckEndurance, ReportsLinesBeyondTheLastThatIsRead)
{
    const std::string blank(kMaxM2SSDLines - 1, '\n');
    EXPECT_EQ(reported(checkEndurance(kSection + blank + entry("M"))),
              Reported{"65537 skipped: only 65536 lines are read"});
}

class CheckFiles : public testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "tavstrg_check_XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        directory_ = pattern;
    }
    void TearDown() override { fs::remove_all(directory_); }

    std::string write(const std::string &name, const std::string &text) const
    {
        fs::create_directories((directory_ / name).parent_path());
        std::ofstream(directory_ / name) << text;
        return (directory_ / name).string();
    }
    static std::string problems(const std::string &root) { return checkedProblems(checkFiles(root)); }
    static Finished run(std::vector<std::string> words)
    {
        words.insert(words.begin(), std::string(TAV_BINARY_DIR) + "/bin/tavstrg");
        return runProgram(words, {"LC_ALL=C"});
    }

    fs::path directory_;
};

TEST_F(CheckFiles, RootIsADirectoryWithDataOrTheDataDirectoryItself)
{
    write("storage.inf", "outside\n");
    EXPECT_EQ(checkFiles(directory_).front().path, (directory_ / "storage.inf").string());
    write("data/storage.inf", "inside\n");
    EXPECT_EQ(checkFiles(directory_).front().path, (directory_ / "data/storage.inf").string());
    EXPECT_EQ(reported(checkFiles(directory_).front().lines), Reported{"1 accepted: driver \"inside\""});
}

TEST_F(CheckFiles, ARootThatIsNoDirectoryIsAFailure)
{
    EXPECT_THROW(checkFiles((directory_ / "none").string()), Failure);
    EXPECT_THROW(checkFiles(write("file", "")), Failure);
}

TEST_F(CheckFiles, AbsentFilesAreNotesAndNoProblem)
{
    const std::vector<CheckedFile> files = checkFiles(directory_);
    EXPECT_EQ(checkedProblems(files), "");
    const std::string at = directory_.string() + "/";
    EXPECT_EQ(checkedText(files), at + "storage.inf: note: absent: no SCSI host adapter is managed\n" + at +
                                      "noscsi.inf: note: absent: no disk is excluded\n" + at +
                                      "tavm2ssd.inf: note: absent: no drive has a life span\n" + at +
                                      "options.inf: note: absent: nothing beyond the base system is on\n");
}

TEST_F(CheckFiles, FilesOfMoreThan65536BytesAreAProblem)
{
    const std::string largest(65536, '\n');
    write("storage.inf", largest);
    write("noscsi.inf", largest);
    EXPECT_EQ(problems(directory_), "");
    const std::string storage = write("storage.inf", largest + "\n");
    const std::string noScsi = write("noscsi.inf", largest + "\n");
    EXPECT_EQ(problems(directory_), storage + ": skipped: larger than 65536 bytes: no SCSI host adapter is managed\n" +
                                        noScsi + ": skipped: larger than 65536 bytes: no disk is excluded");
    EXPECT_EQ(checkFiles(directory_)[0].state, FileState::tooLarge);
}

TEST_F(CheckFiles, WhatIsNoFileIsAProblem)
{
    fs::create_directory(directory_ / "storage.inf");
    ASSERT_EQ(::mkfifo((directory_ / "tavm2ssd.inf").c_str(), 0600), 0);
    EXPECT_EQ(problems(directory_),
              (directory_ / "storage.inf").string() + ": skipped: not a regular file: the inventory fails\n" +
                  (directory_ / "tavm2ssd.inf").string() + ": skipped: not a regular file: no drive has a life span");
    EXPECT_EQ(checkFiles(directory_)[0].state, FileState::unreadable);
}

TEST_F(CheckFiles, WithoutRootTheAgentsOwnAreChecked)
{
    sim::Machine machine(R"({"files": {"storage.inf": "ahci\n"}})");
    machine.write("/etc/tavkit/tavkit.conf", "TavDir /opt/qlm/tavkit_sa/other\n");
    std::vector<std::string> paths;
    for (const CheckedFile &file : checkFiles("")) {
        paths.push_back(file.path);
    }
    EXPECT_THAT(paths,
                ElementsAre("/opt/qlm/tavkit_sa/other/data/storage.inf", "/opt/qlm/tavkit_sa/other/data/noscsi.inf",
                            "/opt/qlm/tavkit_sa/data/tavm2ssd.inf", // its root is fixed
                            "/opt/qlm/tavkit_sa/other/data/options.inf"));
}

TEST(CheckOptions, NamesWhatEachLineSwitchesOn)
{
    EXPECT_EQ(
        reported(checkOptions("# a comment\n\n  clean-text # on\nclaen-text\nx\n")),
        (Reported{"3 accepted: option clean-text", "4 skipped: unknown option \"claen-text\"; did you mean clean-text?",
                  "5 skipped: unknown option \"x\""}));
    const std::vector<CheckedLine> all = checkOptions("\xEF\xBB\xBF"
                                                      "all");
    ASSERT_EQ(all.size(), 1U);
    EXPECT_THAT(all[0].text, testing::StartsWith("options kernel-release, disk-identity, "));
    EXPECT_EQ(all[0].meaning["options"].size(), std::size(kOptionNames));
    EXPECT_EQ(reported(checkOptions(std::string_view("uevents\n\0clean-text\n", 20))),
              (Reported{"1 accepted: option uevents", "2 skipped: a NUL byte: nothing behind it is read"}));
}

TEST_F(CheckFiles, OptionsThatAreNotReadAreAProblem)
{
    const std::string path = write("options.inf", std::string(kMaxOptionsSize + 1, '#'));
    EXPECT_EQ(problems(directory_), path + ": skipped: larger than 65536 bytes: the options stay as they were, at a "
                                           "start all off");
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_EQ(problems(directory_),
              path + ": skipped: not a regular file: the options stay as they were, at a start all off");
}

TEST_F(CheckFiles, TheMachineIsCheckedWithItsOptions)
{
    const std::string machine =
        write("machine.json", R"({"kernel": "6.9.7_1", "files": {"options.inf": "kernel-release\nnonsense\n"}})");
    const Finished finished = run({"check", "--machine", machine});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "tavstrg: /opt/qlm/tavkit_sa/data/options.inf:2: skipped: unknown option \"nonsense\"\n");
    EXPECT_THAT(finished.out, HasSubstr("/opt/qlm/tavkit_sa/data/options.inf:1: accepted: option kernel-release\n"));
}

TEST_F(CheckFiles, TheToolExitsWith1AndNamesFileLineAndReason)
{
    const std::string storage = write("storage.inf", "ahci\n" + std::string(65, 'x') + "\n");
    const std::string noScsi = write("noscsi.inf", "Vendor: A\n");
    const Finished finished = run({"check", "--root", directory_.string()});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "tavstrg: " + storage + ":2: skipped: the driver name has more than 64 characters\n" +
                                "tavstrg: " + noScsi + ":1: skipped: has no key \"Model\"\n");
    EXPECT_EQ(finished.out, storage + ":1: accepted: driver \"ahci\"\n" + storage + ": 1 line accepted, 1 skipped\n" +
                                noScsi + ": 0 lines accepted, 1 skipped\n" + directory_.string() +
                                "/tavm2ssd.inf: note: absent: no drive has a life span\n" + directory_.string() +
                                "/options.inf: note: absent: nothing beyond the base system is on\n");
}

TEST_F(CheckFiles, TheToolExitsWith0WhenAllIsAccepted)
{
    write("storage.inf", "ahci\n");
    write("tavm2ssd.inf", kSection + entry("MODELNAME0123456"));
    const Finished finished = run({"--json", "check", "--root", directory_.string()});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.err, "");
    const json document = json::parse(finished.out);
    EXPECT_EQ(document["formatVersion"], 1);
    const json &files = document["files"];
    ASSERT_EQ(files.size(), 4U);
    EXPECT_EQ(files[0]["name"], "storage.inf");
    EXPECT_EQ(files[0]["state"], "read");
    EXPECT_EQ(files[0]["accepted"], 1);
    EXPECT_EQ(files[0]["skipped"], 0);
    EXPECT_EQ(files[0]["lines"][0], json::parse(R"({"line": 1, "verdict": "accepted", "text": "driver \"ahci\"",
                                                    "meaning": {"section": "Management Port", "driver": "ahci"}})"));
    EXPECT_EQ(files[1]["state"], "absent");
    EXPECT_EQ(files[1]["lines"][0]["verdict"], "note");
    EXPECT_TRUE(files[1]["lines"][0].at("line").is_null() && files[1]["lines"][0].at("meaning").is_null());
    const json &drive = files[2]["lines"][0]["meaning"];
    EXPECT_EQ(drive["model"], "MODELNAME0123456");
    EXPECT_EQ(drive["prefix"], true);
    EXPECT_EQ(drive["attribute"], 231);
    EXPECT_EQ(drive["levels"][1], json::parse(R"({"level": 4, "from": 60, "to": 79})"));
}

TEST_F(CheckFiles, TheToolReadsASimulatedMachinesFiles)
{
    const std::string machine = write("machine.json", R"({"files": {"storage.inf": "ahci\n", "noscsi.inf": "x\n"}})");
    const Finished finished = run({"check", "--machine", machine});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "tavstrg: /opt/qlm/tavkit_sa/data/noscsi.inf:1: skipped: has no key \"Vendor\"\n");
    EXPECT_THAT(finished.out, HasSubstr("/opt/qlm/tavkit_sa/data/storage.inf:1: accepted: driver \"ahci\"\n"));
}

TEST_F(CheckFiles, WrongUsageIsStatus2AndABadRootStatus1)
{
    const std::string machine = write("machine.json", "{}");
    EXPECT_EQ(run({"check", "--machine", machine, "--root", directory_.string()}).status, 2);
    EXPECT_EQ(run({"check", "--root"}).status, 2);
    EXPECT_EQ(run({"check", "file"}).status, 2);
    const Finished finished = run({"check", "--root", (directory_ / "none").string()});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "tavstrg: " + (directory_ / "none").string() + ": No such file or directory\n");
}

TEST(CompareDrivers, NotesDriversThatNoAdapterHas)
{
    std::vector<CheckedLine> lines = checkStorage("achi\nmptsas\n");
    compareDrivers({"ahci", "mptsas"}, lines);
    EXPECT_EQ(reported(lines),
              (Reported{"1 accepted: driver \"achi\"",
                        "1 note: no adapter of this machine has this driver; its drivers are ahci, mptsas; did "
                        "you mean ahci?",
                        "2 accepted: driver \"mptsas\""}));
    lines = checkStorage("achi\n");
    compareDrivers({"ahci"}, lines);
    EXPECT_EQ(reported(lines).back(),
              "0 note: no adapter of this machine is managed, so its inventory has no SCSI device; its "
              "drivers are ahci");
    lines = checkStorage("ahci\n");
    compareDrivers({}, lines);
    EXPECT_EQ(reported(lines),
              (Reported{"1 accepted: driver \"ahci\"", "0 note: this machine has no SCSI host adapter"}));
}

std::vector<std::string> findingsOf(const std::string &machine)
{
    const sim::Machine simulated(machine);
    std::vector<std::string> texts;
    for (const MachineFinding &finding : checkMachine(true)) {
        texts.push_back((finding.problem ? "problem: " : "note: ") + finding.text);
    }
    return texts;
}

TEST(CheckMachine, FindsWhatWouldFailEveryCollection)
{
    EXPECT_THAT(findingsOf(R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true}]}],
                               "files": {"storage.inf": "ahci\n"}})"),
                testing::IsEmpty());
    EXPECT_THAT(findingsOf(R"({"kernel": "6.12.117+deb12-amd64"})"),
                ElementsAre(testing::StartsWith("problem: kernel release 6.12.117+deb12-amd64: refused, so every "
                                                "collection fails; switch on kernel-release in options.inf, or boot a "
                                                "kernel whose release is")));
    EXPECT_THAT(findingsOf(R"({"kernel": "1.0.0", "hosts": [{"driver": "ahci"}]})"), testing::IsEmpty());
    const char *disks = R"({"hosts": [{"number": 2, "driver": "mpt3sas", "devices": [
        {"id": 0, "vendor": "ACME", "model": "SAS 1"}, {"id": 1, "vendor": "ACME", "model": "LEFT OUT"},
        {"id": 2, "ata": true, "openError": "ENXIO"}]}, {"number": 3, "driver": "other", "devices": [{"id": 0}]}],
        "files": {"storage.inf": "mpt3sas\n", "noscsi.inf": "Vendor: ACME Model: LEFT\n"}})";
    EXPECT_THAT(
        findingsOf(disks),
        ElementsAre("problem: disk 2:0:0:0 (ACME SAS 1), /dev/sda: does not answer HDIO_GET_IDENTITY, so every "
                    "collection fails; leave out all disks of its model with the line "
                    "\"Vendor: ACME Model: SAS 1\" in noscsi.inf, or all disks of its driver by removing that from "
                    "storage.inf",
                    testing::StartsWith("problem: disk 2:0:2:0 (ATA")));
}

TEST(CheckMachine, FindsMissingDirectories)
{
    sim::Machine machine("{}");
    machine.remove("/opt/qlm/tavkit_sa/work");
    ASSERT_EQ(checkMachine(true).size(), 1U);
    EXPECT_EQ(checkMachine(true)[0].text, "/opt/qlm/tavkit_sa/work: absent; no segment is made, so the provider fails");
    machine.remove("/opt/qlm/tavkit_sa");
    EXPECT_THAT(checkMachine(true)[0].text, HasSubstr("the agent is not installed"));
}

TEST_F(CheckFiles, TheToolReportsTheMachineOutsideOfRootOnly)
{
    const std::string machine = write(
        "machine.json", R"({"kernel": "6.9.7_1", "hosts": [{"driver": "ahci"}], "files": {"storage.inf": "achi\n"}})");
    const Finished finished = run({"check", "--machine", machine});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, HasSubstr("tavstrg: kernel release 6.9.7_1: refused"));
    EXPECT_THAT(finished.out, HasSubstr("storage.inf:1: note: no adapter of this machine has this driver"));
    const json document = json::parse(run({"--json", "check", "--machine", machine}).out);
    EXPECT_EQ(document["machine"][0]["verdict"], "problem");
    write("storage.inf", "achi\n");
    EXPECT_EQ(json::parse(run({"--json", "check", "--root", directory_.string()}).out)["machine"], json::array());
}

} // namespace
