// SPDX-License-Identifier: Apache-2.0
// ioctls of NVMe nodes: drivers/nvme/host/ioctl.c, NVM Express Base Specification 1.4.
#include "sim/nvme_pages.h"
#include "sim/requests.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

namespace sim {

namespace {

constexpr uint8_t kGetLogPage = 0x02;
constexpr uint8_t kIdentify = 0x06;

// Status code type and status code, with "do not retry".
constexpr int kInvalidNvmeOpcode = 0x4001;
constexpr int kInvalidNvmeField = 0x4002;
constexpr int kInvalidNamespace = 0x400B;
constexpr int kInvalidLogPage = 0x4109;

constexpr unsigned kAllNamespaces = 0xFFFFFFFF;

const NvmeNamespace *namespaceOf(const NvmeController &controller, unsigned nsid)
{
    const auto found = std::find_if(controller.namespaces.begin(), controller.namespaces.end(),
                                    [nsid](const NvmeNamespace &space) { return space.nsid == nsid; });
    return found == controller.namespaces.end() ? nullptr : &*found;
}

struct NvmeReply {
    int status = 0;
    std::vector<uint8_t> data;
};

NvmeReply identify(const NvmeController &controller, const nvme_admin_cmd &command)
{
    enum : unsigned { kNamespace = 0, kController = 1, kActive = 2, kDescriptors = 3 };
    const NvmeNamespace *space = namespaceOf(controller, command.nsid);
    switch (command.cdw10 & 0xFF) {
    case kController:
        return {0, identifyController(controller)};
    case kActive:
        return {0, activeNamespaces(controller, command.nsid)};
    case kNamespace:
        return space == nullptr ? NvmeReply{kInvalidNamespace, {}} : NvmeReply{0, identifyNamespace(*space)};
    case kDescriptors:
        return space == nullptr ? NvmeReply{kInvalidNamespace, {}} : NvmeReply{0, namespaceDescriptors(*space)};
    default:
        return {kInvalidNvmeField, {}};
    }
}

NvmeReply getLogPage(const NvmeController &controller, const nvme_admin_cmd &command)
{
    std::optional<std::vector<uint8_t>> page = nvmeLog(controller, static_cast<uint8_t>(command.cdw10));
    if (!page) {
        return {kInvalidLogPage, {}};
    }
    if (command.nsid != 0 && command.nsid != kAllNamespaces) { // no log of a namespace
        return {kInvalidNvmeField, {}};
    }
    const uint64_t offset = command.cdw12 | uint64_t{command.cdw13} << 32;
    const size_t words = (command.cdw10 >> 16 | size_t{command.cdw11 & 0xFFFF} << 16) + 1;
    if (offset > page->size()) {
        return {kInvalidNvmeField, {}};
    }
    page->erase(page->begin(), page->begin() + static_cast<std::ptrdiff_t>(offset));
    page->resize(std::min(page->size(), 4 * words));
    return {0, *std::move(page)};
}

NvmeReply adminCommand(const NvmeController &controller, const nvme_admin_cmd &command)
{
    switch (command.opcode) {
    case kIdentify:
        return identify(controller, command);
    case kGetLogPage:
        return getLogPage(controller, command);
    default:
        return {kInvalidNvmeOpcode, {}};
    }
}

} // namespace

RequestKind kindOfNvme(uint8_t opcode)
{
    RequestKind kind;
    kind.own = opcode == kIdentify ? Kind::identify : opcode == kGetLogPage ? Kind::readLog : Kind::other;
    kind.nvme = true;
    return kind;
}

int nvmeRequest(Device &device, unsigned long number, void *argument, const Fault &fault)
{
    if (number == NVME_IOCTL_ID) {
        if (device.is.bus == Bus::nvmeNamespace) {
            return static_cast<int>(device.is.nsid);
        }
        errno = ENOTTY;
        return -1;
    }
    auto &command = *static_cast<nvme_admin_cmd *>(argument);
    if (fault.nvmeStatus != 0) {
        return fault.nvmeStatus;
    }
    if (command.flags != 0) {
        errno = EINVAL;
        return -1;
    }
    const NvmeReply reply = adminCommand(*device.is.nvme, command);
    auto *const data = reinterpret_cast<uint8_t *>(static_cast<uintptr_t>(command.addr));
    if (data == nullptr && command.data_len != 0) {
        errno = EFAULT;
        return -1;
    }
    std::copy_n(reply.data.begin(), std::min<size_t>(reply.data.size(), command.data_len), data);
    command.result = 0;
    return reply.status;
}

} // namespace sim
