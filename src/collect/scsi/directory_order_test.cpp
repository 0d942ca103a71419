// SPDX-License-Identifier: Apache-2.0
// In this program alphasort collates backwards, as the order of names depends on the locale in others.
#include "runtime/holders.h"
#include "support/lists_fixture.h"

#include "sim/sim.h"

#include <cstring>

// NOLINTNEXTLINE(readability-identifier-naming): takes the place of the C library's
extern "C" int alphasort(const dirent **left, const dirent **right) noexcept
{
    return std::strcmp((*right)->d_name, (*left)->d_name);
}

using namespace tavstrg;

namespace {

TEST(DirectoryOrder, IsByBytesInAnyLocale)
{
    sim::Machine machine("{}");
    for (const char *const name : {"b", "B", "a", "_", "A", "10", "2", "a\xc3\xa4"}) {
        machine.makeDirectory(std::string("/sys/class/scsi_host/") + name);
    }
    const DirListing entries("/sys/class/scsi_host");
    std::vector<std::string> names;
    for (int i = 0; i < entries.count(); ++i) {
        names.emplace_back(entries.name(i));
    }
    EXPECT_EQ(names, (std::vector<std::string>{".", "..", "10", "2", "A", "B", "_", "a", "a\xc3\xa4", "b"}));
}

} // namespace
