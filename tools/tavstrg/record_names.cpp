// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/record_names.h"

#include "tavstrg/words.h"

#include "sim/hex.h"

#include <algorithm>
#include <numeric>

namespace tool {
namespace {

constexpr size_t kIdentifyLength = 512;
constexpr size_t kLeastSearched = 6; // a shorter name is found by chance in replies that do not have it

constexpr std::string_view kPadding(" \t\n\r\0", 5); // around texts of devices

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool isUpper(char c)
{
    return c >= 'A' && c <= 'Z';
}

constexpr bool isLower(char c)
{
    return c >= 'a' && c <= 'z';
}

int digitOf(char c)
{
    return isDigit(c) ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// The kind of the character at each place: replacements of one kind of text are counted.
std::string kindOf(std::string_view token)
{
    std::string kind(token);
    for (char &c : kind) {
        c = isDigit(c) ? '0' : isUpper(c) ? 'A' : isLower(c) ? 'a' : c;
    }
    return kind;
}

// A number, written with the digits and letters that the kind of text has, from its end on.
std::string counted(std::string kind, uint64_t n)
{
    for (auto at = kind.rbegin(); at != kind.rend(); ++at) {
        const uint64_t base = *at == '0' ? 10 : *at == 'A' || *at == 'a' ? 26 : 1;
        *at = static_cast<char>(*at + static_cast<char>(n % base));
        n /= base;
    }
    return kind;
}

// The bytes of hexadecimal digits; empty if there is another character, or half a byte.
std::string bytesOf(const std::string &digits)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        const int high = digitOf(digits[i]);
        const int low = digitOf(digits[i + 1]);
        if (high < 0 || low < 0) {
            return {};
        }
        bytes += static_cast<char>(high << 4 | low);
    }
    return digits.size() % 2 == 0 ? bytes : std::string();
}

// Whether a hexadecimal digit of a number says what it is, or who gave it: SPC-5, 7.7.6.6, NVMe 1.4, 7.10, RFC 4122.
bool isKept(std::string_view prefix, const std::string &digits, size_t at)
{
    constexpr size_t kEuiDigits = 16;
    if (prefix == "naa.") {
        return at < (digits[0] == '5' || digits[0] == '6' ? 7U : 1U);
    }
    if (prefix == "eui.") {
        return digits.size() <= kEuiDigits ? at < 6 : at >= 16 && at < 22;
    }
    return prefix == "uuid." && (at == 12 || at == 16);
}

bool isPlaceholder(std::string_view prefix, std::string_view digits)
{
    digits.remove_prefix(prefix == "naa." ? 1 : 0);
    return digits.find_first_not_of('0') == digits.npos || digits.find_first_not_of('f') == digits.npos;
}

std::string textAt(const ByteVector &data, size_t at, size_t length)
{
    return {data.begin() + static_cast<std::ptrdiff_t>(at), data.begin() + static_cast<std::ptrdiff_t>(at + length)};
}

void put(ByteVector &data, size_t at, const std::string &text)
{
    std::copy(text.begin(), text.end(), data.begin() + static_cast<std::ptrdiff_t>(at));
}

void swapPairs(ByteVector &data, size_t at, size_t length)
{
    for (size_t i = at; i + 1 < at + length; i += 2) {
        std::swap(data[i], data[i + 1]);
    }
}

// Word 255 of IDENTIFY: a signature, and what makes the sum of all bytes 0.
bool hasChecksum(const ByteVector &data, size_t at)
{
    const auto begin = data.begin() + static_cast<std::ptrdiff_t>(at);
    return data[at + 510] == 0xA5 && std::accumulate(begin, begin + kIdentifyLength, 0U) % 256 == 0;
}

void setChecksum(ByteVector &data, size_t at)
{
    const auto begin = data.begin() + static_cast<std::ptrdiff_t>(at);
    data[at + 511] = static_cast<uint8_t>(0U - std::accumulate(begin, begin + kIdentifyLength - 1, 0U));
}

} // namespace

std::string Names::made(std::string_view token)
{
    const auto known = serials_.find(token);
    std::string to = known != serials_.end() ? known->second : counted(kindOf(token), ++counts_[kindOf(token)]);
    serials_.emplace(token, to);
    met_.emplace_back(token, to);
    return to;
}

std::string Names::serial(std::string_view text)
{
    const std::string_view token = trimmed(text, kPadding);
    std::string result(text);
    if (!keep_ && !token.empty()) {
        result.replace(static_cast<size_t>(token.data() - text.data()), token.size(), made(token));
    }
    return result;
}

std::string Names::number(const std::string &bytes, std::string_view prefix)
{
    const std::string digits = sim::hexText(bytes);
    if (keep_ || bytes.empty() || isPlaceholder(prefix, digits)) {
        return bytes;
    }
    const auto known = numbers_.find(bytes);
    std::string to = digits;
    uint64_t rest = known == numbers_.end() ? ++count_ : 0;
    for (size_t i = to.size(); i-- > 0;) {
        if (!isKept(prefix, digits, i)) {
            to[i] = "0123456789abcdef"[rest % 16];
            rest /= 16;
        }
    }
    std::string replaced = known == numbers_.end() ? bytesOf(to) : known->second;
    numbers_.emplace(bytes, replaced);
    met_.emplace_back(bytes, replaced);
    met_.emplace_back(digits, sim::hexText(replaced));
    std::string upper = digits;
    std::string upperTo = sim::hexText(replaced);
    for (std::string *const text : {&upper, &upperTo}) {
        std::transform(text->begin(), text->end(), text->begin(),
                       [](char c) { return isLower(c) ? static_cast<char>(c - 'a' + 'A') : c; });
    }
    met_.emplace_back(upper, upperTo);
    return replaced;
}

std::string Names::hexNumber(const std::string &text, std::string_view prefix)
{
    if (text.starts_with("0x")) {
        return "0x" + hexNumber(text.substr(2), prefix);
    }
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), [](char c) { return digitOf(c) >= 0; });
    if (keep_ || bytesOf(digits).empty()) {
        return serial(text);
    }
    const std::string to = sim::hexText(number(bytesOf(digits), prefix));
    std::string result = text;
    size_t next = 0;
    for (char &c : result) {
        c = digitOf(c) >= 0 && next < to.size() ? to[next++] : c;
    }
    return result;
}

std::string Names::component(const std::string &text)
{
    constexpr size_t kDigits = 16;
    std::string result;
    for (size_t at = 0; at < text.size();) {
        size_t end = at;
        while (end < text.size() && digitOf(text[end]) >= 0) {
            ++end;
        }
        const std::string digits = text.substr(at, end - at);
        result += digits.size() >= kDigits ? hexNumber(digits, "naa.") : digits;
        result += end < text.size() ? text.substr(end, 1) : "";
        at = end + 1;
    }
    return result;
}

// Vendor and model, then what tells disks of one model apart: a serial number that is known, else the last word.
std::string Names::t10(std::string text)
{
    const std::string_view all = trimmed(text, kPadding);
    size_t length = 0;
    for (const auto &[from, to] : met_) {
        length = all.ends_with(from) ? std::max(length, from.size()) : length;
    }
    length = length == 0 ? all.size() - (all.rfind(' ') + 1) : length;
    const size_t at = static_cast<size_t>(all.data() - text.data()) + all.size() - length;
    return text.substr(0, at) + serial(text.substr(at));
}

std::string Names::wwid(const std::string &text)
{
    for (const std::string_view prefix : {"naa.", "eui.", "uuid."}) {
        if (text.starts_with(prefix)) {
            return std::string(prefix) + hexNumber(text.substr(prefix.size()), prefix);
        }
    }
    if (text.starts_with("t10.")) {
        return "t10." + t10(text.substr(4));
    }
    const size_t dash = text.find('-');
    const size_t end = text.find('-', dash + 1);
    if (text.starts_with("nvme.") && end != text.npos) { // vendor, serial number, model, namespace
        const std::string part = text.substr(dash + 1, end - dash - 1);
        const std::string bytes = bytesOf(part);
        return text.substr(0, dash + 1) + (bytes.empty() ? serial(part) : sim::hexText(serial(bytes))) +
               text.substr(end);
    }
    const size_t dot = text.find('.') + 1;
    return text.substr(0, dot) + serial(text.substr(dot));
}

void Names::card(std::string &cid, std::string &number)
{
    const std::string digits = number.starts_with("0x") ? number.substr(2) : std::string();
    const size_t at = digits.size() == 8 ? cid.find(digits) : cid.npos;
    if (at != cid.npos) {
        cid.replace(at, digits.size(), hexNumber(digits, ""));
    } else if (!cid.empty()) {
        cid = hexNumber(cid, "");
    }
    number = digits.empty() ? serial(number) : "0x" + hexNumber(digits, "");
}

ByteVector Names::serialPage(ByteVector page)
{
    constexpr size_t kHeader = 4;
    if (page.size() > kHeader) {
        put(page, kHeader, serial(textAt(page, kHeader, page.size() - kHeader)));
    }
    return page;
}

// SPC-5, 7.7.6: the types of designators.
void Names::designator(std::string &value, uint8_t type)
{
    enum : uint8_t { kVendorSpecific = 0, kT10 = 1, kEui = 2, kNaa = 3, kLogicalUnit = 7, kScsiName = 8, kUuid = 10 };
    switch (type) {
    case kVendorSpecific:
        value = serial(value);
        break;
    case kT10:
        value = t10(value);
        break;
    case kEui:
    case kNaa:
        value = number(value, type == kEui ? "eui." : "naa.");
        break;
    case kLogicalUnit:
        value = number(value, "");
        break;
    case kScsiName:
        value = wwid(value);
        break;
    case kUuid: // behind two bytes
        value = value.size() > 2 ? value.substr(0, 2) + number(value.substr(2), "uuid.") : value;
        break;
    default:
        break;
    }
}

ByteVector Names::designatorPage(ByteVector page)
{
    constexpr size_t kHeader = 4;
    for (size_t at = kHeader; !keep_ && at + kHeader <= page.size();) {
        const size_t length = page[at + 3];
        if (at + kHeader + length > page.size()) {
            break;
        }
        std::string value = textAt(page, at + kHeader, length);
        designator(value, page[at + 1] & 0x0F);
        put(page, at + kHeader, value.substr(0, length));
        at += kHeader + length;
    }
    return page;
}

ByteVector Names::identify(ByteVector data, size_t at)
{
    constexpr size_t kSerial = 20; // bytes from the beginning: words 10 to 19, 108 to 111, 176 to 205 (ACS-3, 7.12)
    constexpr size_t kWorldWideName = 216;
    constexpr size_t kMediaSerial = 352;
    const size_t size = data.size();
    if (keep_ || size <= at) {
        return data;
    }
    data.resize(std::max(size, at + kIdentifyLength)); // names may be in those that were cut
    const bool summed = hasChecksum(data, at);
    swapPairs(data, at, kIdentifyLength);
    put(data, at + kSerial, serial(textAt(data, at + kSerial, 20)));
    put(data, at + kWorldWideName, number(textAt(data, at + kWorldWideName, 8), "naa."));
    put(data, at + kMediaSerial, serial(textAt(data, at + kMediaSerial, 60)));
    data = scrub(std::move(data));
    swapPairs(data, at, kIdentifyLength);
    if (summed) {
        setChecksum(data, at);
    }
    data.resize(size);
    return data;
}

ByteVector Names::ataPage(ByteVector page)
{
    constexpr size_t kIdentifyAt = 60; // SAT-4, 12.4.2
    return identify(std::move(page), kIdentifyAt);
}

std::string Names::scrubText(const std::string &text) const
{
    std::string result;
    for (size_t at = 0; at < text.size();) {
        const std::string_view rest = std::string_view(text).substr(at);
        const auto found = std::find_if(met_.begin(), met_.end(), [rest](const auto &pair) {
            return pair.first.size() >= kLeastSearched && rest.starts_with(pair.first);
        });
        result += found == met_.end() ? std::string(1, rest[0]) : found->second;
        at += found == met_.end() ? 1 : found->first.size();
    }
    return result;
}

ByteVector Names::scrub(ByteVector data) const
{
    put(data, 0, scrubText(textAt(data, 0, data.size())));
    return data;
}

} // namespace tool
