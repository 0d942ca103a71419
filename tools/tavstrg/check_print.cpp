// SPDX-License-Identifier: Apache-2.0
// What was checked, for people and for programs.

#include "tavstrg/check.h"
#include "tavstrg/json_document.h"
#include "tavstrg/words.h"

#include <algorithm>
#include <filesystem>

namespace tool {
namespace {

const char *wordFor(Verdict verdict)
{
    return verdict == Verdict::accepted ? "accepted" : verdict == Verdict::skipped ? "skipped" : "note";
}

const char *wordFor(FileState state)
{
    switch (state) {
    case FileState::absent:
        return "absent";
    case FileState::tooLarge:
        return "tooLarge";
    case FileState::unreadable:
        return "unreadable";
    default:
        return "read";
    }
}

std::string located(const CheckedFile &file, const CheckedLine &line)
{
    return printable(file.path) + (line.line == 0 ? "" : ":" + std::to_string(line.line)) + ": ";
}

size_t countOf(const CheckedFile &file, Verdict verdict)
{
    return static_cast<size_t>(std::count_if(file.lines.begin(), file.lines.end(),
                                             [verdict](const CheckedLine &line) { return line.verdict == verdict; }));
}

Json lineJson(const CheckedLine &line)
{
    return {{"line", line.line == 0 ? Json(nullptr) : Json(line.line)},
            {"verdict", wordFor(line.verdict)},
            {"text", line.text},
            {"meaning", line.meaning}};
}

} // namespace

std::string checkedText(const std::vector<CheckedFile> &files, const std::vector<MachineFinding> &machine)
{
    std::string text;
    for (const CheckedFile &file : files) {
        for (const CheckedLine &line : file.lines) {
            if (line.verdict != Verdict::skipped) {
                text += located(file, line) + wordFor(line.verdict) + ": " + line.text + "\n";
            }
        }
        if (file.state == FileState::read) {
            text += printable(file.path) + ": " + counted(countOf(file, Verdict::accepted), "line") + " accepted, " +
                    std::to_string(countOf(file, Verdict::skipped)) + " skipped\n";
        }
    }
    for (const MachineFinding &finding : machine) {
        text += finding.problem ? "" : "note: " + finding.text + "\n";
    }
    return text;
}

std::string checkedJson(const std::vector<CheckedFile> &files, const std::vector<MachineFinding> &machine)
{
    Json json = document("check");
    json["files"] = Json::array();
    for (const CheckedFile &file : files) {
        Json lines = Json::array();
        for (const CheckedLine &line : file.lines) {
            lines.push_back(lineJson(line));
        }
        json["files"].push_back({{"name", std::filesystem::path(file.path).filename().string()},
                                 {"file", file.path},
                                 {"state", wordFor(file.state)},
                                 {"accepted", countOf(file, Verdict::accepted)},
                                 {"skipped", countOf(file, Verdict::skipped)},
                                 {"lines", lines}});
    }
    json["machine"] = Json::array();
    for (const MachineFinding &finding : machine) {
        json["machine"].push_back({{"verdict", finding.problem ? "problem" : "note"}, {"text", finding.text}});
    }
    return written(json);
}

std::string checkedProblems(const std::vector<CheckedFile> &files, const std::vector<MachineFinding> &machine)
{
    std::string text;
    for (const CheckedFile &file : files) {
        for (const CheckedLine &line : file.lines) {
            if (line.verdict == Verdict::skipped) {
                text += (text.empty() ? "" : "\n") + located(file, line) + "skipped: " + line.text;
            }
        }
    }
    for (const MachineFinding &finding : machine) {
        text += finding.problem ? (text.empty() ? "" : "\n") + finding.text : "";
    }
    return text;
}

} // namespace tool
