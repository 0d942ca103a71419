// SPDX-License-Identifier: Apache-2.0
#include "store/key_files.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

using namespace tavstrg;

namespace {

// The directory of a base; empty, which cannot be opened, where the base has none or one too long.
const char *directoryOf(std::string_view base, char (&directory)[PATH_MAX])
{
    const size_t slash = base.rfind('/');
    const size_t length = slash >= sizeof directory ? 0 : slash; // also where there is no "/"
    base.copy(directory, length);
    directory[length] = '\0';
    return directory;
}

// Takes a number off the front of a text. False if there is none; a number that no int holds is -1.
bool takeNumber(std::string_view &text, int &number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto length = static_cast<size_t>(end - text.data());
    if (length == 0 || text.front() == '-') {
        return false;
    }
    if (error != std::errc()) {
        number = -1;
    }
    text.remove_prefix(length);
    return true;
}

} // namespace

KeyFiles::KeyFiles(const char *base)
    : base_(std::string_view(base).substr(std::string_view(base).rfind('/') + 1)),
      entries_(directoryOf(base, directory_))
{
}

bool KeyFiles::next()
{
    while (const char *const name = entries_.next()) {
        if (take(name)) {
            std::snprintf(path_, sizeof path_, "%s/%s", directory_, name);
            return true;
        }
    }
    return false;
}

bool KeyFiles::take(std::string_view name)
{
    constexpr std::string_view kRetired = ".bak.";
    if (!name.starts_with(base_)) {
        return false;
    }
    name.remove_prefix(base_.size());
    if (!takeNumber(name, classId_)) {
        return false;
    }
    retired_ = name.starts_with(kRetired);
    if (!retired_) {
        return name.empty();
    }
    name.remove_prefix(kRetired.size());
    int number = 0;
    return takeNumber(name, number) && name.empty();
}
