// SPDX-License-Identifier: Apache-2.0
// The book's file: small, text, versioned, with a checksum.
//
//   tavstrg disk book 1
//   id=naa.5000c500a1b2c3d4<TAB>name=sda<TAB>...      an entry a line, sorted by id; texts are printable ASCII
//   end 1 0123456789abcdef                            number of entries; FNV-1a of all bytes before this line
#pragma once

#include "disks/book/book.h"

#include <string_view>

namespace tavstrg::disks {

constexpr char kBookTitle[] = "tavstrg disk book ";
constexpr int kBookVersion = 1;
constexpr size_t kMostBookBytes = size_t{64} << 20;

enum class BookState {
    whole,
    damaged, // some byte is not as it was written, or is missing
    newer,   // of a later version
    noMemory
};

// Reads the text of a file into an empty book, which stays empty unless the text is whole.
BookState parseBook(std::string_view text, Book &book);

// Appends the text of a book to an empty array. False if memory is short.
bool composeBook(const Book &book, Array<char> &text);

enum class BookRead {
    done,
    absent,     // there is no file; the book is begun
    movedAside, // it was damaged: it is FILE.damaged now; the book is begun
    movedNewer, // it was of a later version: it is FILE.newer now; the book is begun
    failed      // it cannot be read, or not be moved: error is set. The book must not be saved there
};

// Reads the book of a file. Anything but a regular file in its place is a failure.
BookRead readBook(const char *path, Book &book, int &error);

// Saves the book: a crash, a full disk or a power failure leaves either the old file or the new one. Two processes that
// save at the same moment do so one after the other. Returns 0, or an errno value; the old file is then unchanged.
int saveBook(const char *path, const Book &book);

} // namespace tavstrg::disks
