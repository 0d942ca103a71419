// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/pages.h"

#include "devcmd/transport/pages_command.h"
#include "devcmd/transport/transport.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <scsi/scsi_ioctl.h>
#include <sys/ioctl.h>

using namespace tavstrg;

namespace {

constexpr int kUseSgIo = 1;

// What came of a command.
struct Sent {
    int status;
    int error;    // errno of a failed transport
    bool byIoctl; // through SCSI_IOCTL_SEND_COMMAND
    bool ioctlFailed() const { return byIoctl && status == -1; }
};

// Where a reply goes, and how much of it.
struct Reply {
    uint8_t *data;
    size_t length;    // transferred through SG_IO
    size_t outLength; // announced to SCSI_IOCTL_SEND_COMMAND
    size_t copied;    // of its buffer into data
};

size_t lengthOf(int bufLen)
{
    return static_cast<size_t>(std::max(bufLen, 0));
}

bool targetIsGood(int fd, const uint8_t *pBuf)
{
    if (fd == -1) {
        return TRACED(false, kFailure, "_OUT_ device == -1");
    }
    if (pBuf == nullptr) {
        return TRACED(false, kFailure, "_OUT_ pBuf is NULL");
    }
    return true;
}

Sent sendGeneric(int fd, std::span<uint8_t> cdb, const ScsiTransfer &transfer)
{
    TRACE(kDetail, "use SG_IO command for ioctl...");
    ScsiIoRequest request = scsiRequest(cdb, transfer);
    const int result = _sg_IoctlCommon(fd, &request);
    return result < 0 ? Sent{-1, -result, false} : Sent{0, 0, false};
}

Sent sendLegacy(int fd, std::span<uint8_t> buffer)
{
    TRACE(kDetail, "use SCSI_IOCTL_SEND_COMMAND...");
    const int status = ::ioctl(fd, SCSI_IOCTL_SEND_COMMAND, buffer.data());
    return {status, status < 0 ? errno : 0, true};
}

template <size_t CdbLength> Sent receive(int fd, std::array<uint8_t, CdbLength> cdb, const Reply &reply)
{
    if (use_sg_io == kUseSgIo) {
        return sendGeneric(fd, cdb, {DIR_FROM_DEVICE, {reply.data, reply.length}});
    }
    alignas(uint32_t) LegacyBuffer<CdbLength> buffer = legacyRequest(cdb, 0, reply.outLength);
    const Sent sent = sendLegacy(fd, buffer);
    const auto place = buffer.begin() + kLegacyHeader;
    if (sent.status != 0 && std::equal(cdb.begin(), cdb.end(), place)) {
        std::fill_n(place, CdbLength, uint8_t{0}); // nothing came back: the command must not be taken for a reply
    }
    // Also after a failure: then it is sense data, or what there was of a reply.
    std::memcpy(reply.data, buffer.data() + kLegacyHeader, std::min(reply.copied, kLegacyReply<CdbLength>));
    return sent;
}

// Traces the end of a command and leaves errno as the failure had it.
int finish(const Sent &sent)
{
    TRACE(sent.status == 0 ? kDetail : kFailure, "_OUT_ status=[%d]", sent.status);
    if (sent.error != 0) {
        errno = sent.error;
    }
    return sent.status;
}

// The plan of a MODE SELECT. Nor may the list be longer than the older way has room for.
std::optional<SelectPlan> planOf(const uint8_t *pBuf, int bufLen, bool ten)
{
    const std::optional<SelectPlan> plan = planModeSelect({pBuf, lengthOf(bufLen)}, ten);
    return plan && plan->total > kPageBuffer && use_sg_io != kUseSgIo ? std::nullopt : plan;
}

} // namespace

int modesense(int fd, int pagenum, int pc, uint8_t *pBuf, int bufLen)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ pagenum=[%x] pc=[%d] bufLen=[%d]", static_cast<unsigned>(pagenum), pc, bufLen);
    if (!targetIsGood(fd, pBuf)) {
        return -1;
    }
    if (bufLen < 0 || lengthOf(bufLen) > kPageBuffer) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    const Sent sent = receive(fd, modeSense6Cdb(pagenum, pc), {pBuf, lengthOf(bufLen), kPageBuffer, kLegacyCopied});
    if (sent.ioctlFailed()) {
        TRACE(kFailure, "ioctl result = -1 errno=[%d]", sent.error);
    }
    return finish(sent);
}

int modesense10(int fd, int pagenum, int pc, uint8_t *pBuf, int bufLen)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ pagenum=[%x] pc=[%d] bufLen=[%d]", static_cast<unsigned>(pagenum), pc, bufLen);
    if (!targetIsGood(fd, pBuf)) {
        return -1;
    }
    if (bufLen < 0 || lengthOf(bufLen) > kPageBuffer) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    const size_t length = lengthOf(bufLen);
    const Sent sent = receive(fd, modeSense10Cdb(pagenum, pc, length), {pBuf, length, length, kLegacyCopied});
    if (sent.ioctlFailed()) {
        TRACE(kFailure, "ioctl MODE_SENSE_10: failed");
    }
    return finish(sent);
}

int modeselect(int fd, int pagenum, int sp, uint8_t *pBuf, int bufLen)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ pagenum=[%x] sp=[%d] bufLen=[%d]", static_cast<unsigned>(pagenum), sp, bufLen);
    if (!targetIsGood(fd, pBuf)) {
        return -1;
    }
    const std::optional<SelectPlan> plan = planOf(pBuf, bufLen, false);
    if (!plan) {
        return TRACED(-1, kFailure, "_OUT_ bufLen limit");
    }
    pBuf[plan->offset] &= kPageCode;
    pBuf[0] = 0;
    if (use_sg_io == kUseSgIo) {
        Cdb6 cdb = modeSelect6Cdb(sp, plan->total);
        return finish(sendGeneric(fd, cdb, {DIR_TO_DEVICE, {pBuf, plan->total}}));
    }
    alignas(uint32_t) LegacyBuffer<6> buffer = legacyModeSelect6(sp, {pBuf, lengthOf(bufLen)}, *plan);
    const Sent sent = sendLegacy(fd, buffer);
    if (sent.ioctlFailed()) {
        TRACE(kFailure, "ioctl result = -1 errno=[%d]", sent.error);
    }
    return finish(sent);
}

// Deliberate, unlike the 6-byte command: PS of the page and the low byte of the mode data length stay as they are, and
// through SG_IO all of bufLen is sent.
int modeselect10(int fd, int pagenum, int sp, uint8_t *pBuf, int bufLen)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ pagenum=[%x] sp=[%d] bufLen=[%d]", static_cast<unsigned>(pagenum), sp, bufLen);
    if (!targetIsGood(fd, pBuf)) {
        return -1;
    }
    const std::optional<SelectPlan> plan = planOf(pBuf, bufLen, true);
    if (!plan) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    pBuf[0] = 0;
    if (use_sg_io == kUseSgIo) {
        Cdb10 cdb = modeSelect10Cdb(sp, plan->total);
        return finish(sendGeneric(fd, cdb, {DIR_TO_DEVICE, {pBuf, lengthOf(bufLen)}}));
    }
    alignas(uint32_t) LegacyBuffer<10> buffer = legacyModeSelect10(sp, {pBuf, lengthOf(bufLen)}, *plan);
    const Sent sent = sendLegacy(fd, buffer);
    if (sent.ioctlFailed()) {
        TRACE(kFailure, "ioctl MODE_SELECT_10 : failed");
    }
    return finish(sent);
}

int logsense(int fd, int pagenum, uint8_t *pBuf, int bufLen)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ pagenum=[%x] bufLen=[%d]", static_cast<unsigned>(pagenum), bufLen);
    if (!targetIsGood(fd, pBuf)) {
        return -1;
    }
    const size_t length = lengthOf(bufLen);
    const Sent sent = receive(fd, logSenseCdb(pagenum, length), {pBuf, length, length, kLegacyLogCopied});
    if (sent.ioctlFailed()) {
        TRACE(kFailure, "ioctl result = -1 errno=[%d]", sent.error);
    }
    return finish(sent);
}

int requestsense(int fd, uint8_t *pBuf)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!targetIsGood(fd, pBuf)) {
        return -1;
    }
    return finish(receive(fd, requestSenseCdb(), {pBuf, kPageBuffer, kPageBuffer, kLegacyCopied}));
}
