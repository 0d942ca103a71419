// SPDX-License-Identifier: Apache-2.0
// What both administrator's files have: their statuses, and their two sections.
#pragma once

#include <cstdint>
#include <sys/stat.h>

namespace tavstrg {

// Statuses of the two list builders; 0 after success.
constexpr int32_t kInfUnusable = 1; // as if there were no file
constexpr int32_t kInfNoList = -3;  // none was asked for
constexpr int32_t kInfTooLarge = -4;
constexpr int32_t kInfError = -9;

constexpr char kGroupManagementPort[] = "[Management Port]";
constexpr char kGroupDiagnosticPort[] = "[Diagnostic Port]";
constexpr int kMaxInfFileSize = 65536; // bytes; a larger administrator file is refused

// A file that changes between its measuring and its reading is read again, so often.
constexpr int kInfReadAttempts = 10;
constexpr int kInfChanged = -100; // it did, and is to be read again

// Whether the file at a path is another one than measured, or was written to since.
bool isOtherFile(const char *path, const struct stat &measured);

} // namespace tavstrg

// Six parameters: the signature is the system's. Splits a file of size bytes into the text of two sections; both
// buffers hold size + 1 bytes and are zero-filled. 0; 1 when the file does not exist or its sections are not usable; -1
// on other errors.
int getSectionFromInfFile(const char *path, int size, char *first, char *second, const char *firstHeader,
                          const char *secondHeader);
