// SPDX-License-Identifier: Apache-2.0
// noscsi.inf: its lines, and the lists that come of it.
#include "collect/inf/noscsi_inf.h"
#include "fuzz/fuzz.h"
#include "fuzz/lists.h"
#include "fuzz/machine.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

using namespace tavstrg;

using fuzz::isWithin;
using fuzz::require;

namespace {

constexpr char kInf[] = "/opt/qlm/tavkit_sa/data/noscsi.inf";
using Entries = std::vector<std::pair<std::string, std::string>>; // vendors and models in the file's order

void checkLine(std::string_view line)
{
    const NoScsiReading reading = parseNoScsiLine(line);
    if (reading.kind == NoScsiLine::entry) {
        require(isWithin(reading.vendor, line) && isWithin(reading.model, line), "both texts lie in the line");
        require(reading.vendor.size() <= kMaxNoScsiKey && reading.model.size() <= kMaxNoScsiKey,
                "both texts fit their fields");
        require(!reading.vendor.empty() || !reading.model.empty(), "an entry says something");
    }
    const fuzz::ExactString text(line);
    char vendor[kMaxNoScsiKey + 1] = "";
    char model[kMaxNoScsiKey + 1] = "";
    const int result = ParseVendorandModel(text.text(), vendor, kMaxNoScsiKey, model, kMaxNoScsiKey);
    fuzz::requireTerminated(vendor);
    fuzz::requireTerminated(model);
    require(result == 0 || result == -1, "a line has an entry or has none");
}

void checkLines(std::string_view text)
{
    size_t taken = 0;
    std::string_view rest = text;
    std::string_view line;
    while (takeWholeLine(rest, line)) {
        taken += line.size();
        checkLine(line);
    }
    require(taken == text.size(), "every byte is in a line");
}

Entries entriesOf(const NoSCSIInfo *list)
{
    Entries entries;
    fuzz::lengthOf(list, [&entries](const NoSCSIInfo &node, int) {
        fuzz::requireTerminated(node.vendor);
        fuzz::requireTerminated(node.model);
        entries.emplace_back(fieldText(node.vendor), fieldText(node.model));
    });
    std::reverse(entries.begin(), entries.end());
    return entries;
}

Entries listOf(fuzz::FuzzedMachine &machine, std::string_view content)
{
    machine.file(kInf, content);
    NoSCSIInfo *list = nullptr;
    NoSCSIInfo *diagnostic = nullptr;
    int32_t status = 77;
    const int result = CreateNoSCSIInfoTable(&list, &diagnostic, &status);
    require(result == 1 ? status == 0 : list == nullptr && diagnostic == nullptr && (status == 1 || status == -9),
            "a failure tells its status and gives no list");
    const Entries entries = entriesOf(list);
    for (const auto &[vendor, model] : entries) {
        require(!vendor.empty() || !model.empty(), "an entry says something");
        require(TAVStorageNoManage(list, vendor.c_str(), (model + "x").c_str()) == 1, "what is listed is left out");
    }
    require(entries.empty() || entriesOf(diagnostic).size() <= fuzz::linesIn(content), "a line is at most one entry");
    DestroyNoManageSCSIInfoTable(&list);
    DestroyNoManageSCSIInfoTable(&diagnostic);
    require(list == nullptr && diagnostic == nullptr, "a freed list is null");
    return entries;
}

// Texts that hold a key would be read as one.
bool isPlain(const std::string &text)
{
    return text.find(kVendorKey) == text.npos && text.find(kModelKey) == text.npos;
}

void checkRoundTrip(fuzz::FuzzedMachine &machine, const Entries &entries)
{
    Entries plain;
    std::string content;
    for (const auto &[vendor, model] : entries) {
        if (isPlain(vendor) && isPlain(model)) {
            plain.emplace_back(vendor, model);
            content += "Vendor:" + vendor + " Model:" + model + "\n";
        }
    }
    require(listOf(machine, content) == plain, "entries come back in their order");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view content = fuzz::textOf({data, size});
    checkLines(content);
    static fuzz::FuzzedMachine machine;
    const Entries entries = listOf(machine, content);
    require(entries.size() <= fuzz::linesIn(content), "a line is at most one entry");
    checkRoundTrip(machine, entries);
    machine.requireAllClosed();
    return 0;
}
