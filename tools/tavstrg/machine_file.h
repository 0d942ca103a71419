// SPDX-License-Identifier: Apache-2.0
// The description of a simulated machine, read and checked to be JSON, so that an error in it is reported with its
// line.
#pragma once

#include <string>

namespace tool {

// Text of the file. Throws Failure "FILE: why" when it cannot be read, "FILE:LINE:COLUMN: why" when it is not JSON.
std::string readMachineFile(const std::string &path);

// Throws Failure "NAME:LINE:COLUMN: why" unless the text is one JSON value.
void checkJson(const std::string &text, const std::string &name);

// The description, which is JSON, of the same machine with the development libraries installed as its agent's: without
// them no alert leaves it.
std::string withAgentLibraries(const std::string &description);

} // namespace tool
