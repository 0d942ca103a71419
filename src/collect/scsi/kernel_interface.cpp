// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_parse.h"

#include "runtime/trace.h"

#include <atomic>
#include <sys/utsname.h>

namespace {

std::atomic<int> interfaceChoice{kInterfaceUndecided};

int interfaceOfKernel()
{
    utsname kernel = {};
    return ::uname(&kernel) != 0 ? kInterfaceProcfs : interfaceOfRelease(kernel.release);
}

} // namespace

int select_proc_or_sys()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    int choice = interfaceChoice;
    if (choice == kInterfaceUndecided) {
        choice = interfaceOfKernel();
        interfaceChoice = choice;
    }
    return TRACED(choice, kDetail, "_OUT_ (%d)", choice);
}
