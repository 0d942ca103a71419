// SPDX-License-Identifier: Apache-2.0
// Texts of devices as clients get them: whatever the bytes, the result can stand in an XML document, and text that was
// clean stays as it is. The first byte is the room for the result.
#include "fuzz/fuzz.h"
#include "runtime/clean_text.h"

#include <clocale>
#include <cwchar>
#include <cwctype>

using namespace tavstrg;

using fuzz::Bytes;
using fuzz::require;

namespace {

// Decided by the C library's decoder, not by the one that is tested.
bool isClean(std::string_view text)
{
    static const bool utf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    require(utf8, "the C library knows UTF-8");
    constexpr std::string_view kBlanks = " \t\n\v\f\r";
    if (!text.empty() &&
        (kBlanks.find(text.front()) != std::string_view::npos || kBlanks.find(text.back()) != std::string_view::npos)) {
        return false;
    }
    std::mbstate_t state = {};
    while (!text.empty()) {
        wchar_t code = 0;
        const size_t length = std::mbrtowc(&code, text.data(), text.size(), &state);
        if (length == 0 || length > text.size()) { // NUL, invalid, incomplete
            return false;
        }
        const auto number = static_cast<uint32_t>(code);
        const bool control = number < 0x20 || (number >= 0x7F && number < 0xA0);
        const bool surrogate = number >= 0xD800 && number <= 0xDFFF;
        if (control || surrogate || number == 0xFFFE || number == 0xFFFF || number > 0x10FFFF) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Feed feed(Bytes(data, size));
    const size_t room = feed.byte();
    const fuzz::Exact input(fuzz::textOf(feed.bytes(size)));
    const std::string_view text = input.text();

    const std::unique_ptr<char[]> whole(new char[text.size() + 1]);
    const size_t length = cleanText(text, {whole.get(), text.size() + 1});
    const std::string_view clean(whole.get(), length);
    require(length <= text.size() && clean.data()[length] == '\0', "the result is not longer, and terminated");
    require(isClean(clean), "the result can stand in an XML document");
    require(!isClean(text) || clean == text, "text that was clean stays as it is");

    const std::unique_ptr<char[]> cut(new char[room + 1]);
    const size_t cutLength = cleanText(text, {cut.get(), room});
    require(cutLength < room || room == 0, "the result fits");
    require(isClean({cut.get(), cutLength}) && clean.starts_with(std::string_view(cut.get(), cutLength)),
            "a cut is at a whole character");
    return 0;
}
