// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/kernel_rules.h"

#include "collect/scsi/scsi_parse.h"
#include "devcmd/kernel/kernel_version.h"
#include "runtime/field_text.h"
#include "runtime/options.h"

#include <algorithm>
#include <sys/utsname.h>

using namespace tavstrg;

namespace {

constexpr char kFirstWithSgIo[] = "2.6.9";
constexpr char kFirstWithSysfs[] = "2.6";
constexpr int kMostNumbers = 3; // major, minor, patch

int orderOfRelease(const char *release)
{
    return CmpVersion(release, kFirstWithSgIo);
}

// Compares what a release starts with; a release without a number cannot be compared.
int orderOfNumbers(std::string_view release, const char *other)
{
    char numbers[sizeof(utsname::release)];
    copyText(numbers, numbersOfRelease(release));
    return CmpVersion(numbers, other);
}

int transportOfNumbers(const char *release)
{
    return orderOfNumbers(release, kFirstWithSgIo);
}

int interfaceOfNumbers(std::string_view release)
{
    return orderOfNumbers(release, kFirstWithSysfs) < 0 ? kInterfaceProcfs : kInterfaceSysfs;
}

KernelRules ofBase = {orderOfRelease, interfaceOfRelease, kInterfaceUndecided};
KernelRules ofNumbers = {transportOfNumbers, interfaceOfNumbers, kInterfaceUndecided};

} // namespace

KernelRules &tavstrg::kernelRules()
{
    return currentOptions().has(Option::kernelRelease) ? ofNumbers : ofBase;
}

std::string_view tavstrg::numbersOfRelease(std::string_view release)
{
    size_t end = 0;
    for (int numbers = 0; numbers < kMostNumbers; ++numbers) {
        const size_t start = numbers == 0 ? 0 : end + 1; // behind the dot
        const size_t next = std::min(release.find_first_not_of("0123456789", start), release.size());
        if (next <= start) {
            break;
        }
        end = next;
        if (end == release.size() || release[end] != '.') {
            break;
        }
    }
    return release.substr(0, end);
}
