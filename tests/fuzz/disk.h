// SPDX-License-Identifier: Apache-2.0
// A disk whose replies are the fuzzer's input: answers the ioctls of the process during its life. It writes where and
// as much as the kernel would, so that a buffer that is too small is detected.
//
// The input is read once, front to back. A reply begins with a byte of flags, of which those that are set say what
// follows, in this order:
//
//   1   one byte: the ioctl fails with this error, and that is all
//   2   three bytes: SCSI status, host status, driver status
//   4   one byte of length and as many bytes: sense data
//   8   two bytes of length, the low one first, and as many bytes: data
//   16  one byte: the length of the sense data that the reply claims, whatever was sent
//
// After the end of the input everything is zero: commands succeed without data.
#pragma once

#include "fuzz/fuzz.h"

#include <vector>

namespace fuzz {

class Disk {
public:
    explicit Disk(Bytes input);
    ~Disk();
    Disk(const Disk &) = delete;
    Disk &operator=(const Disk &) = delete;

    // A node that can be opened, as the provider does before each command.
    static constexpr char kNode[] = "/dev/null";

    int answer(unsigned long request, void *argument);
    Feed &feed() { return feed_; }

private:
    int genericIo(void *argument);
    int sendCommand(void *argument);

    Feed feed_;
    int lowestFree_; // descriptor
};

// A whole input: one reply, with these data.
std::vector<uint8_t> replyOf(Bytes data);

} // namespace fuzz
