// SPDX-License-Identifier: Apache-2.0
#include "disks/find/find.h"

#include "disks/find/attribute.h"
#include "disks/find/bays.h"
#include "disks/find/describe.h"
#include "disks/find/place.h"
#include "disks/identity/identity.h"

#include "runtime/field_text.h"

#include <algorithm>
#include <climits>
#include <cstdio>

namespace tavstrg::disks {
namespace {

struct Name {
    char text[kNameRoom];
};

FindResult listNames(const char *sysfs, Array<Name> &names)
{
    char path[PATH_MAX];
    std::snprintf(path, sizeof path, "%s/block", sysfs);
    const OpenDirectory block(path);
    while (const char *const entry = block.next()) {
        const std::string_view name(entry);
        if (name.starts_with('.') || name.size() >= kNameRoom || !canBeDisk(name)) {
            continue;
        }
        if (names.count() == kMostDisks) {
            return FindResult::tooMany;
        }
        Name *const to = names.append();
        if (to == nullptr) {
            return FindResult::noMemory;
        }
        copyText(to->text, name);
    }
    return FindResult::done;
}

// Describes the disks of all names; what turns out to be none is left out.
bool describeAll(const Array<Name> &names, const char *sysfsPath, Array<Disk> &disks)
{
    const AttributeDirectory sysfs(sysfsPath);
    const AttributeDirectory block(sysfs, "block");
    const Bays bays(sysfs, sysfsPath);
    for (const Name &name : names) {
        Disk *const disk = disks.append();
        if (disk == nullptr) {
            return false;
        }
        if (!describeDisk({sysfs, block, bays}, name.text, *disk)) {
            disks.shrink(disks.count() - 1);
        }
    }
    return true;
}

} // namespace

FindResult findDisks(Array<Disk> &disks, const char *sysfs)
{
    char path[PATH_MAX];
    std::snprintf(path, sizeof path, "%s/block", sysfs);
    if (!AttributeDirectory(path).exists()) {
        return FindResult::notReadable;
    }
    Array<Name> names;
    const FindResult result = listNames(sysfs, names);
    if (result == FindResult::noMemory) {
        return result;
    }
    std::sort(names.begin(), names.end(), [](const Name &a, const Name &b) { return comesBefore(a.text, b.text); });
    if (!describeAll(names, sysfs, disks) || !nameDisks(disks)) {
        disks.clear();
        return FindResult::noMemory;
    }
    return result;
}

} // namespace tavstrg::disks
