// SPDX-License-Identifier: Apache-2.0
#include "runtime/cmpi_data.h"

using namespace tavstrg;

CMPIStatus tavstrg::statusWithChars(const CInfo *cInfo, CMPIrc rc, const char *message)
{
    // A function, as the convenience macro for it cannot stand before an else.
    return {rc, cInfo->broker->eft->newString(cInfo->broker, message, nullptr)};
}
