// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets share. A target is one function, LLVMFuzzerTestOneInput, which has the provider read the input
// and requires what must hold whatever that is.
//
// Every trace is formatted, so that a text that is not terminated is found where it is traced.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

namespace fuzz {

using Bytes = std::span<const uint8_t>;

// Ends the process, which is a finding, unless the property holds.
void require(bool holds, const char *property, const char *file = __builtin_FILE(), int line = __builtin_LINE());

// Whether a view is completely within another one.
inline bool isWithin(std::string_view part, std::string_view whole)
{
    return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

inline std::string_view textOf(Bytes bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

inline Bytes bytesOf(std::string_view text)
{
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

template <size_t N>
void requireTerminated(const char (&field)[N], const char *file = __builtin_FILE(), int line = __builtin_LINE())
{
    require(std::memchr(field, '\0', N) != nullptr, "a text ends within its field", file, line);
}

// A copy in a block of just its size, so that a read of one byte too many is found.
class Exact {
public:
    explicit Exact(std::string_view text) : size_(text.size()), block_(new char[size_])
    {
        text.copy(block_.get(), size_);
    }
    std::string_view text() const { return {block_.get(), size_}; }
    Bytes bytes() const { return bytesOf(text()); }

private:
    size_t size_;
    std::unique_ptr<char[]> block_;
};

// The same with a terminator; the text ends at its first NUL.
class ExactString {
public:
    explicit ExactString(std::string_view text) : block_(new char[text.size() + 1])
    {
        text.copy(block_.get(), text.size());
        block_[text.size()] = '\0';
    }
    const char *text() const { return block_.get(); }
    char *writable() { return block_.get(); }

private:
    std::unique_ptr<char[]> block_;
};

// An input that stands for several files: its parts, divided by the byte 0x1E (record separator). What is not there is
// empty.
class Parts {
public:
    explicit Parts(Bytes input) : rest_(textOf(input)) {}
    std::string_view next();
    std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

// Takes numbers and bytes off the front of an input; where it has ended, zeros.
class Feed {
public:
    explicit Feed(Bytes input) : rest_(input) {}
    uint8_t byte();
    uint16_t word() { return static_cast<uint16_t>(byte() | byte() << 8); }
    Bytes bytes(size_t most);
    bool ended() const { return rest_.empty(); }

private:
    Bytes rest_;
};

} // namespace fuzz
