// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/config.h"

#include "tavstrg/nearest.h"
#include "tavstrg/words.h"

#include "collect/base/text_scan.h"
#include "runtime/holders.h"
#include "runtime/whole.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <iterator>
#include <utility>

namespace tool::monitor {
namespace {

using tavstrg::FileDesc;

constexpr char kNo[] = "no";
constexpr char kYes[] = "yes";
constexpr int kLeastKilobytes = 16;
constexpr int kMostKilobytes = 1 << 20;

std::string quoted(std::string_view text)
{
    return '"' + printable(text) + '"';
}

bool isPath(std::string_view value)
{
    return value.starts_with('/') && !value.ends_with('/') && value.size() < PATH_MAX;
}

// Each of these sets a field, or returns why it does not.
std::string setNumber(std::string_view value, int least, int most, int &field)
{
    int number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < least || number > most) {
        return "must be a number from " + std::to_string(least) + " to " + std::to_string(most) + ", not " +
               quoted(value);
    }
    field = number;
    return "";
}

std::string setPath(std::string_view value, std::string &field)
{
    if (!isPath(value)) {
        return "must be a path that begins with \"/\" and does not end with it, not " + quoted(value);
    }
    field = value;
    return "";
}

std::string setPathOrNo(std::string_view value, std::string &field)
{
    if (value == kNo) {
        field.clear();
        return "";
    }
    return isPath(value) ? setPath(value, field)
                         : "must be \"no\" or a path that begins with \"/\", not " + quoted(value);
}

std::string setYesOrNo(std::string_view value, bool &field)
{
    if (value != kYes && value != kNo) {
        return "must be \"yes\" or \"no\", not " + quoted(value);
    }
    field = value == kYes;
    return "";
}

std::string setJournal(std::string_view value, std::string &field)
{
    if (value == kYes) {
        field = Config{}.journal;
        return "";
    }
    return setPathOrNo(value, field);
}

struct Setting {
    const char *name;
    std::string (*set)(std::string_view value, Config &config);
};
constexpr Setting kSettings[] = {
    {"cycle", [](std::string_view value, Config &to) { return setNumber(value, kLeastCycle, kMostCycle, to.cycle); }},
    {"state", [](std::string_view value, Config &to) { return setPath(value, to.state); }},
    {"journal", [](std::string_view value, Config &to) { return setJournal(value, to.journal); }},
    {"hooks", [](std::string_view value, Config &to) { return setPathOrNo(value, to.hooks); }},
    {"lines", [](std::string_view value, Config &to) { return setPathOrNo(value, to.lines); }},
    {"lines-kilobytes",
     [](std::string_view value, Config &to) {
         return setNumber(value, kLeastKilobytes, kMostKilobytes, to.linesKilobytes);
     }},
    {"agent", [](std::string_view value, Config &to) { return setYesOrNo(value, to.agent); }},
    {"metrics", [](std::string_view value, Config &to) { return setPathOrNo(value, to.metrics); }},
};

std::string unknownName(std::string_view name)
{
    std::vector<std::string> names;
    std::transform(std::begin(kSettings), std::end(kSettings), std::back_inserter(names),
                   [](const Setting &setting) { return setting.name; });
    const std::string meant = nearest(std::string(name), names);
    return "unknown name " + quoted(name) + (meant.empty() ? "" : "; did you mean " + meant + "?");
}

std::string_view withoutBlanks(std::string_view text)
{
    return tavstrg::withoutTrailing(tavstrg::withoutLeading(text, tavstrg::kBlanks), " \t\r");
}

// Takes one line. seen: the line that has set each setting, 0: none. Returns what is wrong; empty for a good line.
std::string takeSetting(std::string_view line, size_t number, size_t (&seen)[std::size(kSettings)], Config &config)
{
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        return "is not NAME = VALUE";
    }
    const std::string_view name = withoutBlanks(line.substr(0, equals));
    const auto *const setting = std::find_if(std::begin(kSettings), std::end(kSettings),
                                             [name](const Setting &one) { return name == one.name; });
    if (setting == std::end(kSettings)) {
        return unknownName(name);
    }
    size_t &first = seen[setting - std::begin(kSettings)];
    if (first != 0) {
        return std::string(name) + " is set in line " + std::to_string(first) + " already";
    }
    first = number;
    const std::string_view value = withoutBlanks(line.substr(equals + 1));
    const bool isText =
        std::none_of(value.begin(), value.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; });
    const std::string reason = isText ? setting->set(value, config) : "contains a control character";
    return reason.empty() ? "" : std::string(name) + " " + reason;
}

int readConfigText(const std::string &path, std::string &text)
{
    const FileDesc file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info = {};
    if (!file || ::fstat(file.get(), &info) != 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode)) {
        return EINVAL;
    }
    text.resize(kMostConfigBytes + 1);
    const ssize_t got = tavstrg::readWhole(file.get(), text);
    text.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return got < 0 ? errno : 0;
}

} // namespace

ParsedConfig parseConfig(std::string_view text)
{
    ParsedConfig parsed;
    size_t seen[std::size(kSettings)] = {};
    size_t number = 0;
    for (std::string_view line; tavstrg::takeLine(text, line);) {
        ++number;
        line = withoutBlanks(line);
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        if (std::string reason = takeSetting(line, number, seen, parsed.config); !reason.empty()) {
            parsed.problems.push_back({number, std::move(reason)});
        }
    }
    return parsed;
}

ParsedConfig readConfig(const std::string &path, bool mustExist)
{
    std::string text;
    const int error = readConfigText(path, text);
    if (error == ENOENT && !mustExist) {
        return {};
    }
    if (error != 0) {
        return {{}, {{0, error == EINVAL ? "is not a regular file" : std::strerror(error)}}};
    }
    if (text.size() > kMostConfigBytes) {
        return {{}, {{0, "has more than " + std::to_string(kMostConfigBytes) + " bytes"}}};
    }
    return parseConfig(text);
}

std::string problemLines(const std::string &path, const std::vector<ConfigProblem> &problems)
{
    std::string text;
    for (const ConfigProblem &problem : problems) {
        text += (text.empty() ? "" : "\n") + path + (problem.line == 0 ? "" : ":" + std::to_string(problem.line)) +
                ": " + problem.reason;
    }
    return text;
}

} // namespace tool::monitor
