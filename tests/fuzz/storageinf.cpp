// SPDX-License-Identifier: Apache-2.0
// storage.inf: its lines, its sections, and the lists that come of it.
#include "collect/inf/storage_inf.h"

#include "collect/base/text_scan.h"
#include "collect/inf/inf_parse.h"
#include "collect/inf/inf_section.h"
#include "fuzz/fuzz.h"
#include "fuzz/lists.h"
#include "fuzz/machine.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <string>
#include <vector>

using namespace tavstrg;

using fuzz::isWithin;
using fuzz::require;

namespace {

constexpr char kInf[] = "/opt/qlm/tavkit_sa/data/storage.inf";
using Names = std::vector<std::string>; // in the file's order

void checkLine(std::string_view line)
{
    std::string_view name;
    const DriverLine kind = parseDriverLine(line, name);
    require(kind != DriverLine::name || (isWithin(name, line) && !name.empty() && name.size() <= kMaxDriverName &&
                                         name.find_first_of(" \t\n\r#") == name.npos),
            "a name is one word of its line");
    const fuzz::ExactString text(line);
    char out[kMaxDriverName + 1] = "";
    int32_t status = -1;
    const int result = GetInfoFromLine(text.text(), out, &status);
    fuzz::requireTerminated(out);
    require(result == 1 ? status == 0 && out[0] != '\0' : status == -4 || status == -5,
            "a refused line has its status");
}

void checkSections(std::string_view text)
{
    InfSections sections;
    if (splitInfSections(text, kGroupManagementPort, kGroupDiagnosticPort, sections)) {
        require(isWithin(sections.first, text) && isWithin(sections.second, text) &&
                    sections.first.size() + sections.second.size() <= text.size(),
                "sections do not overlap");
    }
    size_t taken = 0;
    std::string_view rest = text;
    std::string_view line;
    while (takeLine(rest, line)) {
        require(line.find('\n') == line.npos && isWithin(line, text), "a line is one");
        taken += line.size() + 1;
        checkLine(line);
    }
    require(taken == text.size() || taken == text.size() + 1, "every byte is in a line");
}

Names namesOf(const StorageInfo *list)
{
    Names names;
    fuzz::lengthOf(list, [&names](const StorageInfo &node, int) {
        fuzz::requireTerminated(node.name);
        names.emplace_back(fieldText(node.name));
    });
    std::reverse(names.begin(), names.end());
    return names;
}

struct Lists {
    int result = 0;
    Names management;
    Names diagnostic;
};

Lists listsOf(fuzz::FuzzedMachine &machine, std::string_view content)
{
    machine.file(kInf, content);
    StorageInfo *management = nullptr;
    StorageInfo *diagnostic = nullptr;
    int32_t status = 77;
    Lists lists;
    lists.result = CreatStorageInfoTable(&management, &diagnostic, &status);
    const bool told = status == 1 || status == -4 || status == -9;
    require(lists.result == 1 ? status == 0 : told && management == nullptr && diagnostic == nullptr,
            "a failure tells its status and gives no list");
    lists.management = namesOf(management);
    lists.diagnostic = namesOf(diagnostic);
    DestroyStorageInfoTable(&management);
    DestroyStorageInfoTable(&diagnostic);
    require(management == nullptr && diagnostic == nullptr, "a freed list is null");
    return lists;
}

std::string printed(const Lists &lists)
{
    std::string text = std::string(kGroupManagementPort) + "\n";
    for (const std::string &name : lists.management) {
        text += name + "\n";
    }
    text += std::string(kGroupDiagnosticPort) + "\n";
    for (const std::string &name : lists.diagnostic) {
        text += name + "\n";
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view content = fuzz::textOf({data, size});
    checkSections(content);
    static fuzz::FuzzedMachine machine;
    const Lists lists = listsOf(machine, content);
    require(lists.management.size() + lists.diagnostic.size() <= fuzz::linesIn(content), "a line is at most one name");
    const Lists again = listsOf(machine, printed(lists));
    require(again.result == 1 && again.management == lists.management && again.diagnostic == lists.diagnostic,
            "names come back in their order");
    machine.requireAllClosed();
    return 0;
}
