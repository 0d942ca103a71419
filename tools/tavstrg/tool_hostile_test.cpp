// SPDX-License-Identifier: Apache-2.0
// Texts of devices, files and arguments that would control a terminal, on every way out of the tool.

#include "support/tool_fixture.h"
#include "support/tool_state.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <csignal>

namespace {

using namespace tool::testing_support;
using nlohmann::json;
using testing::HasSubstr;

// Short enough for a device's 16 characters: clears the screen; CSI as one byte; CSI as a character of UTF-8; a
// right-to-left override; bytes that are not UTF-8.
const std::vector<std::string> kHostile = {"\x1b[2J",
                                           "\x9b"
                                           "2J",
                                           "\xc2\x9b"
                                           "2J",
                                           "\xe2\x80\xae", "\xff\xfe"};

// A text that a JSON document cannot hold as bytes.
std::string inJson(const std::string &hostile)
{
    std::string text;
    for (const char c : hostile) {
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(c));
        text += escape;
    }
    return text;
}

class HostileText : public ToolTest {
protected:
    // Each byte of the tool's output is printable ASCII or a line end.
    static void expectHarmless(const std::string &what, const std::string &text)
    {
        for (size_t i = 0; i < text.size(); ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            if (byte != '\n' && (byte < 0x20 || byte > 0x7e)) {
                ADD_FAILURE() << what << ": byte " << unsigned(byte) << " at " << i << " in "
                              << testing::PrintToString(text.substr(i > 40 ? i - 40 : 0, 80));
                return;
            }
        }
    }

    Finished runHarmless(const std::vector<std::string> &words) const
    {
        const Finished finished = run(words);
        std::string what;
        for (const std::string &word : words) {
            what += word + " ";
        }
        expectHarmless(what + "(output)", finished.out);
        expectHarmless(what + "(messages)", finished.err);
        return finished;
    }

    // All its texts are hostile, also the name of its file. With another root the administrator's files are not found.
    std::string machineWith(const std::string &hostile, bool otherRoot = false) const
    {
        std::string text = R"({"hosts": [{"number": 0, "driver": "ahci", "devices": [
            {"id": 0, "type": "disk", "ata": true, "model": "MXX", "revision": "RXX", "serial": "SXX",
             "smart": {"failing": true}}, {"id": 1, "type": "cdrom", "vendor": "VXX", "model": "MXX"}]}],
            "files": {"storage.inf": "[Management Port]\nahci\nXX\n[Diagnostic Port]\nXX\n", "noscsi.inf": "Vendor: XX Model: XX\nXX\n",
                      "tavm2ssd.inf": "[Endurance Remaining]\nMXX,231,100,80,60,40,20,XX\n",
                      "tavkit.conf": "TavDir ROOT\n"}})";
        text.replace(text.find("ROOT"), 4, otherRoot ? "/tavXX" : "/opt/qlm/tavkit_sa");
        for (size_t at = text.find("XX"); at != std::string::npos; at = text.find("XX", at)) {
            text.replace(at, 2, inJson(hostile));
        }
        return write("m" + hostile + ".json", text);
    }
};

TEST_F(HostileText, OfDevicesAndFilesIsEscapedInEveryOutput)
{
    for (const std::string &hostile : kHostile) {
        const std::string machine = machineWith(hostile);
        for (const std::vector<std::string> &command :
             std::vector<std::vector<std::string>>{{"show"},
                                                   {"show", "--verbose"},
                                                   {"enum", "SCSIDevice"},
                                                   {"get", "SCSIDevice", "1"},
                                                   {"metrics", "--classes"},
                                                   {"check"},
                                                   {"get", "--raw", "N" + hostile},
                                                   {"enum", "--raw", "N" + hostile}}) {
            for (const bool asJson : {false, true}) {
                std::vector<std::string> words = {"--machine", machine};
                if (asJson) {
                    words.insert(words.begin(), "--json");
                }
                words.insert(words.end(), command.begin(), command.end());
                const Finished finished = runHarmless(words);
                const bool refused = command[0] == "check" || command[1 % command.size()] == "--raw";
                EXPECT_EQ(finished.status, refused ? 1 : 0) << finished.err;
                EXPECT_THAT(finished.out + finished.err, HasSubstr(asJson ? "\\u" : "\\x"));
            }
        }
        EXPECT_THAT(runHarmless({"--machine", machineWith(hostile, true), "check"}).out, HasSubstr("/tav\\x"));
    }
}

// Disks whose texts are each hostile in another way, on all buses, in bays of hostile names.
std::string machineOfHostileDisks()
{
    json machine =
        json::parse(R"({"hosts": [{"driver": "mpt3sas", "devices": []}], "nvme": [], "virtio": [], "mmc": []})");
    json slots = json::array();
    for (size_t i = 0; i < kHostile.size(); ++i) {
        const std::string text = json::parse('"' + inJson(kHostile[i]) + '"');
        machine["hosts"][0]["devices"].push_back({{"id", i},
                                                  {"ata", i % 2 == 0},
                                                  {"vendor", "V" + text},
                                                  {"model", "M" + text},
                                                  {"revision", "R" + text},
                                                  {"serial", "S" + text},
                                                  {"wwid", "t10." + text},
                                                  {"smart", {{"failing", true}}}});
        slots.push_back(
            {{"name", "Slot" + text + "\n\t"}, {"number", i}, {"device", "0:0:" + std::to_string(i) + ":0"}});
        machine["nvme"].push_back({{"model", "M" + text},
                                   {"serial", "S" + text},
                                   {"firmware", "F" + text},
                                   {"state", "dead" + text},
                                   {"nqn", "nqn." + text},
                                   {"namespaces", {{{"nsid", 1}, {"wwid", "nvme." + text}}}}});
        machine["virtio"].push_back({{"serial", "S" + text}});
        machine["mmc"].push_back({{"name", "N" + text}, {"cid", "C" + text}, {"firmware", text}, {"lifeTime", text}});
    }
    machine["hosts"][0]["devices"].push_back({{"id", 30}, {"type", "enclosure"}, {"slots", slots}});
    return machine.dump();
}

TEST_F(HostileText, OfEveryDiskIsEscapedInEveryOutput)
{
    const std::string machine = write("disks.json", machineOfHostileDisks());
    const std::string book = (directory_ / "book").string();
    for (const char *format : {"--color=auto", "--json"}) {
        for (const std::vector<std::string> &command :
             std::vector<std::vector<std::string>>{{"disks", "--book", book},
                                                   {"disks", "--wide"},
                                                   {"disks", "-o", "ID,NODE,BAY,VENDOR,MODEL,SERIAL,FIRMWARE,REASON"},
                                                   {"disks", "--csv"},
                                                   {"disk", "sda"},
                                                   {"disk", "nvme0n1"},
                                                   {"disk", "none" + kHostile[0]},
                                                   {"health", "--book", book},
                                                   {"metrics"},
                                                   {"metrics", "--from-book", book},
                                                   {"record", "--keep-names", "-"}}) {
            std::vector<std::string> words = {"--machine", machine, format};
            words.insert(words.end(), command.begin(), command.end());
            const Finished finished = runHarmless(words);
            EXPECT_FALSE((finished.out + finished.err).empty());
            EXPECT_EQ(finished.err.find("damaged"), std::string::npos) << "the names of bays do not damage the book";
        }
    }
}

TEST_F(HostileText, OfEveryDiskDoesNotLeaveItsPlaceInAPage)
{
    const std::string machine = write("disks.json", machineOfHostileDisks());
    const std::string page = (directory_ / "page.html").string();
    ASSERT_EQ(runHarmless({"--machine", machine, "report", page}).status, 0);
    for (const char byte : contentOf(page)) {
        ASSERT_TRUE(byte == '\n' || static_cast<unsigned char>(byte) >= 0x20);
    }
}

TEST_F(HostileText, OfArgumentsIsEscapedInMessages)
{
    for (const std::string &hostile : kHostile) {
        for (const char *option : {"--machine", "--provider"}) {
            EXPECT_EQ(runHarmless({option, "/none/" + hostile, "show"}).status, 1);
            EXPECT_EQ(runHarmless({"--json", option, "/none/" + hostile, "show"}).status, 1);
        }
        EXPECT_EQ(runHarmless({"enum", "C" + hostile}).status, 2);
        EXPECT_EQ(runHarmless({hostile}).status, 2);
        EXPECT_EQ(runHarmless({"call", "Config", hostile}).status, 2);
        EXPECT_EQ(runHarmless({"call", "Config", "SetMonitorCycle", hostile}).status, 2);
        EXPECT_EQ(runHarmless({"dump-state", "/none/" + hostile}).status, 1);
        EXPECT_EQ(runHarmless({"check", "--root", "/none/" + hostile}).status, 1);
        for (const char *content : {"damaged", "tavstrg disk book 99\n"}) {
            const std::string machine = (directory_ / "small.json").string();
            const std::string book = write("book" + hostile, content);
            EXPECT_EQ(runHarmless({"--machine", machine, "disks", "--book", book}).status, 0);
        }
        EXPECT_EQ(
            runHarmless({"--machine", (directory_ / "small.json").string(), "metrics", "--output", "/none/" + hostile})
                .status,
            1);
    }
}

TEST_F(HostileText, OfAMachinesDescriptionIsEscapedInMessages)
{
    for (const std::string &hostile : kHostile) {
        const std::string unknownField = write("field.json", "{\"" + inJson(hostile) + "\": 1}");
        EXPECT_EQ(runHarmless({"--machine", unknownField, "show"}).status, 1);
        const std::string unknownType =
            write("type.json", "{\"hosts\": [{\"devices\": [{\"type\": \"" + inJson(hostile) + "\"}]}]}");
        EXPECT_EQ(runHarmless({"--machine", unknownType, "show"}).status, 1);
        EXPECT_EQ(runHarmless({"--machine", write("broken.json", "{\"" + hostile), "show"}).status, 1);
    }
}

TEST_F(HostileText, OfASavedStateIsEscaped)
{
    for (const std::string &hostile : kHostile) {
        std::string state = wholeState();
        const size_t model = state.find("MMMM");
        ASSERT_NE(model, std::string::npos);
        const std::string path = write("state" + hostile, state.replace(model, hostile.size(), hostile));
        EXPECT_EQ(runHarmless({"dump-state", path}).status, 0);
        EXPECT_EQ(runHarmless({"--json", "dump-state", path}).status, 0);
    }
}

TEST_F(HostileText, OfADiskIsEscapedInAlerts)
{
    const std::string machine = machineWith(kHostile[0]);
    for (const char *format : {"", "--json"}) {
        std::vector<std::string> words = {kTool, "--machine", machine, "watch"};
        if (*format != '\0') {
            words.insert(words.begin() + 1, format);
        }
        Running watch(words, environment());
        EXPECT_TRUE(watch.says("predicts failure"));
        watch.send(SIGINT);
        const Finished finished = watch.finish();
        expectHarmless("alerts", finished.out);
        expectHarmless("notes", finished.err);
    }
}

} // namespace
