// SPDX-License-Identifier: Apache-2.0
// What an NVMe controller sends: identify data structures and log pages (NVM Express Base Specification 1.4).
#pragma once

#include "sim/description.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

std::vector<uint8_t> identifyController(const NvmeController &controller);
std::vector<uint8_t> identifyNamespace(const NvmeNamespace &space);
// Namespace Identification Descriptor list.
std::vector<uint8_t> namespaceDescriptors(const NvmeNamespace &space);
// Active Namespace ID list, of those after a number.
std::vector<uint8_t> activeNamespaces(const NvmeController &controller, unsigned after);
// A log page, or nothing if the controller does not have it.
std::optional<std::vector<uint8_t>> nvmeLog(const NvmeController &controller, uint8_t page);

// The file "wwid" of a namespace, as drivers/nvme/host/sysfs.c makes it.
std::string wwidOf(const NvmeController &controller, const NvmeNamespace &space);
// Texts of 16 bytes as the kernel's %pU prints them, with hyphens.
std::string uuidText(const std::vector<uint8_t> &bytes);

} // namespace sim
