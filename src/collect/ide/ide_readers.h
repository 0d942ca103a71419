// SPDX-License-Identifier: Apache-2.0
// Readers of single files of /proc/ide. Each takes a path and returns 0, or -1 if the file cannot be read or
// has no such value.
#pragma once

#include "collect/ide/ide_discovery.h"

#include <cstddef>

namespace tavstrg {

constexpr size_t kIDETextSize = 64; // of the texts below: at most 63 characters and the terminator
constexpr size_t kIDENameSize = 32; // of a device's controller name

} // namespace tavstrg

// Channel number; 65535 when the file or its first word cannot be read.
int32_t getIDEControllerChannel(const char *path);
int getIDEControllerModel(const char *path, char *model);
int getIDEControllerMate(const char *path, char *mate);
// Number of device directories in a controller's directory.
int getIDEDeviceNumberofController(const char *path, int32_t *number);

// Controller's name out of the target of a device's link, at most 31 characters.
int getIDEDeviceControllerName(const char *path, char *name);
int getIDEDeviceMedia(const char *path, char *media);
int getIDEDeviceModel(const char *path, char *model);
// Name and version of the driver; "Unknown" for both if the file has another text.
int getIDEDeviceDriver(const char *path, char *driver, char *version);
int getIDEDeviceGeometry(const char *path, int32_t *cylinders, int32_t *heads, int32_t *sectors);
// Sectors of 512 bytes.
int getIDEDeviceCapacity(const char *path, int64_t *capacity);
int getIDEDeviceCache(const char *path, int32_t *cache);
