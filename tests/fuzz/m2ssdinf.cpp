// SPDX-License-Identifier: Apache-2.0
// tavm2ssd.inf: its lines, the table that comes of it, and the levels of every figure.
#include "endurance/endurance.h"
#include "endurance/endurance_parse.h"
#include "fuzz/fuzz.h"
#include "fuzz/lists.h"
#include "fuzz/machine.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

using namespace tavstrg;

using fuzz::isWithin;
using fuzz::require;

namespace {

constexpr char kInf[] = "/opt/qlm/tavkit_sa/data/tavm2ssd.inf";
constexpr uint16_t kFigures[] = {0, 1, 50, 99, 100, 32767, 32768, 65535};

void checkLine(std::string_view line)
{
    std::string_view fields[kM2SSDFields + 1];
    const size_t count = splitTableLine(line, fields);
    require(count <= std::size(fields), "no more fields than there is room for");
    for (const std::string_view &field : std::span(fields, count)) {
        require(!field.empty() && isWithin(field, line) && field.find_first_of(",\r\n") == field.npos,
                "a field lies between separators");
    }
    char number[16];
    std::snprintf(number, sizeof number, "%d", numberOf(line));
    require(numberOf(number) == numberOf(line), "a number comes back");
}

void checkEntry(const M2SSDInf &entry)
{
    for (const uint16_t figure : kFigures) {
        const int16_t level = enduranceLevel(entry, figure);
        require(level == kLevelUnknown || (level >= 1 && level <= 5), "a level is one of five");
    }
}

// The table that the lines make, as far as it is looked at.
std::vector<M2SSDInf> entriesOf(std::string_view text)
{
    std::vector<M2SSDInf> entries;
    EnduranceLines lines;
    std::string_view line;
    while (entries.size() < kMaxM2SSD && lines.more() && takeTableLine(text, line)) {
        require(line.size() < kM2SSDLineBuffer, "a line fits its buffer");
        checkLine(line);
        M2SSDInf entry{};
        if (lines.take(line, entry) == TableLine::entry) {
            checkEntry(entry);
            entries.push_back(entry);
        }
    }
    return entries;
}

bool areSame(const M2SSDInf &left, const M2SSDInf &right)
{
    return std::memcmp(&left, &right, sizeof left) == 0;
}

// Reads a file into the table and compares the two.
void checkFile(fuzz::FuzzedMachine &machine, std::string_view content, const std::vector<M2SSDInf> &expected)
{
    machine.file(kInf, content);
    g_M2SSDCnt = 0;
    strgGetInfFile();
    require(g_M2SSDCnt >= 0 && g_M2SSDCnt <= kMaxM2SSD, "the table holds what it has room for");
    require(std::equal(g_M2SSDInf, g_M2SSDInf + g_M2SSDCnt, expected.begin(), expected.end(), areSame),
            "the table is what the lines say");
    for (const M2SSDInf &entry : expected) {
        char model[sizeof entry.model + 1] = "";
        std::memcpy(model, entry.model, sizeof entry.model);
        require(findM2SSD(g_M2SSDInf, g_M2SSDCnt, model) != nullptr, "a model of the table is found in it");
    }
}

std::string printed(const std::vector<M2SSDInf> &entries)
{
    std::string text = std::string(kEnduranceSection) + "\n";
    for (const M2SSDInf &entry : entries) {
        char line[kM2SSDLineBuffer];
        std::snprintf(line, sizeof line, "%.16s,%d,%d,%d,%d,%d,%d,%d\n", entry.model, entry.attid, entry.max, entry.lv5,
                      entry.lv4, entry.lv3, entry.lv2, entry.min);
        text += line;
    }
    return text;
}

// A model that begins with a bracket would begin the next section.
bool canBePrinted(const M2SSDInf &entry)
{
    return entry.model[0] != '[';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static fuzz::FuzzedMachine machine;
    const std::string_view content = fuzz::textOf({data, size});
    const std::vector<M2SSDInf> entries = entriesOf(content);
    checkFile(machine, content, entries);
    if (std::all_of(entries.begin(), entries.end(), canBePrinted)) {
        checkFile(machine, printed(entries), entries);
    }
    machine.requireAllClosed();
    return 0;
}
