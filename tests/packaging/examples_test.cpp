// SPDX-License-Identifier: Apache-2.0
// The examples of the administrator's files, read as the provider reads them where they lie on a server.
#include "collect/inf/noscsi_inf.h"
#include "collect/inf/storage_inf.h"
#include "endurance/endurance.h"
#include "runtime/options.h"
#include "sim/sim.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

using namespace tavstrg;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

std::string exampleText(const std::string &name)
{
    std::ifstream file(std::string(TAV_SOURCE_DIR) + "/packaging/examples/" + name);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

// A machine whose agent has the file.
sim::Machine machineWith(const std::string &name)
{
    return sim::Machine(nlohmann::json{{"files", {{name, exampleText(name)}}}}.dump());
}

// In the file's order: lists have it reversed.
Texts driversOf(const StorageInfo *list)
{
    Texts drivers;
    for (; list != nullptr; list = list->next) {
        drivers.insert(drivers.begin(), list->name);
    }
    return drivers;
}

Texts disksOf(const NoSCSIInfo *list)
{
    Texts disks;
    for (; list != nullptr; list = list->next) {
        disks.insert(disks.begin(), std::string(list->vendor) + "|" + list->model);
    }
    return disks;
}

TEST(Examples, OptionsInfHasEveryLineCommentedOutAndASentenceOnEach)
{
    const std::string text = exampleText("options.inf");
    EXPECT_EQ(parseOptions(text), Options{});
    Texts names;
    std::string before;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line); before = line) {
        const std::string name = line.starts_with("# ") ? line.substr(2) : "";
        if (optionsOfName(name)) {
            names.push_back(name);
            EXPECT_TRUE(name == kAllOptions || (before.starts_with("# ") && before.ends_with("."))) << name;
        }
    }
    Texts known{std::string(kAllOptions)};
    for (const OptionName &option : kOptionNames) {
        known.emplace_back(option.line);
    }
    EXPECT_EQ(names, known);
}

TEST(Examples, StorageInfNamesTheUsualDriversInBothSections)
{
    const sim::Machine machine = machineWith("storage.inf");
    StorageInfo *managed = nullptr;
    StorageInfo *diagnostic = nullptr;
    int32_t status = 0;
    ASSERT_EQ(CreatStorageInfoTable(&managed, &diagnostic, &status), 1) << status;
    EXPECT_THAT(driversOf(managed), ElementsAre("ahci", "ata_piix"));
    EXPECT_EQ(driversOf(diagnostic), driversOf(managed));
    DestroyStorageInfoTable(&managed);
    DestroyStorageInfoTable(&diagnostic);
}

TEST(Examples, NoScsiInfShowsTheThreeKindsOfLines)
{
    const sim::Machine machine = machineWith("noscsi.inf");
    NoSCSIInfo *leftOut = nullptr;
    NoSCSIInfo *diagnostic = nullptr;
    int32_t status = 0;
    ASSERT_EQ(CreateNoSCSIInfoTable(&leftOut, &diagnostic, &status), 1) << status;
    EXPECT_THAT(disksOf(leftOut), ElementsAre("EXAMPLEV|", "|EXAMPLE MODEL", "ATA|EXAMPLE 2000"));
    EXPECT_THAT(disksOf(diagnostic), IsEmpty());
    DestroyNoManageSCSIInfoTable(&leftOut);
    DestroyNoManageSCSIInfoTable(&diagnostic);
}

TEST(Examples, Tavm2ssdInfHasTwoDrivesWithLevelsOfTheirOwn)
{
    const sim::Machine machine = machineWith("tavm2ssd.inf");
    strgGetInfFile();
    ASSERT_EQ(g_M2SSDCnt, 2);
    const M2SSDInf &normalised = g_M2SSDInf[0];
    const M2SSDInf &usedUp = g_M2SSDInf[1];
    EXPECT_EQ(std::string(normalised.model, 16), "EXAMPLE M2 SSD 1");
    EXPECT_EQ(std::string(usedUp.model, 16), "EXAMPLE M2 SSD 2");
    EXPECT_EQ(normalised.attid, 231);
    EXPECT_EQ(usedUp.attid, 230);
    std::vector<int> levels;
    for (const int figure : {100, 80, 79, 60, 40, 20, 19, 0, 101}) {
        levels.push_back(enduranceLevel(normalised, static_cast<uint16_t>(figure)));
    }
    EXPECT_THAT(levels, ElementsAre(5, 5, 4, 4, 3, 2, 1, 1, kLevelUnknown));
    EXPECT_EQ(enduranceLevel(usedUp, 89), 4);
}

// Longer lines of tavm2ssd.inf would be read as several; the other files are easier to read so.
TEST(Examples, LinesAreShort)
{
    for (const char *name : {"storage.inf", "noscsi.inf", "tavm2ssd.inf"}) {
        const std::string text = exampleText(name);
        size_t begin = 0;
        for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
            EXPECT_LE(end - begin, 127U) << name << ": " << text.substr(begin, end - begin);
            begin = end + 1;
        }
        EXPECT_EQ(begin, text.size()) << name << " ends in the middle of a line";
    }
}

} // namespace
