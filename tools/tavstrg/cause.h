// SPDX-License-Identifier: Apache-2.0
// Why a request failed: what a client sees of it is one message for many causes, the trace has more.
#pragma once

#include "tavstrg/trace_capture.h"

#include <string>
#include <vector>

namespace tool {

// First cause, device and remedy in one line, printable; empty if the trace has no failure. release is that of the
// kernel that the provider saw.
std::string causeOf(const std::vector<TraceLine> &trace, const std::string &release);

// The release of the kernel that this process sees, "6.1.0".
std::string kernelRelease();

// What an administrator can do about a managed disk that does not answer as the provider needs.
std::string diskRemedy(const std::string &vendor, const std::string &model);
// What an administrator can do about a kernel release that the provider refuses.
std::string releaseRemedy();

} // namespace tool
