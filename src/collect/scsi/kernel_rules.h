// SPDX-License-Identifier: Apache-2.0
// What the provider decides from the release of the running kernel: the command transport, and where SCSI devices are
// looked for.
#pragma once

#include <atomic>
#include <string_view>

namespace tavstrg {

struct KernelRules {
    // The release against 2.6.9, the first one with SG_IO for every device: 1, 0 or -1 as it is newer, equal or older;
    // -2 if it cannot be compared.
    int (*orderOfTransport)(const char *release);
    // kInterfaceSysfs or kInterfaceProcfs.
    int (*interfaceOf)(std::string_view release);
    // What interfaceOf gave for the running kernel; kInterfaceUndecided before.
    std::atomic<int> choice;
};

// The rules of this collection: those of the base system, or with the option kernel-release those that read a release
// as the numbers it starts with.
KernelRules &kernelRules();

// The numbers that a release starts with, at most three, and the dots between them: "6.12.117" of
// "6.12.117+deb12-amd64". Empty if it does not start with a digit.
std::string_view numbersOfRelease(std::string_view release);

} // namespace tavstrg
