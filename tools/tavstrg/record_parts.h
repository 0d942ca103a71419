// SPDX-License-Identifier: Apache-2.0
// The parts of a recorded machine (docs/SIMULATOR.md): what sysfs says, and what the disks answered.
#pragma once

#include "tavstrg/disks.h"
#include "tavstrg/json_document.h"
#include "tavstrg/record_calls.h"
#include "tavstrg/record_names.h"

#include "disks/find/attribute.h"
#include "sim/hex.h"

#include <string>
#include <vector>

namespace tool {

using tavstrg::disks::AttributeDirectory;

struct Recording {
    const DiskReport &report;
    const Calls &calls;
    Names &names;

    const Disk *asked(const std::string &node) const; // null: not asked by this node
};

// ---- reading sysfs ----

std::vector<std::string> entriesOf(const std::string &path); // in the kernel's order
std::string textOf(const AttributeDirectory &directory, const char *name);
AttributeDirectory entryOf(const std::string &path, const std::string &name); // of a directory
// The part of a link's target below "devices/", without a number of names at its end; empty without such a target.
std::string devicePath(const AttributeDirectory &directory, const char *link, int without = 0);
// Fields of every block device: size, sectors and so on.
void addBlock(const AttributeDirectory &block, Json &json);

// ---- the parts ----

Json hostsJson(const Recording &recording);
// keep: names of servers and addresses in networks too.
Json nvmeJson(const Recording &recording, bool keep);
// Disks that take no commands about their health: "virtio" (also Xen and persistent memory) or "mmc".
Json cardsJson(const Recording &recording, bool mmc);
// Bays that are no enclosure's, as files.
Json filesJson();

// Whether the node could be opened, and what the disk answered, into a device's object.
void addAnswers(const Recording &recording, const std::string &node, Json &json);
// The same of an NVMe controller.
void addHealthLog(const Recording &recording, const std::string &node, Json &json);

} // namespace tool
