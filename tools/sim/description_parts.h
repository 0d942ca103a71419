// SPDX-License-Identifier: Apache-2.0
// Parts of a description, each read from its JSON object. All functions throw std::runtime_error with the place of a
// mistake.
#pragma once

#include "sim/fields.h"

namespace sim {

DeviceDescription readDevice(Fields fields, int host);
// The fields that SCSI devices and IDE drives have in common.
void readSize(Fields &fields, DeviceDescription &device, uint64_t defaultBytes);
void readBehaviour(Fields &fields, DeviceDescription &device);

// Errors, delays and faults of a node.
void readFaults(Fields &fields, DeviceDescription &device);
// Attributes of a block device in sysfs.
void readBlock(Fields &fields, DeviceDescription &device);
// Bytes of a fixed number, given as hexadecimal text in which "-" and ":" may separate them, or as an array.
std::vector<uint8_t> readBytes(Fields &fields, const char *name, size_t number);

// A path below /sys/devices, which ends in "/" and name; empty if there is none.
std::string readPath(Fields &fields, const std::string &name);

UsbDescription readUsb(Fields fields);
// Device statistics of an ATA disk, log pages of a SCSI disk.
void readLogs(Fields &fields, DeviceDescription &device);
// A map of pages by two hexadecimal digits to bytes, or null.
std::map<uint8_t, std::optional<std::vector<uint8_t>>> readPages(Fields fields);

// Adds to the description.
void readNvme(Fields fields, Description &description);
CardDescription readVirtio(Fields fields, size_t position);
CardDescription readMmc(Fields fields, size_t position);

// What the kernel shows of a SCSI device in sysfs.
void readSysfs(Fields &fields, DeviceDescription &device);

IdeChannel readChannel(Fields fields, size_t position);
IdeDrive readDrive(Fields fields);

// Text of /proc/interrupts and /proc/ioports: as given, from a list of entries, or made up from the description's
// drivers. Nothing if the file is to be absent.
std::optional<std::string> interruptsText(Fields &fields, const Description &description);
std::optional<std::string> ioportsText(Fields &fields, const Description &description);

} // namespace sim
