// SPDX-License-Identifier: Apache-2.0
// The NVMe admin command that the engine sends (NVMe base specification 1.4, 5.14). Pure.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <linux/nvme_ioctl.h>
#include <span>

namespace tavstrg::disks {

constexpr size_t kHealthLogLength = 512;
constexpr uint32_t kAllNamespaces = 0xFFFFFFFF;
constexpr uint32_t kNvmeTimeoutMs = 6000;

// data must outlive the command.
inline nvme_admin_cmd nvmeCommand(uint8_t opcode, std::span<uint8_t> data)
{
    nvme_admin_cmd command{};
    command.opcode = opcode;
    command.addr = reinterpret_cast<uintptr_t>(data.data());
    command.data_len = static_cast<uint32_t>(data.size());
    command.timeout_ms = kNvmeTimeoutMs;
    return command;
}

// Command dword 10 of GET LOG PAGE: page in bits 7:0, number of dwords less one in bits 31:16.
constexpr uint32_t logDword10(uint8_t page, size_t bytes)
{
    return static_cast<uint32_t>(page | (bytes / 4 - 1) << 16);
}

// SMART / Health Information of the controller.
inline nvme_admin_cmd healthLogCommand(std::span<uint8_t, kHealthLogLength> data)
{
    nvme_admin_cmd command = nvmeCommand(0x02 /* GET LOG PAGE */, data);
    command.nsid = kAllNamespaces;
    command.cdw10 = logDword10(0x02, kHealthLogLength);
    return command;
}

static_assert(logDword10(0x02, kHealthLogLength) == 0x007F0002);
static_assert(sizeof(nvme_admin_cmd) == 72);

} // namespace tavstrg::disks
