// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/check_lines.h"

#include "tavstrg/words.h"

#include "collect/base/text_scan.h"
#include "collect/inf/inf_parse.h"
#include "collect/inf/noscsi_inf_parse.h"
#include "collect/scsi/scsi_parse.h"

#include <algorithm>

using namespace tavstrg;

namespace tool {
namespace {

using Lines = std::vector<CheckedLine>;

std::string quoted(std::string_view text)
{
    return '"' + printable(text) + '"';
}

CheckedLine skipped(size_t line, const std::string &why)
{
    return {line, Verdict::skipped, why};
}

enum class LinePlace { management, diagnostic, header, before };

struct PlacedLine {
    size_t number;
    std::string_view text; // with its newline
    LinePlace place;
};

struct PlacedLines {
    bool usable = false;
    std::vector<PlacedLine> lines{};
};

LinePlace linePlaceOf(const char *at, const char *next, const InfSections &sections)
{
    if (sections.second.data() == nullptr) // no headers: everything is the first section
    {
        return LinePlace::management;
    }
    if (at >= sections.second.data()) {
        return LinePlace::diagnostic;
    }
    if (at < sections.first.data()) {
        return next == sections.first.data() ? LinePlace::header : LinePlace::before;
    }
    return next == sections.second.data() ? LinePlace::header : LinePlace::management;
}

PlacedLines placeLines(std::string_view text)
{
    InfSections sections;
    if (!splitInfSections(text, kGroupManagementPort, kGroupDiagnosticPort, sections)) {
        return {};
    }
    PlacedLines placed{true};
    std::string_view rest = text;
    for (std::string_view line; takeWholeLine(rest, line);) {
        placed.lines.push_back({placed.lines.size() + 1, line, linePlaceOf(line.data(), rest.data(), sections)});
    }
    return placed;
}

// Not reported, whatever the provider's reason for skipping them.
bool isBlankOrComment(std::string_view line)
{
    const size_t first = line.find_first_not_of(" \t\r\n");
    return first == std::string_view::npos || line[first] == '#';
}

// One line of either file, its text and meaning filled; an empty text for what is not reported.
using Judge = CheckedLine (*)(const PlacedLine &line);

Lines checkSections(std::string_view text, Judge judge)
{
    const std::string_view read = untilNul(text);
    const PlacedLines placed = placeLines(read);
    if (!placed.usable) {
        return {skipped(0, std::string("needs both ") + kGroupManagementPort + " and, after it, " +
                               kGroupDiagnosticPort + ", or neither; it is ignored as if it were absent")};
    }
    Lines lines;
    for (const PlacedLine &line : placed.lines) {
        if (line.place == LinePlace::header || isBlankOrComment(line.text)) {
            continue;
        }
        CheckedLine checked = judge(line);
        checked.line = line.number;
        if (checked.verdict == Verdict::accepted && line.place == LinePlace::before) {
            checked = skipped(line.number, std::string("before ") + kGroupManagementPort);
        }
        if (!checked.text.empty()) {
            lines.push_back(checked);
        }
    }
    if (read.size() < text.size()) {
        lines.push_back(
            skipped(1 + static_cast<size_t>(std::ranges::count(read, '\n')), "a NUL byte: nothing behind it is read"));
    }
    return lines;
}

const char *sectionOf(const PlacedLine &line)
{
    return line.place == LinePlace::diagnostic ? "Diagnostic Port" : "Management Port";
}

CheckedLine accepted(const PlacedLine &line, const std::string &text, const char *otherwise)
{
    CheckedLine checked{line.number, Verdict::accepted, text};
    if (line.place == LinePlace::diagnostic) {
        checked.text += std::string(" (") + kGroupDiagnosticPort + ": " + otherwise + ")";
    }
    checked.meaning["section"] = sectionOf(line);
    return checked;
}

CheckedLine judgeDriver(const PlacedLine &line)
{
    std::string_view name;
    switch (parseDriverLine(withoutLineEnd(line.text), name)) {
    case DriverLine::tooLong:
        return skipped(0, "longer than " + std::to_string(kMaxDriverLine) + " characters");
    case DriverLine::header:
        return skipped(0, "repeats a section header");
    case DriverLine::nameTooLong:
        return skipped(0, "the driver name has more than " + std::to_string(kMaxDriverName) + " characters");
    case DriverLine::name:
        break;
    case DriverLine::comment:
    case DriverLine::blank:
        return {};
    }
    if (isNeverHostAdapter(name)) {
        return skipped(0, "driver " + quoted(name) +
                              " is never managed, like all whose names begin with scsi, iscsi, sg, usb, ovfx2 or hub");
    }
    CheckedLine checked = accepted(line, "driver " + quoted(name), "not managed");
    checked.meaning["driver"] = name;
    return checked;
}

// A driver in both sections is managed, which its line under [Diagnostic Port] does not suggest.
Lines withContradictions(const Lines &lines)
{
    const auto sectionOf = [](const CheckedLine &line) { return line.meaning.value("section", ""); };
    Lines all;
    for (const CheckedLine &line : lines) {
        all.push_back(line);
        const bool both = line.verdict == Verdict::accepted && sectionOf(line) == "Diagnostic Port" &&
                          std::ranges::any_of(lines, [&](const CheckedLine &other) {
                              return other.verdict == Verdict::accepted && sectionOf(other) == "Management Port" &&
                                     other.meaning.value("driver", "") == line.meaning.value("driver", "");
                          });
        if (both) {
            constexpr std::string_view kOtherwise = "not managed)";
            all.back().text.replace(all.back().text.rfind(kOtherwise), kOtherwise.size(), "no effect)");
            all.push_back({line.line, Verdict::note,
                           std::string("managed all the same: it is also under ") + kGroupManagementPort + ", and " +
                               kGroupDiagnosticPort + " has no effect"});
        }
    }
    return all;
}

std::string keyProblem(KeyValue key, std::string_view name)
{
    const std::string text = quoted(name);
    switch (key) {
    case KeyValue::noKey:
        return "has no key " + text;
    case KeyValue::noColon:
        return "has no colon directly behind " + text;
    default:
        return "the value of " + text + " has more than " + std::to_string(kMaxNoScsiKey) + " characters";
    }
}

CheckedLine acceptedExclusion(const PlacedLine &line, const NoScsiReading &reading)
{
    const std::string model = "model beginning with " + quoted(reading.model);
    const std::string vendor = "vendor exactly " + quoted(reading.vendor);
    const std::string both = reading.model.empty()    ? vendor + ", any model"
                             : reading.vendor.empty() ? "any vendor, " + model
                                                      : vendor + ", " + model;
    CheckedLine checked = accepted(line, "excludes disks: " + both, "excludes nothing");
    checked.meaning["vendor"] = reading.vendor;
    checked.meaning["model"] = reading.model;
    return checked;
}

CheckedLine judgeExclusion(const PlacedLine &line)
{
    const NoScsiReading reading = parseNoScsiLine(line.text);
    switch (reading.kind) {
    case NoScsiLine::tooLong:
        return skipped(0, "longer than " + std::to_string(kMaxNoScsiLine) + " characters, its end included");
    case NoScsiLine::header:
        return skipped(0, "repeats a section header");
    case NoScsiLine::badVendor:
        return skipped(0, keyProblem(reading.key, kVendorKey));
    case NoScsiLine::badModel:
        return skipped(0, keyProblem(reading.key, kModelKey));
    case NoScsiLine::bothEmpty:
        return skipped(0, "neither vendor nor model");
    case NoScsiLine::entry:
        return acceptedExclusion(line, reading);
    case NoScsiLine::empty:
    case NoScsiLine::blank:
    case NoScsiLine::comment:
        break;
    }
    return {};
}

} // namespace

std::vector<CheckedLine> checkStorage(std::string_view text)
{
    return withContradictions(checkSections(text, judgeDriver));
}

std::vector<CheckedLine> checkNoScsi(std::string_view text)
{
    return checkSections(text, judgeExclusion);
}

} // namespace tool
