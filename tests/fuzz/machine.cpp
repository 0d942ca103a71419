// SPDX-License-Identifier: Apache-2.0
#include "fuzz/machine.h"

#include "fuzz/fuzz.h"

#include <climits>

namespace fuzz {

void FuzzedMachine::link(const char *path, std::string_view target)
{
    machine_.remove(path);
    machine_.link(path, target);
}

void FuzzedMachine::requireAllClosed() const
{
    require(machine_.openDescriptors() == 0, "every file is closed");
}

bool isFileName(std::string_view text)
{
    return !text.empty() && text.size() <= NAME_MAX && text != "." && text != ".." &&
           text.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

} // namespace fuzz
