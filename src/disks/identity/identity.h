// SPDX-License-Identifier: Apache-2.0
// Which disk is which: the DiskID of a disk, and which entries of a list are paths to one disk. Pure.
//
// A DiskID consists of letters, digits and "._:-@". It survives reboots, renumbering and, unless its source is the
// place, moving the disk:
//   naa.5000c500a1b2c3d4           a world wide name (naa, eui, uuid), as the kernel spells it
//   cid.1501004d44...              the CID of an MMC or SD card
//   serial.VENDOR_MODEL.SERIAL     where there is no such name; the transport in place of an unknown vendor and model
//   place.0000:00:1f.2.0:0:0:0     where there is no serial number either
// Two different disks that report the same identity get "@" and their place behind it.
#pragma once

#include "disks/array.h"
#include "disks/bytes.h"
#include "disks/disk.h"

namespace tavstrg::disks {

constexpr size_t kNameOfDesignator = 64;

// The best name of the logical unit in a Device Identification page (VPD 83h, SPC-5, 7.7.6): a NAA designator of 16
// bytes before one of 8, then EUI-64; locally assigned NAA names do not count. Spelt as by the kernel: "naa." or "eui."
// and hexadecimal digits. False, with name empty, if the page has none.
bool designatorOf(Bytes page, char (&name)[kNameOfDesignator]);

// Whether a name of the kernel's attribute wwid is a world wide name: "naa.", "eui." or "uuid." with a number that is
// not all zeros or all ones, as placeholders are.
bool isWorldWideName(const char *wwid);

// Sets id and idSource by the disk's other fields.
void nameDisk(Disk &disk);

// Names all disks (id and foundId), joins the paths of one disk into one entry (the first that is not hidden is the one
// that is asked), and tells disks apart that report the same identity. Keeps the order. False if memory is short: the
// list is then named, and nothing is joined.
bool nameDisks(Array<Disk> &disks);

// The same after the disks were asked, of those that the kernel has no number of, or only that of a USB bridge. The
// others keep their ids: what a disk itself says, as its full model, is not known while it sleeps or hangs, and the id
// would change with that.
bool nameAskedDisks(Array<Disk> &disks);

} // namespace tavstrg::disks
