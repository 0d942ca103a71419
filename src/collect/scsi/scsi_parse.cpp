// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_parse.h"

#include "collect/base/text_scan.h"

#include <algorithm>
#include <array>
#include <span>

using namespace tavstrg;

namespace {

// By the peripheral device type. Deliberate: the spelling of 3 and 9; these texts decide the device class.
constexpr std::array<std::string_view, 10> kTypes = {
    "Direct-Access", "Sequential-Access", "Printer",        "Proccessor",     "WORM",
    "CD-ROM",        "Scanner",           "Optical Device", "Medium Changer", "Commnunications",
};

constexpr std::array<std::string_view, 6> kNeverHostAdapters = {"scsi", "iscsi", "sg", "usb", "ovfx2", "hub"};
constexpr std::array<std::string_view, 3> kUsbDrivers = {"usb", "ovfx2", "hub"};

constexpr size_t kHostLabel = 4; // characters of "scsi" before the number of a host's name
constexpr int kFirstSysfsRelease = 26;

bool beginsWithOneOf(std::string_view text, std::span<const std::string_view> prefixes)
{
    return std::ranges::any_of(prefixes, [text](std::string_view prefix) { return text.starts_with(prefix); });
}

// A LUN can be a 64-bit address of several levels; its low 32 bits are kept.
bool takeNumber(TextScan &scan, int32_t &number)
{
    int64_t wide = 0;
    const bool read = scan.number(wide);
    number = static_cast<int32_t>(wide);
    return read;
}

// A value that ends at a colon runs into the key of the next value.
std::string_view withoutNextKey(std::string_view text)
{
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    text = text.substr(0, text.find_last_of(kBlanks) + 1);
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

} // namespace

int tavstrg::interfaceOfRelease(std::string_view release)
{
    char digits[3] = {};
    size_t count = 0;
    for (const size_t position : {size_t{0}, size_t{2}, size_t{3}}) {
        if (position < release.size() && !(position == 3 && release[position] == '.')) {
            digits[count++] = release[position];
        }
    }
    int number = 0;
    TextScan{{digits, count}}.number(number);
    return number < kFirstSysfsRelease ? kInterfaceProcfs : kInterfaceSysfs;
}

std::string_view tavstrg::scsiTypeText(std::string_view type)
{
    const bool digit = type.size() == 1 && type[0] >= '0' && type[0] <= '9';
    return digit ? kTypes[static_cast<size_t>(type[0] - '0')] : "Unknown";
}

bool tavstrg::parseScsiAddress(std::string_view name, ScsiAddress &address)
{
    TextScan scan{name};
    return scan.number(address.host) && scan.literal(":") && takeNumber(scan, address.channel) && scan.literal(":") &&
           takeNumber(scan, address.id) && scan.literal(":") && takeNumber(scan, address.lun);
}

bool tavstrg::parseHostName(std::string_view name, int32_t &host)
{
    TextScan scan{name};
    return scan.literal("host") && scan.number(host) && host >= 0;
}

bool tavstrg::parseHostNumber(std::string_view name, int32_t &host)
{
    TextScan scan{name};
    return name.find_first_not_of("0123456789") == std::string_view::npos && scan.number(host);
}

bool tavstrg::isNeverHostAdapter(std::string_view driver)
{
    return beginsWithOneOf(driver, kNeverHostAdapters);
}

bool tavstrg::isUsbDriver(std::string_view driver)
{
    return beginsWithOneOf(driver, kUsbDrivers);
}

bool tavstrg::parseProcHostLine(std::string_view line, ScsiAddress &address)
{
    TextScan scan{line};
    std::string_view label;
    std::string_view host;
    const bool whole = scan.word(label) && scan.word(host) && scan.word(label) && takeNumber(scan, address.channel) &&
                       scan.word(label) && takeNumber(scan, address.id) && scan.word(label) &&
                       takeNumber(scan, address.lun);
    if (!whole || host.size() <= kHostLabel) {
        return false;
    }
    TextScan number{host.substr(kHostLabel)};
    return number.number(address.host);
}

bool tavstrg::namedValue(std::string_view line, std::string_view key, std::string_view &value)
{
    constexpr std::string_view kSeparators = ": \t\r\n";
    if (key.empty()) {
        return false;
    }
    size_t word = line.find_first_not_of(kSeparators);
    while (word != std::string_view::npos && !line.substr(word).starts_with(key)) {
        word = line.find_first_not_of(kSeparators, std::min(line.find_first_of(kSeparators, word), line.size()));
    }
    const size_t colon = word == std::string_view::npos ? word : line.find(':', word);
    if (colon == std::string_view::npos) {
        return false;
    }
    std::string_view text = line.substr(colon + 1);
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    const size_t end = text.find_first_of(":\n");
    value = text.substr(0, end);
    if (end != std::string_view::npos && text[end] == ':') {
        value = withoutNextKey(value);
    }
    return true;
}
