// SPDX-License-Identifier: Apache-2.0
#include "endurance/endurance.h"

#include "endurance/endurance_parse.h"
#include "runtime/trace.h"
#include "sim/sim.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace tavstrg;

namespace {

constexpr char kInf[] = "/opt/qlm/tavkit_sa/data/tavm2ssd.inf";
constexpr char kSection[] = "[Endurance Remaining]\n";
constexpr char kLoad[] = "strgGetInfFile";

std::string tenOf(const std::string &model)
{
    return model + ",231,100,80,60,40,20,0\n";
}

class EnduranceFile : public testing::Test {
protected:
    EnduranceFile() { forget(); }
    ~EnduranceFile() override { forget(); }
    static void forget()
    {
        std::memset(g_M2SSDInf, 0, sizeof g_M2SSDInf);
        g_M2SSDCnt = 0;
        g_M2SSDEndu = 0;
    }
    void load(const std::string &text)
    {
        machine.write(kInf, text);
        trace.clear();
        strgGetInfFile();
        EXPECT_EQ(machine.openDescriptors(), 0);
    }
    static std::vector<std::string> models()
    {
        std::vector<std::string> result;
        for (int i = 0; i < g_M2SSDCnt; ++i) {
            result.emplace_back(g_M2SSDInf[i].model, ::strnlen(g_M2SSDInf[i].model, sizeof g_M2SSDInf[i].model));
        }
        return result;
    }

    sim::Machine machine{"{}"};
    TraceRecorder trace;
};

using Models = std::vector<std::string>;

TEST_F(EnduranceFile, ALineOfEightFieldsIsOneEntry)
{
    load(std::string(kSection) + "MODELNAME0123456,231,100,80,60,40,20,0\n");
    ASSERT_EQ(g_M2SSDCnt, 1);
    const M2SSDInf &entry = g_M2SSDInf[0];
    EXPECT_EQ(std::string(entry.model, sizeof entry.model), "MODELNAME0123456");
    EXPECT_EQ(entry.attid, 231);
    EXPECT_EQ(entry.max, 100);
    EXPECT_EQ(entry.lv5, 80);
    EXPECT_EQ(entry.lv4, 60);
    EXPECT_EQ(entry.lv3, 40);
    EXPECT_EQ(entry.lv2, 20);
    EXPECT_EQ(entry.min, 0);
    EXPECT_EQ(trace.textsOf(kLoad),
              (Models{"_IN_", "m2ssdinfFilePass=[/opt/qlm/tavkit_sa//data/tavm2ssd.inf]",
                      "g_M2SSDCnt[0] model=[MODELNAME0123456] attid=[231] max=[100] lv5=[80] lv4=[60] lv3=[40] "
                      "lv2=[20] min=[0] ",
                      "_OUT_ g_M2SSDCnt=[1]"}));
    for (const TraceRecord &record : trace.records()) {
        EXPECT_EQ(record.level, kDetail) << record.text;
    }
}

TEST_F(EnduranceFile, ALongerModelIsCutTo16Characters)
{
    load(kSection + tenOf("MODELNAME0123456AND MORE") + tenOf("SHORT"));
    EXPECT_EQ(models(), (Models{"MODELNAME0123456", "SHORT"}));
}

TEST_F(EnduranceFile, OnlyTheSectionIsRead)
{
    load(tenOf("BEFORE") + "[Other]\n" + tenOf("OTHER") + kSection + tenOf("IN") + "[Next Section]\n" + tenOf("AFTER") +
         kSection + tenOf("AGAIN"));
    EXPECT_EQ(models(), Models{"IN"});
    EXPECT_TRUE(trace.has(kDetail, "  read data is next section. line=[[Next Section]].", kLoad));
}

TEST_F(EnduranceFile, AHeaderMayBeFollowedByTextButNotPreceded)
{
    load(" [Endurance Remaining]\n" + tenOf("NO") + "[endurance remaining]\n" + tenOf("NEITHER"));
    EXPECT_EQ(g_M2SSDCnt, 0);
    load("[Endurance Remaining] of drives\n" + tenOf("YES"));
    EXPECT_EQ(models(), Models{"YES"});
}

TEST_F(EnduranceFile, LinesWithAnotherNumberOfFieldsAndEmptyOnesAreSkipped)
{
    load(std::string(kSection) + "\n\r\nM,231,100,80,60,40,20\nM,231,100,80,60,40,20,0,9\n# comment\n" + tenOf("GOOD"));
    EXPECT_EQ(models(), Models{"GOOD"});
    const Models texts = trace.textsOf(kLoad);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "fgets line len 0 continue ."), 2);
    for (const char *const text :
         {"fgets line len 0 continue .", "  read data continue. line=[M,231,100,80,60,40,20].",
          "  read data continue. line=[M,231,100,80,60,40,20,0,9].", "  read data continue. line=[# comment]."}) {
        EXPECT_TRUE(trace.has(kDetail, text, kLoad)) << text;
    }
}

TEST_F(EnduranceFile, ALineBreakSeparatesAsAComma)
{
    load(std::string(kSection) + "A,231,100\r80,60,40,20,0\r\nB,,231,100,80,60,40,20,0,\n");
    EXPECT_EQ(models(), (Models{"A", "B"}));
    EXPECT_EQ(g_M2SSDInf[0].max, 100);
    EXPECT_EQ(g_M2SSDInf[0].lv5, 80);
}

TEST_F(EnduranceFile, MoreThan127CharactersAreAFurtherLine)
{
    // 127 characters followed by an entry, and an entry that is split.
    const std::string padding(127, 'x');
    const std::string torn = "TORN" + std::string(110, 'y') + ",231,100,80,60,40,20,0\n";
    load(kSection + padding + tenOf("REST") + torn + padding + "\n" + tenOf("LAST"));
    EXPECT_EQ(models(), (Models{"REST", "LAST"}));
    EXPECT_TRUE(trace.has(kDetail, "  read data continue. line=[" + padding + "].", kLoad));
    // 127 characters leave their newline for the next line.
    EXPECT_TRUE(trace.has(kDetail, "fgets line len 0 continue .", kLoad));
    EXPECT_TRUE(trace.has(kDetail, "  read data continue. line=[0,40,20,0].", kLoad));
}

TEST_F(EnduranceFile, ALineThatBeginsWithNulIsEmpty)
{
    load(std::string(kSection) + std::string("\0text\n", 6) + tenOf(std::string("A\0B", 3)) + tenOf("GOOD"));
    EXPECT_EQ(models(), Models{"GOOD"});
    EXPECT_TRUE(trace.has(kDetail, "fgets line len 0 continue .", kLoad));
    EXPECT_TRUE(trace.has(kDetail, "  read data continue. line=[A].", kLoad));
}

TEST_F(EnduranceFile, MoreThan128EntriesAreIgnored)
{
    for (const int number : {127, 128, 129, 200}) {
        forget();
        std::string text = kSection;
        for (int i = 0; i < number; ++i) {
            text += tenOf("M" + std::to_string(i));
        }
        load(text);
        EXPECT_EQ(g_M2SSDCnt, std::min(number, 128));
        EXPECT_STREQ(g_M2SSDInf[g_M2SSDCnt - 1].model, ("M" + std::to_string(g_M2SSDCnt - 1)).c_str());
    }
}

TEST_F(EnduranceFile, IsLoadedOnceAndClearedBefore)
{
    load(kSection + tenOf("FIRST"));
    load(kSection + tenOf("SECOND"));
    EXPECT_EQ(models(), Models{"FIRST"});
    EXPECT_EQ(trace.textsOf(kLoad), (Models{"_IN_", "_OUT_ g_M2SSDCnt is not 0"}));
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ g_M2SSDCnt is not 0", kLoad));
    g_M2SSDCnt = 0;
    load("nothing\n");
    EXPECT_EQ(g_M2SSDCnt, 0);
    EXPECT_STREQ(g_M2SSDInf[0].model, "");
}

TEST_F(EnduranceFile, AFileThatDoesNotOpenLeavesTheTableEmpty)
{
    const std::string failed = "_OUT_ fopen failed. [/opt/qlm/tavkit_sa//data/tavm2ssd.inf]";
    const auto expectFailed = [&] {
        trace.clear();
        strgGetInfFile();
        EXPECT_TRUE(trace.has(kFailure, failed, kLoad));
        EXPECT_EQ(trace.textsOf(kLoad).back(), failed);
        EXPECT_EQ(g_M2SSDCnt, 0);
        EXPECT_EQ(machine.openDescriptors(), 0);
    };
    expectFailed();
    machine.makeDirectory(kInf);
    expectFailed();
    machine.remove(kInf);
    ASSERT_EQ(::mkfifo(machine.where(kInf).c_str(), 0600), 0);
    expectFailed();
    machine.remove(kInf);
    load(kSection + tenOf("LATER")); // an empty table is read again
    EXPECT_EQ(models(), Models{"LATER"});
}

TEST_F(EnduranceFile, TheRootIsFixed)
{
    machine.write("/etc/tavkit/tavkit.conf", "TavDir /opt/qlm/tavkit_sa/other\n");
    load(kSection + tenOf("HERE"));
    EXPECT_EQ(models(), Models{"HERE"});
}

TEST_F(EnduranceFile, IsNotReadForEver)
{
    load(std::string(kMaxM2SSDLines - 1, '\n') + kSection + tenOf("TOO FAR"));
    EXPECT_EQ(g_M2SSDCnt, 0);
    load(std::string(kMaxM2SSDLines - 2, '\n') + kSection + tenOf("JUST"));
    EXPECT_EQ(models(), Models{"JUST"});
}

struct LevelCase {
    uint16_t figure;
    int level;
};

constexpr M2SSDInf kTens = {"MODEL", 231, 100, 80, 60, 40, 20, 0};

TEST(EnduranceLevel, FollowsTheBoundsOfTheEntry)
{
    const LevelCase cases[] = {
        {0, 1},  {1, 1},  {19, 1}, {20, 2},  {39, 2},   {40, 3},   {59, 3},     {60, 4},     {79, 4},
        {80, 5}, {81, 5}, {99, 5}, {100, 5}, {101, -1}, {255, -1}, {32768, -1}, {65381, -1}, {65535, -1},
    };
    for (const LevelCase &c : cases) {
        EXPECT_EQ(enduranceLevel(kTens, c.figure), c.level) << c.figure;
    }
}

TEST(EnduranceLevel, BelowTheLowestBoundIsUnknown)
{
    constexpr M2SSDInf entry = {"MODEL", 231, 90, 70, 50, 30, 20, 10};
    const LevelCase cases[] = {{0, -1}, {9, -1}, {10, 1}, {19, 1}, {20, 2}, {90, 5}, {91, -1}};
    for (const LevelCase &c : cases) {
        EXPECT_EQ(enduranceLevel(entry, c.figure), c.level) << c.figure;
    }
}

TEST(EnduranceLevel, TheFirstRuleThatHoldsWins)
{
    constexpr M2SSDInf crossed = {"MODEL", 231, 100, 50, 40, 60, 20, -5};
    // 45 is in level 4 and in no later one; 55 is in level 5, below the bounds of level 3.
    EXPECT_EQ(enduranceLevel(crossed, 45), 4);
    EXPECT_EQ(enduranceLevel(crossed, 55), 5);
    EXPECT_EQ(enduranceLevel(crossed, 30), 2);
    EXPECT_EQ(enduranceLevel(crossed, 0), 1);
    constexpr M2SSDInf negative = {"MODEL", 231, -1, -2, -3, -4, -5, -6};
    EXPECT_EQ(enduranceLevel(negative, 65535), -1);
    EXPECT_EQ(enduranceLevel(negative, 0), -1);
}

TEST(FindM2SSD, ComparesExactly16Characters)
{
    constexpr M2SSDInf table[] = {
        {{'M', 'O', 'D', 'E', 'L', 'N', 'A', 'M', 'E', '0', '1', '2', '3', '4', '5', '6'}, 1, 0, 0, 0, 0, 0, 0},
        {"SHORT", 2, 0, 0, 0, 0, 0, 0},
        {"SHORT", 3, 0, 0, 0, 0, 0, 0},
    };
    const auto attid = [&](const char *model) {
        const M2SSDInf *const entry = findM2SSD(table, std::size(table), model);
        return entry == nullptr ? 0 : entry->attid;
    };
    EXPECT_EQ(attid("MODELNAME0123456"), 1);
    EXPECT_EQ(attid("MODELNAME0123456 512GB"), 1);
    EXPECT_EQ(attid("MODELNAME012345"), 0);
    EXPECT_EQ(attid("SHORT"), 2); // the first
    EXPECT_EQ(attid("SHORT "), 0);
    EXPECT_EQ(attid("SHOR"), 0);
    EXPECT_EQ(attid("short"), 0);
    EXPECT_EQ(attid(""), 0);
    EXPECT_EQ(findM2SSD(table, 0, "SHORT"), nullptr);
}

TEST(NumberOf, IsWhatTheCLibraryMakesOfIt)
{
    for (const char *const text : {"0",
                                   "7",
                                   "231",
                                   "-1",
                                   "+5",
                                   " \t\n\v\f\r42",
                                   "12x",
                                   "x12",
                                   "",
                                   " ",
                                   "-",
                                   "+",
                                   "+-5",
                                   "-+5",
                                   "--5",
                                   "- 5",
                                   "007",
                                   "0x10",
                                   "2147483647",
                                   "2147483648",
                                   "-2147483648",
                                   "-2147483649",
                                   "4294967295",
                                   "4294967296",
                                   "99999999999",
                                   "9223372036854775807",
                                   "9223372036854775808",
                                   "-9223372036854775808",
                                   "-9223372036854775809",
                                   "99999999999999999999999999",
                                   "-99999999999999999999999999"}) {
        EXPECT_EQ(numberOf(text), static_cast<int32_t>(std::strtol(text, nullptr, 10))) << text;
    }
}

TEST_F(EnduranceFile, BoundsAreCutTo16Bits)
{
    load(std::string(kSection) + "M,99999,65535,65536,32767,32768,-32769,x\n");
    ASSERT_EQ(g_M2SSDCnt, 1);
    EXPECT_EQ(g_M2SSDInf[0].attid, 99999);
    EXPECT_EQ(g_M2SSDInf[0].max, -1);
    EXPECT_EQ(g_M2SSDInf[0].lv5, 0);
    EXPECT_EQ(g_M2SSDInf[0].lv4, 32767);
    EXPECT_EQ(g_M2SSDInf[0].lv3, -32768);
    EXPECT_EQ(g_M2SSDInf[0].lv2, 32767);
    EXPECT_EQ(g_M2SSDInf[0].min, 0);
}

// The walk over a text in memory reads the lines that fgets reads.
TEST_F(EnduranceFile, TakeTableLineGivesTheLinesOfTheFile)
{
    const std::string text = kSection + std::string(126, 'a') + "\n" + std::string(127, 'b') + "\n" +
                             std::string(300, 'c') + "\n" + std::string("d\0e\nf", 5);
    machine.write(kInf, text);
    std::vector<std::string> read;
    std::FILE *const file = std::fopen(kInf, "r");
    ASSERT_NE(file, nullptr);
    char buffer[kM2SSDLineBuffer];
    while (std::fgets(buffer, sizeof buffer, file) != nullptr) {
        read.emplace_back(buffer);
    }
    std::fclose(file);
    std::vector<std::string> taken;
    std::string_view rest = text;
    for (std::string_view line; takeTableLine(rest, line);) {
        taken.emplace_back(line);
    }
    EXPECT_EQ(taken, read);
    EXPECT_EQ(taken.size(), 9U);
}

} // namespace
