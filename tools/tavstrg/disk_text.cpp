// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disk_text.h"

#include "tavstrg/words.h"
#include "tavstrg/wrap.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace tool {
namespace {

using namespace tavstrg::disks;

constexpr size_t kGap = 1; // columns between two columns
Mark markOf(HealthState state)
{
    switch (state) {
    case HealthState::failing:
    case HealthState::unreadable:
        return Mark::failure;
    case HealthState::warning:
        return Mark::warning;
    default:
        return Mark::none;
    }
}

const char *signOf(HealthState state)
{
    const Mark mark = markOf(state);
    return mark == Mark::failure ? "!!" : mark == Mark::warning ? "!" : "";
}

// Columns that may be cut, and to how much at least.
struct Cut {
    std::string_view name;
    size_t least;
    bool fromFront; // what tells two apart is at the end
};
constexpr Cut kCuts[] = {{"REASON", 20, false}, {"BAY", 8, true},     {"MODEL", 8, false},
                         {"SERIAL", 8, true},   {"VENDOR", 6, false}, {"ID", 12, true}};

const Cut *cutOf(const DiskColumn &column)
{
    const auto *const found =
        std::find_if(std::begin(kCuts), std::end(kCuts), [&column](const Cut &cut) { return cut.name == column.name; });
    return found == std::end(kCuts) ? nullptr : found;
}

// Takes columns of the widest text until the line fits.
void shrink(const DiskTable &table, std::vector<size_t> &widths, size_t total)
{
    while (table.width != 0 && total > table.width) {
        size_t widest = widths.size();
        for (size_t i = 0; i < widths.size(); ++i) {
            const Cut *const rule = cutOf(*table.columns[i]);
            const bool candidate = rule != nullptr && widths[i] > rule->least;
            if (candidate && (widest == widths.size() || widths[i] > widths[widest])) {
                widest = i;
            }
        }
        if (widest == widths.size()) {
            return;
        }
        --widths[widest];
        --total;
    }
}

std::vector<size_t> widthsOf(const std::vector<Disk> &disks, const DiskTable &table, size_t before)
{
    std::vector<size_t> widths;
    size_t total = before;
    for (const DiskColumn *column : table.columns) {
        size_t width = table.header ? column->name.size() : 0;
        for (const Disk &disk : disks) {
            width = std::max(width, column->text(disk).size());
        }
        widths.push_back(width);
        total += width + (widths.size() == 1 ? 0 : kGap);
    }
    shrink(table, widths, total);
    return widths;
}

// With "~" in place of what is cut off.
std::string cutTo(const std::string &text, size_t width, const Cut *rule)
{
    if (text.size() <= width) {
        return text;
    }
    return rule != nullptr && rule->fromFront ? "~" + text.substr(text.size() - width + 1)
                                              : text.substr(0, width - 1) + "~";
}

std::string cell(const std::string &text, size_t width, const DiskColumn &column)
{
    const std::string fitting = cutTo(text, width, cutOf(column));
    const std::string blanks(width - fitting.size(), ' ');
    return column.number ? blanks + fitting : fitting + blanks;
}

std::string withoutTrailingBlanks(std::string line)
{
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

template <class TextOf>
std::string lineOf(const DiskTable &table, const std::vector<size_t> &widths, const std::string &sign, TextOf textOf)
{
    std::string line = sign;
    for (size_t i = 0; i < table.columns.size(); ++i) {
        line += (i == 0 ? "" : std::string(kGap, ' ')) + cell(textOf(*table.columns[i]), widths[i], *table.columns[i]);
    }
    return withoutTrailingBlanks(line);
}

std::string quoted(const std::string &text)
{
    if (text.find_first_of(",\"\n") == std::string::npos) {
        return text;
    }
    std::string all = "\"";
    for (const char c : text) {
        all += c == '"' ? "\"\"" : std::string(1, c);
    }
    return all + "\"";
}

std::string attributesText(const Readings &readings)
{
    std::string text = "\nSMART attributes\n   ID  current  worst  threshold  raw\n";
    for (uint32_t i = 0; i < readings.attributeCount; ++i) {
        const AtaAttribute &one = readings.attributes[i];
        const std::string threshold = one.threshold ? std::to_string(one.threshold.value) : "";
        char line[96];
        std::snprintf(line, sizeof line, "  %3u  %7u  %5u  %9s  %" PRIu64 "\n", one.id, one.current, one.worst,
                      threshold.c_str(), one.raw);
        text += line;
    }
    return text;
}

} // namespace

std::string diskTable(const std::vector<Disk> &disks, const DiskTable &table, const TextStyle &style)
{
    const bool marked = std::any_of(disks.begin(), disks.end(),
                                    [](const Disk &disk) { return markOf(disk.health.state) != Mark::none; });
    const size_t before = marked ? 3 : 0;
    const std::vector<size_t> widths = widthsOf(disks, table, before);
    std::string text;
    if (table.header) {
        text = lineOf(table, widths, std::string(before, ' '),
                      [](const DiskColumn &column) { return std::string(column.name); }) +
               "\n";
    }
    for (const Disk &disk : disks) {
        std::string sign = marked ? signOf(disk.health.state) : "";
        sign.resize(before, ' ');
        const std::string line =
            lineOf(table, widths, sign, [&disk](const DiskColumn &column) { return column.text(disk); });
        text += painted(line, markOf(disk.health.state), style.colour) + "\n";
    }
    return text;
}

std::string diskCsv(const std::vector<Disk> &disks, const std::vector<const DiskColumn *> &columns, bool header)
{
    std::string text;
    const auto addLine = [&](const auto &textOf) {
        for (size_t i = 0; i < columns.size(); ++i) {
            text += (i == 0 ? "" : ",") + quoted(textOf(*columns[i]));
        }
        text += "\n";
    };
    if (header) {
        addLine([](const DiskColumn &column) { return std::string(column.name); });
    }
    for (const Disk &disk : disks) {
        addLine([&disk](const DiskColumn &column) {
            return column.value == nullptr ? column.text(disk) : column.value(disk);
        });
    }
    return text;
}

std::string diskPage(const Disk &disk, const TextStyle &style)
{
    Rows rows;
    for (const DiskColumn &column : diskColumns()) {
        if (const std::string text = column.text(disk); !text.empty()) {
            rows.emplace_back(std::string(column.words), text);
        }
    }
    rows.emplace_back("identity made of", nameOf(disk.idSource));
    return twoColumns(rows, style.width) +
           (disk.readings.attributeCount == 0 ? std::string() : attributesText(disk.readings));
}

std::string diskHealthText(const DiskReport &report, const TextStyle &style)
{
    std::string text;
    for (const Disk &disk : report.disks) {
        if (!needsAttention(disk.health.state)) {
            continue;
        }
        std::string line = std::string(signOf(disk.health.state)) + " " + disk.name + " " + nameOf(disk.health.state) +
                           ": " + disk.health.reason;
        line += disk.model[0] == '\0' ? "" : "; " + std::string(disk.model);
        line += disk.serial[0] == '\0' ? "" : ", serial " + std::string(disk.serial);
        line += disk.address[0] == '\0' ? "" : ", at " + std::string(disk.address);
        line += disk.bay[0] == '\0' ? "" : ", bay " + std::string(disk.bay);
        text += painted(line, markOf(disk.health.state), style.colour) + "\n";
    }
    text += report.disks.empty() ? "" : healthSummary(report.disks) + "\n";
    text += report.explanation.empty() ? "" : report.explanation + "\n";
    for (const std::string &note : report.notes) {
        text += note + "\n";
    }
    return text;
}

} // namespace tool
