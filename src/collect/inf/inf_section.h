// SPDX-License-Identifier: Apache-2.0
// The two sections that both administrator's files have.
#pragma once

namespace tavstrg {

constexpr char kGroupManagementPort[] = "[Management Port]";
constexpr char kGroupDiagnosticPort[] = "[Diagnostic Port]";
constexpr int kMaxInfFileSize = 65536; // bytes; a larger administrator file is refused

} // namespace tavstrg

// Splits a file of size bytes into the text of two sections; both buffers hold size + 1 bytes and are zero-filled.
// 0; 1 when the file does not exist or its sections are not usable; -1 on other errors.
int getSectionFromInfFile(const char *path, int size, char *first, char *second, const char *firstHeader,
                          const char *secondHeader);
