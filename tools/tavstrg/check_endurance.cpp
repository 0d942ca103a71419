// SPDX-License-Identifier: Apache-2.0
// The endurance table, line by line.

#include "tavstrg/check_lines.h"
#include "tavstrg/words.h"

#include "collect/inf/noscsi_inf_parse.h"
#include "endurance/endurance_parse.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

using namespace tavstrg;

namespace tool {
namespace {

using Fields = std::string_view[kM2SSDFields + 1];

static_assert(kM2SSDFields == 8);
constexpr std::array<const char *, kM2SSDFields> kNames = {"model",   "attribute", "max",     "level 5",
                                                           "level 4", "level 3",   "level 2", "min"};

std::string_view modelOf(const M2SSDInf &entry)
{
    return {entry.model, ::strnlen(entry.model, sizeof entry.model)};
}

struct Level {
    int level, from, to;
};

std::array<Level, 5> levelsOf(const M2SSDInf &e)
{
    return {{{5, e.lv5, e.max},
             {4, e.lv4, e.lv5 - 1},
             {3, e.lv3, e.lv4 - 1},
             {2, e.lv2, e.lv3 - 1},
             {1, e.min, e.lv2 - 1}}};
}

CheckedLine accepted(size_t number, const M2SSDInf &entry)
{
    const std::string_view model = modelOf(entry);
    const bool prefix = model.size() == sizeof entry.model;
    CheckedLine checked{number, Verdict::accepted,
                        std::string("drives whose model ") + (prefix ? "begins with \"" : "is exactly \"") +
                            printable(model) + "\": attribute " + std::to_string(entry.attid)};
    checked.meaning = {{"model", model}, {"prefix", prefix}, {"attribute", entry.attid}};
    for (const Level &level : levelsOf(entry)) {
        checked.text += ", level " + std::to_string(level.level) + " from " + std::to_string(level.from) + " to " +
                        std::to_string(level.to);
        checked.meaning["levels"].push_back({{"level", level.level}, {"from", level.from}, {"to", level.to}});
    }
    return checked;
}

// Whether a field is a number as a person means it, within what its column holds.
bool isPlainNumber(std::string_view field, bool attribute)
{
    field = trimmed(field, " \t");
    int32_t number = 0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
    using Short = std::numeric_limits<int16_t>;
    const bool fits = attribute ? number >= 1 && number <= 255 : number >= Short::min() && number <= Short::max();
    return error == std::errc{} && end == field.data() + field.size() && fits;
}

class EnduranceCheck {
public:
    std::vector<CheckedLine> run(std::string_view text)
    {
        for (std::string_view line; takeWholeLine(text, line);) {
            ++number_;
            checkLine(line);
        }
        finish();
        return checked_;
    }

private:
    void report(Verdict verdict, const std::string &text) { checked_.push_back({number_, verdict, text}); }

    // A line of the file is one line of the table, or several when it is too long.
    void checkLine(std::string_view line)
    {
        if (inSection_ && withoutBreaks(line).size() >= kM2SSDLineBuffer) {
            report(Verdict::note, "longer than " + std::to_string(kM2SSDLineBuffer - 1) +
                                      " characters: what follows is read as a line of its own");
        }
        for (std::string_view piece; takeTableLine(line, piece);) {
            checkPiece(piece);
        }
    }

    void checkPiece(std::string_view piece)
    {
        const bool empty = withoutBreaks(piece).empty();
        if (!isRead(piece)) {
            if (piece.starts_with('[')) {
                inSection_ = false;
            } // what follows would not be read of any table
            outside_ += inSection_ || empty ? 0 : 1;
            return;
        }
        M2SSDInf entry = {};
        switch (lines_.take(piece, entry)) {
        case TableLine::sectionBegins:
            inSection_ = true;
            break;
        case TableLine::sectionEnds:
            inSection_ = false;
            ++outside_;
            break;
        case TableLine::outside:
            ++outside_;
            break;
        case TableLine::otherFields:
            checkFields(piece);
            break;
        case TableLine::entry:
            checkEntry(entry, piece);
            break;
        case TableLine::empty:
            break;
        }
    }

    // Not behind the section, nor behind the last entry that the table holds, nor behind the last line that is read.
    bool isRead(std::string_view piece)
    {
        const bool full = entries_.size() == kMaxM2SSD;
        const bool reportable =
            inSection_ && !withoutBreaks(piece).empty() && !piece.starts_with('#') && !piece.starts_with('[');
        if (full && reportable) {
            report(Verdict::skipped, "the table is full: it holds " + std::to_string(kMaxM2SSD) + " entries");
        } else if (!lines_.more() && reportable) {
            report(Verdict::skipped, "only " + std::to_string(kMaxM2SSDLines) + " lines are read");
        }
        return lines_.more() && !full;
    }

    void checkFields(std::string_view piece)
    {
        Fields fields;
        const size_t count = splitTableLine(piece, fields);
        if (!piece.starts_with('#')) {
            report(Verdict::skipped, "has " +
                                         (count > kM2SSDFields ? std::string("more than 8") : std::to_string(count)) +
                                         " fields instead of 8");
        }
    }

    void checkEntry(const M2SSDInf &entry, std::string_view piece)
    {
        checked_.push_back(accepted(number_, entry));
        const std::string model(modelOf(entry));
        if (findM2SSD(entries_.data(), static_cast<int32_t>(entries_.size()), model.c_str()) != nullptr) {
            report(Verdict::note, "never used: an earlier entry is for this model");
        }
        entries_.push_back(entry);
        Fields fields;
        splitTableLine(piece, fields);
        if (fields[0].starts_with('#')) {
            report(Verdict::note, "the table has no comments: \"#\" is part of the model");
        }
        if (printable(fields[0]) != fields[0]) {
            report(Verdict::note, "blanks and unprintable bytes are part of the model");
        }
        for (size_t i = 1; i < kM2SSDFields; ++i) {
            if (!isPlainNumber(fields[i], i == 1)) {
                report(Verdict::note, std::string(kNames[i]) + " is \"" + printable(fields[i]) + "\"" +
                                          (i == 1 ? ", no attribute id from 1 to 255" : ", no number of 16 bits"));
            }
        }
        for (const Level &level : levelsOf(entry)) {
            if (level.from > level.to) {
                report(Verdict::note,
                       "level " + std::to_string(level.level) + " holds no figure: the bounds do not fall");
            }
        }
    }

    void finish()
    {
        number_ = 0;
        if (!inSection_ && entries_.empty() && outside_ > 0 && lines_.more()) {
            report(Verdict::skipped, "no line begins with \"" + std::string(kEnduranceSection) + "\": nothing is read");
        } else if (outside_ > 0) {
            report(Verdict::note, counted(outside_, "line") + " outside " + std::string(kEnduranceSection) + " " +
                                      (outside_ == 1 ? "is" : "are") + " not read");
        }
    }

    EnduranceLines lines_;
    std::vector<CheckedLine> checked_;
    std::vector<M2SSDInf> entries_;
    size_t number_ = 0;
    size_t outside_ = 0;
    bool inSection_ = false;
};

} // namespace

std::vector<CheckedLine> checkEndurance(std::string_view text)
{
    return EnduranceCheck().run(text);
}

} // namespace tool
