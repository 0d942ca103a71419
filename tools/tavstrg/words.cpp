// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/words.h"

#include <algorithm>
#include <array>
#include <span>

namespace tool {
namespace {

struct Word {
    int code;
    const char *text;
};

constexpr std::array<Word, 2> kInterfaces = {{{kScsi, "SCSI"}, {kIde, "IDE"}}};
constexpr std::array<Word, 5> kScsiTypes = {
    {{0, "hard disk"}, {1, "CD-ROM drive"}, {2, "tape drive"}, {3, "optical memory"}, {4, "other device"}}};
constexpr std::array<Word, 3> kIdeTypes = {{{2, "hard disk"}, {3, "CD-ROM drive"}, {1, "other device"}}};
constexpr std::array<Word, 3> kPositions = {{{kIdeMaster, "master"}, {kIdeSlave, "slave"}, {1, "position unknown"}}};
struct SmartWord {
    Smart state;
    const char *text, *name, *label;
};
constexpr std::array<SmartWord, 7> kSmart = {{
    {Smart::good, "good", "good", "good"},
    {Smart::failing, "FAILURE PREDICTED", "failing", "failing"},
    {Smart::notReadable, "not readable", "notReadable", "not_readable"},
    {Smart::notAsked, "not asked", "notAsked", "not_asked"},
    {Smart::notSupported, "not supported", "notSupported", "not_supported"},
    {Smart::unconfirmed, "no failure reported", "unconfirmed", "unconfirmed"},
    {Smart::unknownCode, "unknown code", "unknown", "unknown"},
}};
constexpr std::array<Word, 7> kLifeSpan = {{{kLifeSpanNotRead, "not read"},
                                            {0, "no level"},
                                            {1, "level 1 of 5, least endurance left"},
                                            {2, "level 2 of 5, little endurance left"},
                                            {3, "level 3 of 5, medium endurance left"},
                                            {4, "level 4 of 5, much endurance left"},
                                            {kMostEndurance, "level 5 of 5, most endurance left"}}};

std::string wordFor(std::span<const Word> words, int code, const std::string &unknown)
{
    for (const Word &word : words) {
        if (word.code == code) {
            return word.text;
        }
    }
    return unknown + " (" + std::to_string(code) + ")";
}

const SmartWord &wordOf(Smart smart)
{
    for (const SmartWord &word : kSmart) {
        if (word.state == smart) {
            return word;
        }
    }
    return kSmart.back();
}

} // namespace

std::string interfaceWords(int interfaceType)
{
    return interfaceType == -1 ? "unknown interface" : wordFor(kInterfaces, interfaceType, "unknown interface");
}

std::string deviceTypeWords(int interfaceType, int deviceType)
{
    return interfaceType == kIde ? wordFor(kIdeTypes, deviceType, "device of unknown type")
                                 : wordFor(kScsiTypes, deviceType, "device of unknown type");
}

bool isHardDisk(int interfaceType, int deviceType)
{
    return deviceType == (interfaceType == kIde ? 2 : 0);
}

std::string drivePositionWords(int ideConfiguration)
{
    return wordFor(kPositions, ideConfiguration, "unknown position");
}

const char *drivePositionName(int ideConfiguration)
{
    return ideConfiguration == kIdeMaster ? "master" : ideConfiguration == kIdeSlave ? "slave" : "unknown";
}

std::string smartWords(Smart smart)
{
    return wordOf(smart).text;
}

const char *smartName(Smart smart)
{
    return wordOf(smart).name;
}

const char *smartLabel(Smart smart)
{
    return wordOf(smart).label;
}

std::span<const Smart> allSmartStates()
{
    static constexpr std::array<Smart, 6> states = {Smart::good,     Smart::failing,      Smart::notReadable,
                                                    Smart::notAsked, Smart::notSupported, Smart::unconfirmed};
    return states;
}

std::string lifeSpanWords(int level)
{
    return wordFor(kLifeSpan, level, "unknown level");
}

std::string capacityWords(uint32_t mebibytes)
{
    constexpr std::array<const char *, 4> kUnits = {"MiB", "GiB", "TiB", "PiB"};
    if (mebibytes < 1024) {
        return std::to_string(mebibytes) + " MiB";
    }
    size_t unit = 0;
    uint64_t scale = 1; // MiB in the unit
    uint64_t tenths = 0;
    do { // a figure that rounds up to 1024.0 belongs to the next unit
        ++unit;
        scale *= 1024;
        tenths = (uint64_t{mebibytes} * 10 + scale / 2) / scale;
    } while (tenths >= 10240 && unit + 1 < kUnits.size());
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + kUnits[unit];
}

std::string counted(size_t number, std::string_view what)
{
    return std::to_string(number) + " " + std::string(what) + (number == 1 ? "" : "s");
}

std::string_view trimmed(std::string_view text, std::string_view blanks)
{
    const size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameIgnoringCase(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

bool saysSomething(std::string_view text)
{
    const std::string_view inner = trimmed(text);
    return !inner.empty() && inner != "Unknown" && inner != "Not Supported";
}

std::string printable(std::string_view text)
{
    text = trimmed(text);
    constexpr char kHex[] = "0123456789abcdef";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f) {
            result += c;
        } else {
            result += "\\x";
            result += kHex[byte >> 4];
            result += kHex[byte & 0xf];
        }
    }
    return result;
}

} // namespace tool
