// SPDX-License-Identifier: Apache-2.0
#include "sim/sim.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const char *const kTwoDisks = R"({
  "kernel": "6.1.0-56-amd64",
  "hosts": [
    {"number": 0, "driver": "ahci", "devices": [
      {"type": "disk", "ata": true, "model": "DISKMODEL-100", "revision": "FW1", "serial": "S1", "sectors": 1048576}]},
    {"number": 1, "driver": "ahci", "devices": [
      {"type": "disk", "ata": true, "model": "A VERY LONG MODEL NAME", "serial": "S2"}]},
    {"number": 10, "driver": "mpt3sas", "devices": [
      {"id": 3, "type": "cdrom", "vendor": "ACME", "model": "DVD"}, {"id": 4, "type": 12, "vendor": "ACME"}]}
  ]
})";

std::string contentOf(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> namesIn(const char *path)
{
    std::vector<std::string> names;
    dirent **list = nullptr;
    const int count = scandir(path, &list, nullptr, alphasort);
    for (int i = 0; i < count; ++i) {
        if (list[i]->d_name[0] != '.') {
            names.emplace_back(list[i]->d_name);
        }
        free(list[i]);
    }
    if (count >= 0) {
        free(list);
    }
    return names;
}

TEST(Machine, WithoutOneTheRealPathsAreSeen)
{
    EXPECT_TRUE(namesIn("/sys/bus/scsi/devices").empty() || access("/sys/bus/scsi/devices", F_OK) == 0);
    EXPECT_EQ(access("/proc/self/status", R_OK), 0);
    struct utsname before {};
    uname(&before);
    {
        const sim::Machine machine(R"({"kernel": "2.6.9"})");
        struct utsname simulated {};
        uname(&simulated);
        EXPECT_STREQ(simulated.release, "2.6.9");
        EXPECT_STREQ(simulated.sysname, before.sysname);
    }
    struct utsname after {};
    uname(&after);
    EXPECT_STREQ(after.release, before.release);
}

TEST(Machine, DirectoryIsRemovedAtTheEnd)
{
    std::string root;
    {
        const sim::Machine machine("{}");
        root = machine.where("/");
        EXPECT_EQ(access(root.c_str(), F_OK), 0);
    }
    EXPECT_NE(access(root.c_str(), F_OK), 0);
}

TEST(Machine, SysfsTextIsPadded)
{
    const sim::Machine machine(kTwoDisks);
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/0:0:0:0/vendor"), "ATA     \n");
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/0:0:0:0/model"), "DISKMODEL-100   \n");
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/1:0:0:0/model"), "A VERY LONG MODE\n");
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/0:0:0:0/rev"), "FW1 \n");
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/10:0:4:0/type"), "12\n");
    EXPECT_EQ(contentOf("/sys/class/scsi_host/host10/proc_name"), "mpt3sas\n");
}

TEST(Machine, SysfsEntriesAreLinksToDirectories)
{
    const sim::Machine machine(kTwoDisks);
    EXPECT_THAT(namesIn("/sys/bus/scsi/devices"),
                ElementsAre("0:0:0:0", "10:0:3:0", "10:0:4:0", "1:0:0:0", "host0", "host1", "host10", "target0:0:0",
                            "target10:0:3", "target10:0:4", "target1:0:0"));
    struct stat status {};
    ASSERT_EQ(lstat("/sys/bus/scsi/devices/0:0:0:0", &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    ASSERT_EQ(stat("/sys/bus/scsi/devices/0:0:0:0", &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    char target[256] = {};
    ASSERT_GT(readlink("/sys/class/scsi_host/host1", target, sizeof target - 1), 0);
    EXPECT_STREQ(target, "../../devices/pci0000:00/0000:00:1f.2/ata2/host1/scsi_host/host1");
}

TEST(Machine, PathItDoesNotHaveDoesNotExist)
{
    const sim::Machine machine("{}");
    EXPECT_EQ(open("/proc/scsi/scsi", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(opendir("/proc/ide"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(open("/dev/sda", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(fopen("/etc/tavkit/tavkit.conf", "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(fopen("/etc/tavkit/../tavkit/./tavkit.conf", "r"), nullptr);
}

TEST(Machine, OwnProcfsEntriesAndCommonDevicesStayReal)
{
    const int kernel = access("/sys/kernel", F_OK); // a minimal system may not have sysfs
    const sim::Machine machine("{}");
    EXPECT_EQ(access("/proc/self/maps", R_OK), 0);
    EXPECT_EQ(access(("/proc/" + std::to_string(getpid()) + "/stat").c_str(), R_OK), 0);
    EXPECT_NE(access("/proc/1/stat", R_OK), 0);
    EXPECT_EQ(access("/dev/null", W_OK), 0);
    EXPECT_EQ(access("/dev/urandom", R_OK), 0);
    EXPECT_EQ(access("/dev/shm", F_OK), 0);
    EXPECT_EQ(access("/sys/kernel", F_OK), kernel);
    EXPECT_EQ(access("/etc/passwd", R_OK), 0);
}

TEST(Machine, FilesCanBeWrittenAndRemoved)
{
    sim::Machine machine("{}");
    machine.write("/opt/qlm/tavkit_sa/data/storage.inf", "ahci\n");
    EXPECT_EQ(contentOf("/opt/qlm/tavkit_sa/data/storage.inf"), "ahci\n");
    EXPECT_EQ(machine.read("/opt/qlm/tavkit_sa/data/storage.inf"), "ahci\n");
    EXPECT_TRUE(machine.exists("/opt/qlm/tavkit_sa/data/storage.inf"));
    machine.remove("/opt/qlm/tavkit_sa/data");
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/data/storage.inf"));
    EXPECT_NE(access("/opt/qlm/tavkit_sa/data", F_OK), 0);
    machine.makeDirectory("/proc/ide/ide0/hda");
    machine.link("/proc/ide/hda", "ide0/hda");
    EXPECT_THAT(namesIn("/proc/ide"), ElementsAre("hda", "ide0"));
    EXPECT_EQ(machine.read("/proc/ide/nothing"), "");
}

TEST(Machine, AbsoluteLinkStaysInTheMachine)
{
    sim::Machine machine("{}");
    machine.write("/sys/devices/x/vendor", "V\n");
    machine.link("/sys/bus/x", "/sys/devices/x");
    EXPECT_EQ(contentOf("/sys/bus/x/vendor"), "V\n");
    char target[256] = {};
    ASSERT_GT(readlink("/sys/bus/x", target, sizeof target - 1), 0);
    EXPECT_STREQ(target, "/sys/devices/x");
    char *resolved = realpath("/sys/bus/x/vendor", nullptr);
    ASSERT_NE(resolved, nullptr);
    EXPECT_STREQ(resolved, "/sys/devices/x/vendor");
    free(resolved);
}

TEST(Machine, FileOperationsWorkOnItsPaths)
{
    const sim::Machine machine("{}");
    const char *save = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat";
    const char *fresh = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat.new";
    FILE *file = fopen(fresh, "w");
    ASSERT_NE(file, nullptr);
    fputs("records", file);
    fclose(file);
    ASSERT_EQ(rename(fresh, save), 0);
    EXPECT_EQ(machine.read(save), "records");
    EXPECT_EQ(access(fresh, F_OK), -1);
    ASSERT_EQ(mkdir("/opt/qlm/tavkit_sa/work/sub", 0700), 0);
    EXPECT_NE(ftok("/opt/qlm/tavkit_sa/work/sub", 69), -1);
    ASSERT_EQ(rmdir("/opt/qlm/tavkit_sa/work/sub"), 0);
    ASSERT_EQ(unlink(save), 0);
    EXPECT_FALSE(machine.exists(save));
    const int directory = open("/opt/qlm/tavkit_sa/data", O_RDONLY | O_DIRECTORY);
    ASSERT_GE(directory, 0);
    EXPECT_EQ(fsync(directory), 0);
    close(directory);
}

TEST(Machine, DeviceNodeIsABlockOrCharacterDevice)
{
    const sim::Machine machine(kTwoDisks);
    struct stat status {};
    ASSERT_EQ(stat("/dev/sdb", &status), 0);
    EXPECT_TRUE(S_ISBLK(status.st_mode));
    EXPECT_EQ(major(status.st_rdev), 8U);
    EXPECT_EQ(minor(status.st_rdev), 16U);
    const int descriptor = open("/dev/sg0", O_RDWR);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(stat("/dev/sg0", &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    ASSERT_EQ(fstat(descriptor, &status), 0);
    EXPECT_TRUE(S_ISBLK(status.st_mode)); // the disk's node
    close(descriptor);
}

TEST(Machine, SeventeenthDiskHasTheNextMajorNumber)
{
    std::string devices;
    for (int i = 0; i < 30; ++i) {
        devices += (i == 0 ? "" : ",") + (R"({"ata": true, "id": )" + std::to_string(i)) + R"(, "serial": "S"})";
    }
    const sim::Machine machine(R"({"hosts": [{"driver": "ahci", "devices": [)" + devices + "]}]}");
    struct stat status {};
    ASSERT_EQ(stat("/dev/sdp", &status), 0);
    EXPECT_EQ(status.st_rdev, makedev(8, 240));
    ASSERT_EQ(stat("/dev/sdq", &status), 0);
    EXPECT_EQ(status.st_rdev, makedev(65, 0));
    EXPECT_EQ(access("/dev/sdad", F_OK), 0);
    EXPECT_NE(access("/dev/sdae", F_OK), 0);
}

TEST(Machine, OpenDescriptorsAreCounted)
{
    const sim::Machine machine(kTwoDisks);
    EXPECT_EQ(machine.openDescriptors(), 0);
    const int disk = open("/dev/sda", O_RDONLY);
    FILE *file = fopen("/sys/bus/scsi/devices/0:0:0:0/vendor", "r");
    DIR *directory = opendir("/sys/class/scsi_host");
    EXPECT_EQ(machine.openDescriptors(), 3);
    const int outside = open("/etc/passwd", O_RDONLY);
    EXPECT_EQ(machine.openDescriptors(), 3);
    close(outside);
    close(disk);
    fclose(file);
    closedir(directory);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST(Machine, ChangeAddsAndRemovesDevices)
{
    sim::Machine machine(kTwoDisks);
    machine.write("/opt/qlm/tavkit_sa/data/noscsi.inf", "mine");
    std::string changed = kTwoDisks;
    changed.replace(changed.find("\"number\": 0"), 11, "\"number\": 7");
    machine.change(changed);
    EXPECT_THAT(namesIn("/sys/class/scsi_host"), ElementsAre("host1", "host10", "host7"));
    EXPECT_NE(access("/sys/bus/scsi/devices/0:0:0:0/vendor", F_OK), 0);
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/7:0:0:0/vendor"), "ATA     \n");
    EXPECT_EQ(machine.read("/opt/qlm/tavkit_sa/data/noscsi.inf"), "mine");
}

TEST(Machine, SysfsHasTheNodesNumbers)
{
    const sim::Machine machine(
        R"({"hosts": [{"devices": [{"ata": true}, {"id": 1, "ata": true}, {"id": 2, "type": "tape"},
      {"id": 3, "type": "enclosure"}]}]})");
    const std::string devices = "/sys/bus/scsi/devices/";
    EXPECT_EQ(contentOf(devices + "0:0:1:0/block/sdb/dev"), "8:16\n");
    EXPECT_EQ(contentOf("/sys/block/sdb/device/type"), "0\n");
    EXPECT_EQ(contentOf(devices + "0:0:1:0/generic/dev"), "21:1\n");
    EXPECT_EQ(contentOf(devices + "0:0:2:0/scsi_tape/st0/dev"), "9:0\n");
    EXPECT_EQ(contentOf(devices + "0:0:3:0/scsi_generic/sg3/device/type"), "13\n");
}

TEST(Machine, RemainingDiskKeepsItsName)
{
    sim::Machine machine(kTwoDisks);
    machine.change(R"({"hosts": [{"number": 1, "driver": "ahci", "devices": [
      {"ata": true, "model": "A VERY LONG MODEL NAME", "serial": "S2"}, {"ata": true, "id": 5, "serial": "NEW"}]}]})");
    EXPECT_THAT(contentOf("/sys/block/sdb/size"), HasSubstr("209715200"));
    char target[256] = {};
    ASSERT_GT(readlink("/sys/block/sdb", target, sizeof target - 1), 0);
    EXPECT_THAT(target, HasSubstr("1:0:0:0"));
    ASSERT_GT(readlink("/sys/block/sda", target, sizeof target - 1), 0);
    EXPECT_THAT(target, HasSubstr("1:0:5:0"));
}

TEST(Machine, OldKernelHasProcScsi)
{
    const sim::Machine machine(R"({"kernel": "2.4.21", "hosts": [{"number": 2, "driver": "aic7xxx", "devices": [
      {"id": 3, "vendor": "ACME", "model": "SCSIDISK", "revision": "1.0", "ansiVersion": 2},
      {"id": 4, "type": "tape", "vendor": "ACME", "model": "TAPE"}]}]})");
    EXPECT_EQ(contentOf("/proc/scsi/scsi"), "Attached devices: \n"
                                            "Host: scsi2 Channel: 00 Id: 03 Lun: 00\n"
                                            "  Vendor: ACME     Model: SCSIDISK         Rev: 1.0 \n"
                                            "  Type:   Direct-Access                    ANSI  SCSI revision: 02\n"
                                            "Host: scsi2 Channel: 00 Id: 04 Lun: 00\n"
                                            "  Vendor: ACME     Model: TAPE             Rev: 1.0 \n"
                                            "  Type:   Sequential-Access                ANSI  SCSI revision: 05\n");
    EXPECT_THAT(namesIn("/proc/scsi"), ElementsAre("aic7xxx", "scsi"));
    EXPECT_THAT(namesIn("/proc/scsi/aic7xxx"), ElementsAre("2"));
    EXPECT_NE(access("/sys/bus/scsi/devices", F_OK), 0);
}

TEST(Machine, ProcScsiWithoutDevicesSaysNone)
{
    const sim::Machine machine(R"({"kernel": "2.4.21"})");
    EXPECT_EQ(contentOf("/proc/scsi/scsi"), "Attached devices: none\n");
}

TEST(Machine, ProcIdeIsAsTheKernelShowsIt)
{
    const sim::Machine machine(R"({"kernel": "2.4.21", "ide": {
      "channels": [{"name": "ide0", "mate": "ide1"}, {"name": "ide1", "mate": "ide0"}],
      "drives": [
        {"name": "hda", "media": "disk", "model": "IDEDISK", "driver": "ide-disk", "version": "1.17",
         "geometry": {"heads": 16, "sectors": 63, "cylinders": 2080}, "sectors": 2097152, "cache": 256},
        {"name": "hdc", "media": "cdrom", "model": "IDECD", "driver": "ide-cdrom version 4.59"}]}})");
    EXPECT_THAT(namesIn("/proc/ide"), ElementsAre("drivers", "hda", "hdc", "ide0", "ide1"));
    char target[64] = {};
    ASSERT_GT(readlink("/proc/ide/hdc", target, sizeof target - 1), 0);
    EXPECT_STREQ(target, "ide1/hdc");
    EXPECT_EQ(contentOf("/proc/ide/hda/media"), "disk\n");
    EXPECT_EQ(contentOf("/proc/ide/hda/driver"), "ide-disk version 1.17\n");
    EXPECT_EQ(contentOf("/proc/ide/ide0/hda/geometry"), "physical     2080/16/63\nlogical      130/255/63\n");
    EXPECT_EQ(contentOf("/proc/ide/hda/capacity"), "2097152\n");
    EXPECT_EQ(contentOf("/proc/ide/hda/cache"), "256\n");
    EXPECT_EQ(contentOf("/proc/ide/ide1/mate"), "ide0\n");
    EXPECT_NE(access("/proc/ide/hdc/geometry", F_OK), 0);
    EXPECT_THAT(contentOf("/proc/interrupts"), HasSubstr("XT-PIC  ide0\n"));
    EXPECT_THAT(contentOf("/proc/ioports"), HasSubstr("01f0-01f7 : ide0\n"));
}

TEST(Machine, KernelListsAreTextEntriesOrAbsent)
{
    {
        const sim::Machine machine(R"({"interrupts": ["head", " 14: x ide0"], "ioports": "01f0-01f7 : ide0\n"})");
        EXPECT_EQ(contentOf("/proc/interrupts"), "head\n 14: x ide0\n");
        EXPECT_EQ(contentOf("/proc/ioports"), "01f0-01f7 : ide0\n");
    }
    {
        const sim::Machine machine(R"({"interrupts": [{"number": 14, "name": "ide0"}],
                                       "ioports": [{"start": "1f0", "end": "1f7", "name": "ide0", "depth": 1}]})");
        EXPECT_EQ(contentOf("/proc/interrupts"),
                  "           CPU0       \n 14:          0   IO-APIC  14-fasteoi   ide0\n");
        EXPECT_EQ(contentOf("/proc/ioports"), "  01f0-01f7 : ide0\n");
    }
    const sim::Machine machine(R"({"interrupts": null, "ioports": null})");
    EXPECT_NE(access("/proc/interrupts", F_OK), 0);
    EXPECT_NE(access("/proc/ioports", F_OK), 0);
}

TEST(Machine, FilesWithoutDirectoryAreTheAdministrators)
{
    sim::Machine machine(R"({"files": {"storage.inf": ["[Management Port]", "ahci"], "tavkit.conf": "TavDir /x\n",
                                       "/sys/firmware/x": "y"}})");
    EXPECT_EQ(contentOf("/opt/qlm/tavkit_sa/data/storage.inf"), "[Management Port]\nahci\n");
    EXPECT_EQ(contentOf("/etc/tavkit/tavkit.conf"), "TavDir /x\n");
    EXPECT_EQ(contentOf("/sys/firmware/x"), "y");
    machine.change(R"({"files": {"storage.inf": null}})");
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/data/storage.inf"));
    EXPECT_TRUE(machine.exists("/etc/tavkit/tavkit.conf"));
    EXPECT_FALSE(machine.exists("/sys/firmware/x"));
}

TEST(Machine, LibrariesAreLoadedFromTheAgentsRoot)
{
    const char *library = "/opt/qlm/tavkit_sa/lib/libtavlog.so";
    {
        const sim::Machine machine("{}");
        EXPECT_EQ(dlopen(library, RTLD_LAZY), nullptr);
    }
    const sim::Machine machine(R"({"agent": {"libraries": true}})");
    void *handle = dlopen(library, RTLD_LAZY);
    ASSERT_NE(handle, nullptr) << dlerror();
    EXPECT_NE(dlsym(handle, "TraceLog"), nullptr);
    EXPECT_EQ(dlclose(handle), 0);
}

struct Mistake {
    std::string json, message;
};

void expectRefused(const Mistake &mistake)
{
    try {
        const sim::Machine machine(mistake.json);
        ADD_FAILURE() << mistake.json.substr(0, 200) << " was accepted";
    } catch (const std::runtime_error &error) {
        EXPECT_THAT(error.what(), HasSubstr(mistake.message));
    }
}

TEST(Description, MistakeIsReportedWithItsPlace)
{
    for (const Mistake &mistake : {
             Mistake{"{", "not JSON"},
             {"[]", "the description: expected an object"},
             {R"({"kernal": "6.1"})", "kernal: unknown field"},
             {R"({"hosts": {}})", "hosts: expected an array"},
             {R"({"hosts": [{"devices": [{"id": "x"}]}]})", "hosts[0].devices[0].id: expected a number"},
             {R"({"hosts": [{"devices": [{"id": -5000000000}]}]})", "out of range"},
             {R"({"hosts": [{"devices": [{"type": "disc"}]}]})", "unknown type"},
             {R"({"hosts": [{"devices": [{}, {}]}]})", "duplicate 0:0:0:0"},
             {R"({"hosts": [{"devices": [{"faults": [{"on": "nothing"}]}]}]})", "unknown kind of request"},
             {R"({"hosts": [{"devices": [{"faults": [{"sense": "70 0"}]}]}]})", "odd number of hexadecimal digits"},
             {R"({"hosts": [{"devices": [{"faults": [{"hangSeconds": 1e300}]}]}]})", "expected seconds"},
             {R"({"hosts": [{"devices": [{"identifyWords": {"83": 4294967296}}]}]})", "expected numbers by number"},
             {R"({"interrupts": ["head", 5]})", "interrupts: expected a string in each line"},
             {R"({"agent": {"libraries": true, "libraryDirectory": "/nowhere"}})", "no file /nowhere/libtavlog.so"},
         }) {
        expectRefused(mistake);
    }
}

TEST(Description, NameThatIsNoFileNameIsRefused)
{
    const std::string tooLong(256, 'x');
    for (const std::string &name : {std::string("../../../../../tmp/escaped"), std::string("a/b"), std::string(".."),
                                    std::string("."), std::string("\\u0000"), tooLong}) {
        const std::string value = R"(": ")" + name + R"(")";
        const std::string message = ": expected a file name";
        for (const Mistake &mistake : {
                 Mistake{R"({"hosts": [{"driver)" + value + "}]}", "hosts[0].driver" + message},
                 {R"({"hosts": [{"pciAddress)" + value + "}]}", "hosts[0].pciAddress" + message},
                 {R"({"hosts": [{"devices": [{"node)" + value + "}]}]}", "hosts[0].devices[0].node" + message},
                 {R"({"hosts": [{"devices": [{"genericNode)" + value + "}]}]}",
                  "hosts[0].devices[0].genericNode" + message},
                 {R"({"ide": {"channels": [{"name)" + value + "}]}}", "ide.channels[0].name" + message},
                 {R"({"ide": {"drives": [{"name)" + value + "}]}}", "ide.drives[0].name" + message},
                 {R"({"ide": {"drives": [{"channel)" + value + "}]}}", "ide.drives[0].channel" + message},
             }) {
            expectRefused(mistake);
        }
    }
}

TEST(Description, FileOutsideTheMachineIsRefused)
{
    for (const char *path : {"/etc/passwd", "/sys/../etc/passwd", "/proc/self/mem", "/", ""}) {
        expectRefused(
            {std::string(R"({"files": {")") + path + R"(": "x"}})", std::string("files[\"") + path + "\"]: "});
    }
    for (const char *path : {"../../../../../../tmp/escaped", "a/../../b", "/sys/./x", "/dev/../sys/x", "x\\u0000"}) {
        expectRefused({std::string(R"({"files": {")") + path + R"(": "x"}})", "a part of the path is not a file name"});
    }
}

TEST(Description, NodeThatStaysRealIsRefused)
{
    for (const char *node : {"null", "shm", "fd"}) {
        const std::string message = std::string("/dev/") + node + " stays real";
        expectRefused({std::string(R"({"hosts": [{"devices": [{"node": ")") + node + R"("}]}]})", message});
        expectRefused({std::string(R"({"ide": {"drives": [{"name": ")") + node + R"("}]}})", message});
    }
}

TEST(Description, ControlCharactersOfFieldNamesAreEscaped)
{
    expectRefused({R"({"\u001b[2J": 1})", R"(["\x1b[2J"]: unknown field)"});
}

TEST(Description, DepthAndLengthAreBounded)
{
    const size_t many = 1000000;
    expectRefused({R"({"comment": )" + std::string(many, '[') + std::string(many, ']') + "}", "nested deeper than 64"});
    expectRefused({R"({"comment": ")" + std::string(sim::Machine::kLongestDescription, 'x') + R"("})", "longer than"});
    const sim::Machine machine(R"({"comment": "\"[[[[)" + std::string(1000, '[') + R"(", "kernel": "2.6.9"})");
}

TEST(Description, EndlessFileIsRefused)
{
    EXPECT_THROW(sim::Machine::readFile("/dev/zero"), std::runtime_error);
    EXPECT_THROW(sim::Machine::readFile("/"), std::runtime_error);
}

TEST(Machine, RefusedChangeLeavesItAsItWas)
{
    sim::Machine machine(kTwoDisks);
    EXPECT_THROW(machine.change("{"), std::runtime_error);
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/0:0:0:0/vendor"), "ATA     \n");
}

// Cannot be written: there is no directory below a file. Earlier entries of the tree are written before that.
constexpr const char *kImpossible = R"({"hosts": [
  {"number": 0, "driver": "ahci", "devices": [
    {"ata": true, "model": "OTHER", "serial": "S1", "openError": "EBUSY"}, {"ata": true, "id": 1, "serial": "NEW"}]}],
  "files": {"/dev/first": "x", "/proc/interrupts/below": "x"}})";

TEST(Machine, ChangeThatFailsHalfwayLeavesItAsItWas)
{
    sim::Machine machine(kTwoDisks);
    const int before = machine.openDescriptors();
    EXPECT_THROW(machine.change(kImpossible), std::runtime_error);
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/0:0:0:0/model"), "DISKMODEL-100   \n");
    EXPECT_EQ(contentOf("/sys/bus/scsi/devices/1:0:0:0/model"), "A VERY LONG MODE\n");
    EXPECT_NE(access("/sys/bus/scsi/devices/0:0:1:0", F_OK), 0);
    EXPECT_NE(access("/dev/first", F_OK), 0);
    EXPECT_THAT(contentOf("/proc/interrupts"), HasSubstr("mpt3sas"));
    const int disk = open("/dev/sda", O_RDONLY);
    EXPECT_GE(disk, 0) << "the device has its former description";
    close(disk);
    EXPECT_EQ(machine.openDescriptors(), before);
}

TEST(Machine, RefusedDescriptionLeavesNothingBehind)
{
    const std::string directory = testing::TempDir() + "tavsim-refused-" + std::to_string(getpid());
    ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    ASSERT_EQ(setenv("TMPDIR", directory.c_str(), 1), 0);
    expectRefused({kImpossible, "/proc/interrupts/below"});
    unsetenv("TMPDIR");
    EXPECT_EQ(rmdir(directory.c_str()), 0) << "it is not empty";
}

TEST(Machine, DirectoryIsPrivateWithARandomName)
{
    std::string former;
    for (int i = 0; i < 2; ++i) {
        const sim::Machine machine("{}");
        std::string root = machine.where("");
        root.pop_back();
        struct stat status {};
        ASSERT_EQ(stat(root.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0700U);
        const std::string name = root.substr(root.rfind('/') + 1);
        EXPECT_THAT(name, testing::MatchesRegex("tavsim\\.[0-9a-f]{32}"));
        EXPECT_NE(name, former);
        former = name;
    }
}

TEST(Description, DevicesWithoutNodesAndRecordedReplies)
{
    const sim::Machine machine(R"({"kernel": "6.1.0", "hosts": [{"driver": "ahci", "path": "platform/soc/ata1/host0",
      "devices": [
        {"node": null, "genericNode": null, "path": "platform/soc/ata1/host0/port-0:0/target0:0:0/0:0:0:0"},
        {"id": 1, "replies": [{"cdb": "030000001200", "data": "70", "length": 18}]},
        {"id": 2, "type": "tape", "node": null}]}]})");
    EXPECT_TRUE(machine.exists("/sys/devices/platform/soc/ata1/host0/port-0:0/target0:0:0/0:0:0:0/vendor"));
    EXPECT_FALSE(machine.exists("/sys/devices/platform/soc/ata1/host0/port-0:0/target0:0:0/0:0:0:0/block"));
    EXPECT_TRUE(machine.exists("/sys/block/sda"));
    EXPECT_FALSE(machine.exists("/sys/block/sdb"));
    EXPECT_FALSE(machine.exists("/dev/st0"));
    EXPECT_TRUE(machine.exists("/dev/sg0"));
}

TEST(Description, PathsLeadToTheDeviceThatTheyAreOf)
{
    for (const char *path : {"platform/host1", "../platform/host0"}) {
        EXPECT_THROW(sim::Machine(std::string(R"({"hosts": [{"path": ")") + path + R"("}]})"), std::runtime_error)
            << path;
    }
    EXPECT_THROW(sim::Machine(R"({"hosts": [{"devices": [{"replies": [{"data": "00"}]}]}]})"), std::runtime_error);
}

} // namespace
