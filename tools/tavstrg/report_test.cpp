// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/report.h"

#include "tavstrg/report_parts.h"
#include "tavstrg/sha256.h"

#include "runtime/field_text.h"
#include "support/tool_fixture.h"

#include <gmock/gmock.h>

#include <regex>
#include <set>
#include <sys/stat.h>

namespace tool {
namespace {

using namespace tavstrg::disks;
using testing::HasSubstr;
using testing::Not;

Disk diskOf(const char *name, HealthState state = HealthState::good, const char *bay = "")
{
    Disk disk{};
    tavstrg::copyText(disk.name, name);
    tavstrg::copyText(disk.id, (std::string("naa.") + name).c_str());
    tavstrg::copyText(disk.bay, bay);
    tavstrg::copyText(disk.adapter, "0000:03:00.0");
    disk.transport = Transport::sas;
    setHealth(disk.health, state, "SMART status", "predicts its failure");
    return disk;
}

std::string pageOf(std::vector<Disk> disks)
{
    DiskReport report;
    report.disks = std::move(disks);
    report.collection.time = 1700000000;
    return reportPage(report);
}

// Strict: elements are closed in their order, attributes quoted and there once, references the five of XML and numbers,
// identities unique. What is wrong; empty for nothing.
std::string wrongXml(const std::string &page)
{
    static const std::regex tag(R"re(<(/?)([a-zA-Z0-9]+)((?: [a-zA-Z-]+(?::[a-z]+)?="[^"<]*")*)(/?)>)re");
    static const std::regex attribute(R"re( ([a-zA-Z-]+(?::[a-z]+)?)="([^"<]*)")re");
    static const std::regex strayReference("&(?!(amp|lt|gt|quot|#[0-9]+);)");
    std::vector<std::string> open;
    std::set<std::string> ids;
    const std::string body = page.substr(page.find('\n') + 1); // without the document type
    std::string text;
    size_t at = 0;
    for (std::sregex_iterator i(body.begin(), body.end(), tag), end; i != end; ++i) {
        text += body.substr(at, static_cast<size_t>(i->position()) - at);
        at = static_cast<size_t>(i->position() + i->length());
        const std::string attributes = (*i)[3];
        std::set<std::string> names;
        for (std::sregex_iterator k(attributes.begin(), attributes.end(), attribute); k != end; ++k) {
            text += (*k)[2];
            if (!names.insert((*k)[1]).second || ((*k)[1] == "id" && !ids.insert((*k)[2]).second)) {
                return "twice: " + k->str();
            }
        }
        if ((*i)[1].length() != 0) {
            if (open.empty() || open.back() != (*i)[2]) {
                return "closed: " + i->str();
            }
            open.pop_back();
        } else if ((*i)[4].length() == 0) {
            open.push_back((*i)[2]);
        }
    }
    text += body.substr(at);
    if (!open.empty() || text.find('<') != std::string::npos) {
        return open.empty() ? "text: " + text.substr(text.find('<'), 80) : "open: " + open.back();
    }
    return std::regex_search(text, strayReference) ? "a reference" : "";
}

TEST(XmlReader, FindsWhatIsWrong)
{
    EXPECT_EQ(wrongXml("<!DOCTYPE html>\n<a b=\"&lt;\"><c/>&#8211;</a>\n"), "");
    for (const char *wrong : {"<a>", "<a></b>", "<a b=c></a>", "<a b=\"1\" b=\"2\"/>", "<a>&nbsp;</a>", "<a>1 < 2</a>",
                              "<a><b id=\"1\"/><b id=\"1\"/></a>"}) {
        EXPECT_NE(wrongXml("<!DOCTYPE html>\n" + std::string(wrong)), "") << wrong;
    }
}

TEST(Report, IsWellFormedForAnyNumberOfDisksInAnyState)
{
    for (const size_t number : {size_t{0}, size_t{1}, size_t{24}, size_t{128}}) {
        std::vector<Disk> disks;
        for (size_t i = 0; i < number; ++i) {
            const std::string bay = "6:0:8:0 Slot " + std::to_string(i * 2);
            disks.push_back(diskOf(("sd" + std::to_string(i)).c_str(), static_cast<HealthState>(i % 7), bay.c_str()));
            disks.back().readings.enduranceUsedPercent.set(static_cast<uint32_t>(i));
            disks.back().health.since.set(1700000000);
        }
        EXPECT_EQ(wrongXml(pageOf(disks)), "") << number;
    }
}

// Nothing is fetched, and what got in by mistake would not run.
TEST(Report, LoadsNothingAndAllowsOnlyItsOwnStyleAndScript)
{
    const std::string page = pageOf({diskOf("sda")});
    EXPECT_THAT(page, HasSubstr("content=\"default-src 'none'; style-src '" + policyHash(kReportStyle) +
                                "'; script-src '" + policyHash(kReportScript) + "'; base-uri 'none'"));
    EXPECT_THAT(page, HasSubstr("<style>" + std::string(kReportStyle) + "</style>"));
    EXPECT_THAT(page, HasSubstr("<script>" + std::string(kReportScript) + "</script>"));
    EXPECT_LT(page.find("Content-Security-Policy"), page.find("<style>"));
    const std::regex loads("src=|url\\(|@import|@font-face|<link|<img|<iframe|style=|href=\"[^#]| on[a-z]+=\"");
    EXPECT_FALSE(std::regex_search(page, loads));
    const std::regex address("https?://[^\"]*");
    for (std::sregex_iterator i(page.begin(), page.end(), address), end; i != end; ++i) {
        EXPECT_THAT(i->str(), testing::StartsWith("http://www.w3.org/")) << "names of formats alone";
    }
    EXPECT_EQ(kReportScript.find_first_of("<&"), std::string_view::npos) << "XML would read it";
    EXPECT_EQ(kReportStyle.find_first_of("<&"), std::string_view::npos);
}

TEST(Report, TextsOfDevicesAndMachinesAreEscapedEverywhere)
{
    const std::string hostile = "\"'><script>alert(1)</script>&\x1b\xff";
    Disk disk = diskOf("sda", HealthState::failing);
    for (const auto &[field, size] :
         {std::pair(disk.name, sizeof disk.name), std::pair(disk.id, sizeof disk.id),
          std::pair(disk.address, sizeof disk.address), std::pair(disk.adapter, sizeof disk.adapter),
          std::pair(disk.bay, sizeof disk.bay), std::pair(disk.vendor, sizeof disk.vendor),
          std::pair(disk.model, sizeof disk.model), std::pair(disk.serial, sizeof disk.serial),
          std::pair(disk.firmware, sizeof disk.firmware), std::pair(disk.health.source, sizeof disk.health.source),
          std::pair(disk.health.reason, sizeof disk.health.reason)}) {
        snprintf(field, size, "%s", hostile.c_str());
    }
    DiskReport report;
    report.disks = {disk};
    report.machine = hostile;
    report.notes = {hostile};
    const std::string page = reportPage(report);
    EXPECT_EQ(wrongXml(page), "");
    EXPECT_THAT(page, Not(HasSubstr("<script>alert")));
    EXPECT_THAT(page, HasSubstr("&quot;&#39;&gt;&lt;script&gt;alert(1)"));
    EXPECT_THAT(page, Not(HasSubstr("\x1b")));
    EXPECT_THAT(page, Not(HasSubstr("\xff")));
    report.disks.clear();
    report.explanation = hostile;
    EXPECT_EQ(wrongXml(reportPage(report)), "");
}

TEST(Report, DisksThatNeedAttentionComeFirstTheWorstBeforeOthers)
{
    Disk failing = diskOf("sdc", HealthState::failing);
    failing.health.since.set(1700000000);
    const std::string page =
        pageOf({diskOf("sda", HealthState::warning), diskOf("sdb"), failing, diskOf("sdd", HealthState::off)});
    const std::string first = page.substr(0, page.find("<h2>The machine</h2>"));
    EXPECT_THAT(first, testing::ContainsRegex(">sdc</a> failing(.|\n)*>sda</a> warning"));
    EXPECT_THAT(first, HasSubstr("<dt>reported by</dt><dd>SMART status</dd>"));
    EXPECT_THAT(first,
                HasSubstr("<dt>since</dt><dd><time datetime=\"2023-11-14T22:13:20Z\">2023-11-14 22:13 UTC</time>"));
    EXPECT_THAT(first, HasSubstr("not known without a book"));
    EXPECT_THAT(first, Not(HasSubstr(">sdb</a>")));
    EXPECT_THAT(pageOf({diskOf("sdb")}), HasSubstr("No disk reports a problem."));
}

// The state is a sign and a word too.
TEST(Report, PictureHasSignTitleAndDescriptionOfEachDisk)
{
    const std::string page = pictureMarkup({diskOf("sda", HealthState::unreadable, "6:0:8:0 Slot 03")});
    EXPECT_THAT(page, HasSubstr("<h4>Enclosure 6:0:8:0</h4>"));
    EXPECT_THAT(page, HasSubstr("<use href=\"#sign-unreadable\""));
    EXPECT_THAT(page, HasSubstr("<title id=\"name0\">sda</title><desc id=\"what0\">unreadable: predicts its failure"));
    for (const HealthState state : kWorstFirst) {
        EXPECT_THAT(std::string(kReportSigns), HasSubstr(std::string("id=\"sign-") + nameOf(state) + "\""));
        EXPECT_THAT(std::string(kReportStyle), HasSubstr(std::string(".bay.") + nameOf(state) + " .box"));
    }
}

TEST(Report, BaysOfAnEnclosureAreInOrderAndGapsAreSeen)
{
    const std::string page = pictureMarkup(
        {diskOf("sda", HealthState::good, "6:0:8:0 Slot 04"), diskOf("sdb", HealthState::good, "6:0:8:0 Slot 02")});
    EXPECT_THAT(page, testing::ContainsRegex("bay 1: no disk(.|\n)*>sdb<(.|\n)*bay 3: no disk(.|\n)*>sda<"));
    EXPECT_THAT(page, Not(HasSubstr("bay 0")));
    const std::string same = pictureMarkup(
        {diskOf("sda", HealthState::good, "6:0:8:0 Slot 04"), diskOf("sdb", HealthState::good, "6:0:8:0 Slot 04")});
    EXPECT_THAT(same, Not(HasSubstr("no disk"))) << "the numbers say nothing";
    const std::string huge = pictureMarkup({diskOf("sda", HealthState::good, "6:0:8:0 Slot 4000000000"),
                                            diskOf("sdb", HealthState::good, "6:0:8:0 Slot 99999")});
    EXPECT_THAT(huge, Not(HasSubstr("no disk")));
}

TEST(Report, DrivesThatAreTheirOwnAdapterAreOneGroup)
{
    Disk first = diskOf("nvme0n1");
    Disk second = diskOf("nvme1n1");
    first.transport = second.transport = Transport::nvme;
    tavstrg::copyText(second.adapter, "0000:04:00.0");
    const std::string page = pictureMarkup({first, diskOf("sda"), second});
    EXPECT_THAT(page, HasSubstr("<h3>NVMe <small>2 disks</small></h3>"));
    EXPECT_THAT(page, HasSubstr("<h3>SAS, adapter 0000:03:00.0 <small>1 disk</small></h3>"));
}

TEST(Report, TableIsSortedByNumbersAndHasBarsOnlyForWhatIsKnown)
{
    Disk worn = diskOf("sda");
    worn.readings.enduranceUsedPercent.set(120);
    worn.readings.temperatureCelsius.set(61);
    worn.readings.mediaErrors.set(1);
    worn.readings.pendingSectors.set(0);
    const std::string table = tableMarkup({worn, diskOf("sdb")});
    EXPECT_THAT(table, HasSubstr("<caption>"));
    EXPECT_THAT(table, HasSubstr("<th scope=\"col\">Endurance used</th>"));
    EXPECT_THAT(table, HasSubstr("<th scope=\"row\">sda"));
    EXPECT_THAT(table, HasSubstr("data-key=\"120\"><span class=\"meter failing\"><b>120 %</b>"));
    EXPECT_THAT(table, HasSubstr("width=\"100.0\"")) << "the bar ends with the scale";
    EXPECT_THAT(table, HasSubstr("data-key=\"61\"><span class=\"meter warning\">"));
    EXPECT_THAT(table, HasSubstr("data-key=\"1\">1 media error</td>"));
    EXPECT_THAT(table, HasSubstr("<td class=\"number\" data-key=\"\"><span class=\"soft\">\xE2\x80\x93</span></td>"));
    EXPECT_THAT(table, Not(HasSubstr("since"))) << "no disk has it";
}

// ---- the built tool ----

using testing_support::contentOf;
using testing_support::Finished;

class ReportTool : public testing_support::ToolTest {};

TEST_F(ReportTool, WritesAWholePageInOneStepOrOnStandardOutput)
{
    const std::string path = write("page.html", "old");
    const Finished finished = runSmall({"report", path});
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(finished.out + finished.err, "");
    EXPECT_EQ(wrongXml(contentOf(path)), "");
    EXPECT_THAT(contentOf(path), HasSubstr("Storage of small.json, a simulated machine"));
    const Finished printed = runSmall({"report", "-"});
    EXPECT_EQ(printed.status, 0);
    EXPECT_THAT(printed.out, testing::StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(printed.out, testing::EndsWith("</html>\n"));
    const std::string fifo = (directory_ / "fifo").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(runSmall({"report", fifo}).err, "tavstrg: " + fifo + ": not a regular file; it is left as it is\n");
    EXPECT_TRUE(leftNothing(finished));
}

TEST_F(ReportTool, OfAMachineWithoutDisksSaysWhy)
{
    const Finished finished =
        run({"--machine", write("drive.json", R"({"hosts": [{"devices": [{"type": "cdrom"}]}]})"), "report", "-"});
    EXPECT_EQ(wrongXml(finished.out), "");
    EXPECT_THAT(finished.out, HasSubstr("<p>This machine has no disk"));
}

} // namespace
} // namespace tool
