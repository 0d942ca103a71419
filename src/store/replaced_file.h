// SPDX-License-Identifier: Apache-2.0
// A file that is replaced as a whole: written under another name beside it, then renamed over it. A crash, a full disk
// or a power failure leaves the old file or the new one, never a part of one.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tavstrg {

struct ReplacedFile {
    const char *file;
    const char *temporary; // beside it; one left by a crash is overwritten
    const char *directory; // of both
};

constexpr bool isReplacedFile(const ReplacedFile &place)
{
    return std::string_view(place.temporary).starts_with(place.file) &&
           std::string_view(place.file).starts_with(place.directory);
}

// Opens the temporary file for writing, for its owner only, and locks it against other processes that replace the same
// file; its old content is still in it. Waits for the lock for about three seconds. Returns the descriptor, which the
// caller closes after putInPlace or dropReplacement; -1 with the errno in error, also if something other than a file or
// a symbolic link has the file's name.
int openReplacement(const ReplacedFile &place, int &error);
// Renames the temporary file, whose content the caller has synced, over the file and syncs the directory. Returns 0; or
// the errno of the rename, with the temporary file removed and the old file unchanged.
int putInPlace(const ReplacedFile &place);
// Removes the temporary file.
void dropReplacement(const ReplacedFile &place);
// All of it for a file that is one text: opens the temporary file, writes the text, syncs it and puts it in place.
// Returns the descriptor of the new file, open for writing, which the caller closes, and 0 in error; or -1 with the
// errno in error, with the temporary file removed if it was opened and the old file unchanged.
int replaceText(const ReplacedFile &place, std::string_view text, int &error);
// Whether a replacement by these bytes is possible and would change nothing. What cannot be found out is no.
bool isInPlace(const ReplacedFile &place, std::span<const uint8_t> bytes);

} // namespace tavstrg
