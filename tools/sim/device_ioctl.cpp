// SPDX-License-Identifier: Apache-2.0
// Requests to a device node: their kinds, faults and delays, the log.
#include "sim/device.h"
#include "sim/device_plan.h"
#include "sim/failed_with.h"
#include "sim/requests.h"
#include "sim/state.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <linux/nvme_ioctl.h>
#include <pthread.h>
#include <scsi/sg.h>

namespace sim {

namespace {

struct Request {
    unsigned long number;
    void *argument;
    RequestKind kind;
    std::span<const uint8_t> bytes; // for the log: CDB or argument block
    bool known = true;
};

Request decode(unsigned long number, void *argument)
{
    Request request{number, argument, {}, {}};
    const auto *block = static_cast<const uint8_t *>(argument);
    switch (number) {
    case SG_IO: {
        const auto *header = static_cast<const sg_io_hdr_t *>(argument);
        if (header->cmdp != nullptr) {
            request.bytes = {header->cmdp, header->cmd_len};
        }
        request.kind = kindOfScsi(request.bytes);
        break;
    }
    case kSendCommand:
        request.bytes = sentCdb(*static_cast<SendCommand *>(argument));
        request.kind = kindOfScsi(request.bytes);
        break;
    case HDIO_DRIVE_CMD:
        request.bytes = {block, 4};
        request.kind = kindOfAta(block[0], block[2]);
        break;
    case HDIO_DRIVE_TASK:
        request.bytes = {block, 7};
        request.kind = kindOfAta(block[0], block[1]);
        break;
    case kGetIdlun:
    case kGetBusNumber:
        request.kind.own = Kind::address;
        break;
    case HDIO_GET_IDENTITY:
        request.kind.own = Kind::identity;
        break;
    case HDIO_GETGEO:
        request.kind.own = Kind::geometry;
        break;
    case BLKSSZGET:
        request.kind.own = Kind::sectorSize;
        break;
    case BLKGETSIZE:
    case BLKGETSIZE64:
        request.kind.own = Kind::size;
        break;
    case NVME_IOCTL_ID:
        request.kind.own = Kind::address;
        break;
    case NVME_IOCTL_ADMIN_CMD:
        request.bytes = {block, sizeof(nvme_admin_cmd)};
        request.kind = kindOfNvme(block[0]);
        break;
    default:
        request.known = false;
    }
    return request;
}

// The kernel aborts a command after its timeout and reports this as a transport status.
Plan timedOut(std::chrono::milliseconds limit)
{
    constexpr int kDidTimeOut = 3;
    constexpr int kHostAborted = 0x371;
    Plan plan;
    plan.wait = limit;
    plan.failure.hostStatus = kDidTimeOut;
    plan.failure.nvmeStatus = kHostAborted;
    return plan;
}

// The kernel sends only ATA commands to an ATA disk and answers SCSI commands by itself.
void count(MachineState &machine, const Device &device, const RequestKind &kind)
{
    ++machine.requests;
    machine.toDevices += kind.nvme || (device.is.ata ? kind.ata : kind.scsi) ? 1U : 0U;
}

void keepInLog(MachineState &machine, const Device &device, const Request &request)
{
    if (!machine.logging) {
        return;
    }
    machine.log.push_back({device.name, request.number, {request.bytes.begin(), request.bytes.end()}});
    if (machine.log.size() > kLongestLog) {
        machine.log.pop_front();
    }
}

void describePower(Device &device, const DeviceDescription *before, const DeviceDescription &now, uint64_t nowMs)
{
    if (before == nullptr) {
        device.lastUsedMs = nowMs;
    }
    if (before == nullptr || before->power != now.power) {
        device.power = now.power.state;
        device.byTimer = false;
        device.standbyTimer = now.power.standbyTimer;
        device.suspended = now.power.runtimeStatus == "suspended";
    }
    if (before == nullptr || before->block.reads != now.block.reads || before->block.writes != now.block.writes) {
        device.reads = now.block.reads;
        device.writes = now.block.writes;
    }
}

std::chrono::milliseconds wakeUp(MachineState &machine, Device &device, const Request &request)
{
    const unsigned before = device.resumes;
    const std::chrono::milliseconds wait(wakeFor(device, request.kind, request.bytes, machine.clockMs));
    if (device.resumes != before) {
        showRuntimeStatus(machine, device);
    }
    return wait;
}

// The command's own timeout; 0: none.
std::chrono::milliseconds timeoutOf(const Request &request)
{
    constexpr unsigned kAdminTimeout = 60000; // of the kernel's module parameter
    if (request.number == SG_IO) {
        return std::chrono::milliseconds(static_cast<const sg_io_hdr_t *>(request.argument)->timeout);
    }
    if (request.number == NVME_IOCTL_ADMIN_CMD) {
        const unsigned given = static_cast<const nvme_admin_cmd *>(request.argument)->timeout_ms;
        return std::chrono::milliseconds(given == 0 ? kAdminTimeout : given);
    }
    return {};
}

// Which of the known requests the kernel's driver of a node has.
bool isOfDriver(const DeviceDescription &device, const Request &request)
{
    const bool nvme = device.bus == Bus::nvmeController || device.bus == Bus::nvmeNamespace;
    const bool nvmeOnly = request.number == NVME_IOCTL_ID || request.number == NVME_IOCTL_ADMIN_CMD;
    const bool ofBlocks = request.kind.own == Kind::size || request.kind.own == Kind::sectorSize;
    if (device.bus == Bus::scsi || device.bus == Bus::ide) {
        return !nvmeOnly;
    }
    return (nvme && nvmeOnly) || (ofBlocks && device.hasBlocks());
}

} // namespace

int answer(Device &device, unsigned long number, void *argument)
{
    int cancelState = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState); // a real ioctl is no cancellation point
    int result = -1;
    int error = 0;
    {
        std::unique_lock held(model());
        MachineState *machine = currentMachine();
        if (device.gone || machine == nullptr) {
            result = failedWith(ENODEV);
        } else if (argument == nullptr) {
            result = failedWith(EFAULT);
        } else if (const Request request = decode(number, argument);
                   !request.known || !isOfDriver(device.is, request)) {
            machine->unknownIoctls += request.known ? 0 : 1;
            result = failedWith(ENOTTY);
        } else {
            count(*machine, device, request.kind);
            keepInLog(*machine, device, request);
            Plan plan = planFor(device, request.kind);
            plan.wait += wakeUp(*machine, device, request);
            const std::chrono::milliseconds limit = timeoutOf(request);
            if (limit.count() != 0 && plan.wait > limit && !plan.hangs) {
                plan = timedOut(limit);
            }
            waitOut(held, device, plan);
            result = device.gone ? failedWith(ENODEV) : executeRequest(device, number, argument, plan.failure);
        }
        error = errno;
    }
    pthread_setcancelstate(cancelState, nullptr);
    errno = result == -1 ? error : errno;
    return result;
}

void describeDevice(Device &device, const DeviceDescription &now, uint64_t seed, uint64_t nowMs)
{
    const bool fresh = device.name.empty();
    const DeviceDescription before = fresh ? DeviceDescription() : device.is;
    if (fresh || before.smart.enabled != now.smart.enabled) {
        device.smartEnabled = now.smart.enabled;
    }
    if (fresh || before.exceptions.dexcpt != now.exceptions.dexcpt || before.exceptions.mrie != now.exceptions.mrie) {
        device.exceptions = {now.exceptions.dexcpt, static_cast<uint8_t>(now.exceptions.mrie), 0};
        device.savedExceptions = device.exceptions;
    }
    if (fresh || before.faults.size() != now.faults.size()) {
        device.seen.assign(now.faults.size(), 0);
    }
    device.releases += before.faults == now.faults ? 0 : 1;
    describePower(device, fresh ? nullptr : &before, now, nowMs);
    device.is = now;
    device.name = "/dev/" + (now.node.empty() ? now.genericNode : now.node);
    if (fresh) {
        device.random = seed;
        for (const char c : device.name) {
            device.random = device.random * 31 + static_cast<unsigned char>(c);
        }
    }
}

} // namespace sim
