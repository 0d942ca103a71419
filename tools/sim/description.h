// SPDX-License-Identifier: Apache-2.0
// A machine's description, as read from JSON. docs/SIMULATOR.md explains every field.
#pragma once

#include "sim/paths.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sim {

struct Geometry {
    unsigned heads, sectors, cylinders;
};

// SCSI peripheral device types (SPC-4, INQUIRY) that the simulated machine treats differently from the rest.
enum PeripheralType : int {
    kDisk = 0,
    kTape = 1,
    kWorm = 4,
    kCdrom = 5,
    kOptical = 7,
    kEnclosure = 13,
    kReduced = 14, // RBC: reduced block commands
    kZoned = 20    // ZBC: host-managed zones
};

// Kinds of request, for faults. Each request is of one kind before ata and belongs to the groups from ata on that
// include it.
enum class Kind {
    address,
    identity,
    geometry,
    sectorSize,
    size,
    inquiry,
    testUnitReady,
    identify,
    smartEnable,
    smartDisable,
    smartStatus,
    smartData,
    powerMode,
    modeSense,
    modeSelect,
    logSense,
    requestSense,
    open,    // opening a node: no request, and in no group
    readLog, // READ LOG EXT, SMART READ LOG, and NVMe's Get Log Page
    other,   // the last kind; groups follow
    ata,     // every ATA command, by whatever ioctl
    scsi,    // every SCSI command
    nvme,    // every NVMe command
    any      // every ioctl
};

struct Fault {
    Kind on = Kind::any;
    unsigned nth = 0;       // only the nth request (1-based) of the kind; 0: every decides
    unsigned every = 1;     // every nth request of the kind
    double probability = 1; // of these requests
    unsigned delayMs = 0;
    double hangSeconds = 0;
    bool hang = false;   // until a test releases the device
    int errorNumber = 0; // the ioctl fails with it
    int hostStatus = 0;  // of the SG_IO reply
    int driverStatus = 0;
    int nvmeStatus = 0;         // an NVMe command ends with this status
    std::vector<uint8_t> sense; // the command ends in CHECK CONDITION with these bytes
    bool operator==(const Fault &) const = default;
    bool fails() const
    {
        return errorNumber != 0 || hostStatus != 0 || driverStatus != 0 || nvmeStatus != 0 || !sense.empty();
    }
};

struct SmartAttribute {
    uint8_t id = 0;
    unsigned flags = 0;
    uint8_t current = 100, worst = 100, threshold = 0;
    std::array<uint8_t, 6> raw{};
};

// ATA SMART.
struct SmartDescription {
    bool supported = true;
    bool enabled = true;
    bool canEnable = true; // else SMART ENABLE is refused
    uint8_t lbaMid = 0x4F; // reply of RETURN STATUS: 4F C2 good, F4 2C failing
    uint8_t lbaHigh = 0xC2;
    std::vector<SmartAttribute> attributes;
};

// SCSI informational exceptions: mode page 1C, log page 2F.
struct ExceptionsDescription {
    bool supported = true;
    bool sixByte = true, tenByte = true; // forms of MODE SENSE that the disk supports
    bool dexcpt = false;                 // exception control disabled
    int mrie = 0;                        // method of reporting
    int fixedMrie = -1;                  // MODE SELECT always sets this method; -1: the requested one
    bool savable = false;                // the disk has saved values, and MODE SELECT may set them
    bool changeableDexcpt = true;        // else a MODE SELECT that would change DEXCPT is refused
    bool changeableMrie = true;
    bool blockDescriptor = true;
    bool canSelect = true;
    bool unitAttention = false; // the command after a MODE SELECT ends in UNIT ATTENTION
    bool logPage = true;
    bool predicting = false;
};

// What the kernel keeps about a device's identity and shows in sysfs without asking the device.
struct IdentityDescription {
    std::vector<uint8_t> wwn; // 8 or 16 bytes, as an NAA designator; empty: none
    // VPD pages that replace those made up from the other fields; nullopt: the device has no such page.
    std::map<uint8_t, std::optional<std::vector<uint8_t>>> vpdPages;
    std::optional<std::string> wwid; // nullopt: as the kernel derives it from page 83
    std::string state = "running";   // file "state" of the device
};

// Conditions of a disk, from the one in which it does most to the one in which it does least.
enum class Power { active, idle, standby, sleep };

struct PowerDescription {
    Power state = Power::active;
    unsigned idleTimer = 0;               // seconds without a command until the disk is idle; 0: never
    unsigned standbyTimer = 0;            // the same until it spins down
    unsigned spinUpMs = 0;                // how much longer the command takes that wakes it
    bool reported = true;                 // the disk answers CHECK POWER MODE, or REQUEST SENSE with its condition
    std::string runtimeStatus = "active"; // of the kernel's runtime power management
    bool operator==(const PowerDescription &) const = default;
};

// Attributes of a block device in sysfs.
struct BlockDescription {
    unsigned physicalSectorSize = 0;      // 0: the logical one
    std::optional<unsigned> rotationRate; // per minute, 0: solid state; nullopt: not reported
    uint64_t reads = 0, writes = 0;       // requests so far, file "stat"
    bool removable = false, readOnly = false;
};

// ATA Device Statistics (log 04h). By page and offset; no value: supported, but not valid at present.
struct StatisticsDescription {
    bool supported = false;
    std::map<std::pair<uint8_t, uint16_t>, std::optional<int64_t>> values;
    std::map<uint8_t, std::vector<uint8_t>> pages; // in place of those made up from the values
};

// SCSI log pages but that of the informational exceptions.
struct LogsDescription {
    std::map<uint8_t, std::optional<std::vector<uint8_t>>> pages; // without their header; nullopt: no such page
};

// A reply as it was recorded: whatever the other fields say, a SCSI command of these bytes is answered with it.
struct RecordedReply {
    std::vector<uint8_t> cdb, data, sense;
    int status = 0, hostStatus = 0, driverStatus = 0;
    int errorNumber = 0; // the ioctl fails with it
};

struct NvmeController;

enum class Bus { scsi, ide, nvmeController, nvmeNamespace, virtio, mmc };

// A bay of an enclosure.
struct SlotDescription {
    std::string name;
    unsigned number = 0;
    std::string device; // SCSI address of the device in it, "0:0:1:0"; empty: none
    bool fault = false, locate = false;
};

struct DeviceDescription {
    Bus bus = Bus::scsi;
    int host = -1, channel = 0, id = 0, lun = 0; // address on the SCSI bus
    int type = kDisk;
    std::string vendor, model, revision, serial;
    bool ata = false;
    std::string identifyBy = "device"; // the IDENTIFY command that succeeds: "device", "packet" or "none"
    std::map<unsigned, unsigned> identifyWords;
    uint64_t sectors = 0; // of 512 bytes
    unsigned sectorSize = 512;
    std::optional<Geometry> geometry; // none: HDIO_GETGEO fails
    std::string node, genericNode;    // "sda", "sg0"; empty: none
    int openError = 0;                // opening the node fails with it
    int writeOpenError = 0;           // opening it for writing fails with it
    unsigned delayMs = 0;             // duration of every request
    unsigned ansiVersion = 5;
    bool descriptorSense = false; // sense data in descriptor format (a SCSI disk's D_SENSE)
    bool fixedAtaStatus = false;  // registers of ATA PASS-THROUGH are in fixed-format sense data (SAT-4)
    SmartDescription smart;
    ExceptionsDescription exceptions;
    IdentityDescription identity;
    PowerDescription power;
    BlockDescription block;
    bool sat = false; // an ATA disk behind a translator: ATA PASS-THROUGH works, libata's ioctls do not
    StatisticsDescription statistics;
    LogsDescription logs;
    std::vector<Fault> faults;
    std::string enclosureId; // of an enclosure, "0x500304801f2c3d3d"
    std::vector<SlotDescription> slots;
    std::string path; // directory in sysfs below /sys/devices; empty: by the host
    std::vector<RecordedReply> replies;

    std::string address() const;                // "0:0:1:0": host, channel, id and LUN
    std::shared_ptr<const NvmeController> nvme; // of NVMe's two kinds of node
    unsigned nsid = 0;                          // of a namespace's node

    bool isIde() const { return bus == Bus::ide; }
    bool hasDiskName() const { return type == kDisk || type == kOptical || type == kReduced || type == kZoned; }
    bool hasBlocks() const { return bus != Bus::nvmeController && (hasDiskName() || type == kCdrom || type == kWorm); }
    bool takesAta() const { return ata || sat; }
    bool isAtaDisk() const { return ata && (type == kDisk || type == kZoned); }
};

// SMART / Health Information of NVMe 1.4, with its units.
struct NvmeHealth {
    unsigned criticalWarning = 0;
    std::optional<int> temperature = 35; // degrees Celsius; nullopt: not reported
    unsigned availableSpare = 100, spareThreshold = 10, percentageUsed = 0;
    uint64_t dataUnitsRead = 0, dataUnitsWritten = 0; // of 512,000 bytes
    uint64_t hostReads = 0, hostWrites = 0, busyMinutes = 0, powerCycles = 0, powerOnHours = 0, unsafeShutdowns = 0;
    uint64_t mediaErrors = 0, errorLogEntries = 0;
    unsigned warningMinutes = 0, criticalMinutes = 0; // above the composite temperature thresholds
    std::vector<std::optional<int>> sensors;          // degrees Celsius
    std::vector<uint8_t> raw;                         // the whole page, in place of all this
};

struct NvmeNamespace {
    unsigned nsid = 1;
    std::vector<uint8_t> nguid, eui, uuid; // 16, 8 and 16 bytes; empty: none
    std::optional<std::string> wwid;       // nullopt: as the kernel derives it
    std::string node, path;                // "nvme0n1"; "nvme0c0n1", the hidden node of a path, or empty
    DeviceDescription device;
};

struct NvmeController {
    unsigned number = 0, cntlid = 0, subsystem = 0, vendorId = 0x1B36;
    std::string model, serial, firmware, transport, address, state, nqn;
    std::string path;       // directory in sysfs below /sys/devices; empty: by the transport and address
    bool multipath = false; // the kernel makes one node for all paths of a namespace
    NvmeHealth health;
    std::vector<NvmeNamespace> namespaces;
    DeviceDescription device; // its character node; without pointer to this
};

// A disk that is neither SCSI nor NVMe: virtio-blk, or an MMC or SD card.
struct CardDescription {
    std::string type, name, cid, date, firmware, lifeTime, preEol; // attributes of MMC
    unsigned manufacturer = 0, oem = 0;
    std::string pciAddress;
    std::string path; // directory of the device in sysfs below /sys/devices; empty: by the PCI address
    bool bootPartitions = false;
    DeviceDescription device;
};

// A USB device, as its directory in sysfs shows it.
struct UsbDescription {
    std::string vendorId, productId; // 4 hexadecimal digits
    std::string manufacturer, product, serial;
};

struct HostDescription {
    int number = 0;
    std::string driver;
    std::string pciAddress; // "0000:00:1f.2"; empty: chosen by the driver's name
    std::string transport;  // "ata", "sas", "usb", "virtio", "pci"; empty: by the driver's name
    std::string path;       // directory in sysfs below /sys/devices, with "host0" at its end; empty: by the transport
    std::optional<UsbDescription> usb;
};

struct IdeChannel {
    std::string name, model, mate;
    std::string channel;
};

struct IdeDrive {
    std::string name, channel, media, model, driver; // driver: the whole line of the file
    std::optional<std::string> geometry, capacity, cache;
    DeviceDescription device;
};

// Node name while a description is read: the device has none. An empty name: one is assigned.
constexpr const char *kNoNode = "-";

struct Description {
    std::string kernel = "6.1.0-56-amd64";
    bool sysfs = true;
    bool procfs = false;
    std::vector<HostDescription> hosts;
    std::vector<DeviceDescription> devices; // of the hosts, in the order of the description
    bool ide = false;                       // /proc/ide exists
    std::vector<IdeChannel> channels;
    std::vector<IdeDrive> drives;
    std::vector<std::shared_ptr<const NvmeController>> nvme;
    std::vector<CardDescription> virtio, mmc;
    std::optional<std::string> interrupts, ioports;
    std::map<TreePath, std::optional<std::string>> files; // by path; nullopt: the file is removed
    bool libraries = false;                               // the agent's libraries are in its lib directory
    std::string libraryDirectory; // source of the libraries; empty: the directory of this library
    uint64_t seed = 1;
    // Of all nodes, SCSI devices first.
    std::vector<DeviceDescription> allDevices() const;

    double clock = 0; // seconds that have passed on the machine's clock
};

// Throws std::runtime_error naming the place in the description and what is wrong there.
// before: the devices of the present machine; one that stays keeps its node names.
Description parseDescription(const std::string &json, const std::vector<DeviceDescription> &before = {});

// Whether a device before a change and one after it are the same: same address, type and serial number.
bool isSameDevice(const DeviceDescription &a, const DeviceDescription &b);

// A kernel release as a number that can be compared: "2.4.21" gives 2004021, "6.1.0-56" 6001000.
unsigned long kernelNumber(const std::string &release);

} // namespace sim
