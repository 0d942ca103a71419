// SPDX-License-Identifier: Apache-2.0
// The path of a disk's directory in sysfs, then its vendor, model, serial number and world wide name, divided by 0x1E.
// The path is also what an eMMC says of its life.
#include "disks/find/card_life.h"
#include "disks/find/place.h"
#include "disks/identity/identity.h"
#include "fuzz/fuzz.h"
#include "runtime/field_text.h"

using namespace tavstrg;
using namespace tavstrg::disks;

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Parts parts({data, size});
    const fuzz::Exact exact(parts.next());
    const std::string_view path = exact.text();
    const Place place = placeOf(path);
    for (const std::string_view part : {place.adapter, place.queue, place.address, place.endDevice, place.usbDevice}) {
        require(fuzz::isWithin(part, path), "a place is part of the path");
    }
    require(!comesBefore(path, path), "no name comes before itself");
    Disk disk{};
    copyText(disk.adapter, place.adapter);
    copyText(disk.address, place.address);
    copyClean(disk.vendor, parts.next());
    copyClean(disk.model, parts.next());
    copyClean(disk.serial, parts.next());
    copyClean(disk.wwid, parts.rest());
    copyText(disk.name, "sda");
    nameDisk(disk);
    fuzz::requireTerminated(disk.id);
    require(disk.id[0] != '\0' && disk.idSource != IdentitySource::none, "every disk has an identity");
    for (const char *c = disk.id; *c != '\0'; ++c) {
        require(isPrintable(*c) && *c != ' ', "an identity has no blank");
    }
    Disk card{};
    takeCardLife(path, path, card);
    require(card.readings.enduranceUsedPercent.orElse(0) <= 100, "an eMMC is used up at most");
    return 0;
}
