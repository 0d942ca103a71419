// SPDX-License-Identifier: Apache-2.0
// "storage.inf": the host-adapter drivers whose controllers and devices are managed.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr char kStorageInf[] = "storage.inf";
constexpr char kGroupManagementPort[] = "[Management Port]";
constexpr char kGroupDiagnosticPort[] = "[Diagnostic Port]";
constexpr int kMaxInfFileSize = 65536; // bytes; a larger administrator file is refused

constexpr size_t kMaxDriverName = 64;

struct StorageInfo {
    char name[kMaxDriverName + 1]; // a name of 64 characters is kept whole
    StorageInfo *next;
};

// Builds the two lists, each in the reverse of the file's order; either pointer may be null, not both. Returns 1 when
// they were built and 0 otherwise, with *status 0, 1 (absent or unusable), -3 (no list), -4 (too large) or -9.
int CreatStorageInfoTable(StorageInfo **managementList, StorageInfo **diagnosticList, int32_t *status);
// Frees every node and nulls the list: 1, or 0 for a null list.
int DestroyStorageInfoTable(StorageInfo **list);
// Puts a node at the head; a name that cannot be allocated is dropped.
void AddStorageInfoTable(StorageInfo **list, const char *name);
// Driver name of one line into name (kMaxDriverName + 1 bytes): 1, or 0 with *status -3, -4 or -5.
int GetInfoFromLine(const char *line, char *name, int32_t *status);

// Splits a file of size bytes into the text of two sections; both buffers hold size + 1 bytes and are zero-filled.
// 0; 1 when the file does not exist or its sections are not usable; -1 on other errors.
int getSectionFromInfFile(const char *path, int size, char *first, char *second, const char *firstHeader,
                          const char *secondHeader);

constexpr size_t kAttributeSize = 64; // bytes of an attribute's field: 63 characters and the terminator
// First line of a small text file, such as a sysfs attribute, trimmed and cut to 63 characters, without a terminator
// into out, which the caller has zero-filled. 0; -1 with *status 1 (absent), -1 (not opened) or -2 (not read).
int GetInfFromFile(int32_t *status, const char *path, char *out);
