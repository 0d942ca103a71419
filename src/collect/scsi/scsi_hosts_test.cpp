// SPDX-License-Identifier: Apache-2.0
// Managed host adapters, their drivers, USB host adapters, and the choice between sysfs and procfs.
#include "collect/scsi/scsi_hosts.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"

#include "sim/sim.h"
#include "support/recording.h"
#include "support/short_memory.h"
#include "support/trace_recorder.h"
#include "support/trace_watch.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using namespace tavstrg;

namespace {

constexpr char kDriversInf[] = "/opt/qlm/tavkit_sa/data/storage.inf";

using Texts = std::vector<std::string>;

class Hosts : public testing::Test {
protected:
    ~Hosts() override
    {
        memfree(list);
        memfree(usb);
        FreeSCSIControllerTypeDetailInfo(&types);
    }

    void addSysHost(int number, const std::string &driver)
    {
        machine.write("/sys/class/scsi_host/host" + std::to_string(number) + "/proc_name", driver);
    }
    void addProcHost(int number, const std::string &driver)
    {
        machine.write("/proc/scsi/" + driver + "/" + std::to_string(number), "");
    }
    void manage(const std::string &names) { machine.write(kDriversInf, names); }

    // "3 ahci"
    template <class Reader> Texts read(Reader reader)
    {
        memfree(list);
        EXPECT_EQ(reader(&list, &count), 0);
        Texts result;
        for (int32_t i = 0; i < count; ++i) {
            result.push_back(std::to_string(list[i].host) + " " + list[i].driver);
        }
        EXPECT_EQ(machine.openDescriptors(), 0);
        return result;
    }
    template <class Reader> Texts readUsb(Reader reader)
    {
        memfree(usb);
        EXPECT_EQ(reader(&usb, &count), 0);
        Texts result;
        for (int32_t i = 0; i < count; ++i) {
            result.push_back(std::to_string(usb[i].host) + " " + usb[i].name);
        }
        return result;
    }
    // "ahci 6"
    template <class Reader> Texts readTypes(Reader reader)
    {
        FreeSCSIControllerTypeDetailInfo(&types);
        EXPECT_EQ(reader(&types, &typeCount, &count, &status), 0);
        EXPECT_EQ(status, 0);
        Texts result;
        for (const SCSIControllerTypeDetail *type = types; type != nullptr; type = type->next) {
            result.push_back(std::string(type->driver) + " " + std::to_string(type->adapters));
        }
        EXPECT_EQ(typeCount, static_cast<int32_t>(result.size()));
        return result;
    }

    sim::Machine machine{R"({"sysfs": false, "procfs": false})"};
    SCSIHostEntry *list = nullptr;
    USBHostEntry *usb = nullptr;
    SCSIControllerTypeDetail *types = nullptr;
    int32_t count = 77;
    int32_t typeCount = 77;
    int32_t status = 77;
};

// What lsscsi printed of the hosts: number to driver.
std::map<int, std::string> printedHosts(const std::string &recording)
{
    std::map<int, std::string> hosts;
    for (const std::string &line : recordedLines(recording, "lsscsi-H.txt")) {
        std::string driver = line.substr(line.find_first_not_of(' ', line.find(']') + 1));
        driver.erase(driver.find_last_not_of(' ') + 1);
        hosts[std::stoi(line.substr(1))] = driver;
    }
    return hosts;
}

// Runs in a process of its own: the choice is made once for the life of a process.
int choiceUnder(const char *kernel)
{
    sim::Machine machine(std::string(R"({"sysfs": false, "procfs": false, "kernel": ")") + kernel + "\"}");
    return select_proc_or_sys();
}

} // namespace

using HostsInSysfs = Hosts;
using ProcHosts = Hosts;
using UsbHosts = Hosts;

TEST_F(HostsInSysfs, AreThoseWhoseDriverIsInStorageInf)
{
    ASSERT_GT(layOutRecording(machine, "vm-pc-5.10-ide", "sys"), 50);
    manage("ahci\nmegaraid_sas\nmptsas\n");
    EXPECT_EQ(read(sys_read_scsi_ctrl),
              (Texts{"10 ahci", "11 mptsas", "2 megaraid_sas", "5 ahci", "6 ahci", "7 ahci", "8 ahci", "9 ahci"}));
    EXPECT_EQ(sys_GetSCSIControllerNumber(), 8);
    for (int32_t i = 0; i < count; ++i) {
        EXPECT_EQ(printedHosts("vm-pc-5.10-ide").at(list[i].host), list[i].driver);
    }
}

TEST_F(HostsInSysfs, AHostAdapterWhoseDriverIsNotInStorageInfIsNotCounted)
{
    addSysHost(0, "ahci\n");
    addSysHost(1, "mpt3sas\n");
    manage("ahci\n");
    EXPECT_EQ(sys_GetSCSIControllerNumber(), 1);
    EXPECT_EQ(read(sys_read_scsi_ctrl), (Texts{"0 ahci"}));
}

TEST_F(HostsInSysfs, TheDriversNameIsComparedWhole)
{
    addSysHost(0, "ahci\n");
    addSysHost(1, "ahci_pci\n");
    addSysHost(2, "ahc\n");
    manage("ahci\n");
    EXPECT_EQ(read(sys_read_scsi_ctrl), (Texts{"0 ahci"}));
}

TEST_F(HostsInSysfs, TheSixNamesAreNeverHostAdapters)
{
    int number = 0;
    std::string inf;
    for (const char *name : {"scsi_debug", "iscsi_tcp", "sg", "usb-storage", "ovfx2", "hub"}) {
        addSysHost(number++, std::string(name) + "\n");
        inf += std::string(name) + "\n";
    }
    manage(inf);
    EXPECT_EQ(sys_GetSCSIControllerNumber(), 0);
}

TEST_F(HostsInSysfs, ADriverWithoutANameIsManagedOnlyWhenListed)
{
    addSysHost(0, "(null)\n");
    manage("ahci\n");
    EXPECT_EQ(sys_GetSCSIControllerNumber(), 0);
    manage("(null)\n");
    EXPECT_EQ(sys_GetSCSIControllerNumber(), 1);
}

TEST_F(HostsInSysfs, OtherEntriesAndUnreadableNamesArePassedOver)
{
    addSysHost(0, "ahci\n");
    machine.write("/sys/class/scsi_host/hostx/proc_name", "ahci\n");
    machine.write("/sys/class/scsi_host/other1/proc_name", "ahci\n");
    machine.makeDirectory("/sys/class/scsi_host/host1/proc_name");
    machine.makeDirectory("/sys/class/scsi_host/host2");
    addSysHost(3, "");
    addSysHost(4, std::string(5000, 'a'));
    manage("ahci\n");
    EXPECT_EQ(read(sys_read_scsi_ctrl), (Texts{"0 ahci"}));
}

TEST_F(HostsInSysfs, EachIsTraced)
{
    addSysHost(4, "ahci\n");
    manage("ahci\n");
    TraceRecorder trace;
    EXPECT_EQ(sys_GetSCSIControllerNumber(), 1);
    EXPECT_TRUE(trace.has(0, "pNAME->id=[4] pNAME->name=[ahci]", "sys_GetSCSIControllerNumber"));
    trace.clear();
    read(sys_read_scsi_ctrl);
    EXPECT_TRUE(trace.has(0, "pNAME->id=[4] pNAME->name=[ahci]", "sys_read_scsi_ctrl"));
}

TEST_F(HostsInSysfs, TypesAreTheDistinctDriversInListingOrder)
{
    ASSERT_GT(layOutRecording(machine, "vm-pc-5.10-ide", "sys"), 50);
    manage("virtio_scsi\nahci\nmegaraid_sas\n");
    EXPECT_EQ(readTypes(sys_GetSCSIControllerTypeDetailInfo), (Texts{"ahci 6", "megaraid_sas 1", "virtio_scsi 1"}));
    EXPECT_EQ(count, 8);
}

TEST_F(HostsInSysfs, AMissingDirectoryMeansNoHostAdapters)
{
    manage("ahci\n");
    EXPECT_EQ(sys_GetSCSIControllerNumber(), 0);
    EXPECT_EQ(read(sys_read_scsi_ctrl), Texts{});
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(sys_GetSCSIControllerTypeDetailInfo(&types, &typeCount, &count, &status), -1);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(count, 0);
}

TEST_F(HostsInSysfs, ADirectoryThatCannotBeListedIsAFailure)
{
    machine.write("/sys/class/scsi_host", "no directory");
    manage("ahci\n");
    EXPECT_EQ(sys_GetSCSIControllerNumber(), -1);
    EXPECT_EQ(sys_read_scsi_ctrl(&list, &count), -1);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(sys_GetSCSIControllerTypeDetailInfo(&types, &typeCount, &count, &status), -1);
    EXPECT_EQ(status, -1);
}

TEST_F(ProcHosts, AreListedFromTheLastDriverDirectory)
{
    ASSERT_GT(layOutRecording(machine, "vm-pc-5.10-ide", "proc"), 10);
    manage("mptsas\nsym53c8xx\nusb-storage\nsg\n");
    EXPECT_EQ(read(proc_read_scsi_ctrl), (Texts{"0 sym53c8xx", "11 mptsas"}));
    EXPECT_EQ(proc_GetSCSIControllerNumber(), 2);
    EXPECT_EQ(readTypes(proc_GetSCSIControllerTypeDetailInfo), (Texts{"sym53c8xx 1", "mptsas 1"}));
}

TEST_F(ProcHosts, OnlyDirectoriesAndFilesNamedByANumberCount)
{
    addProcHost(0, "aic7xxx");
    addProcHost(1, "aic7xxx");
    machine.write("/proc/scsi/aic7xxx/options", "");
    machine.write("/proc/scsi/gdth", "a file");
    manage("aic7xxx\ngdth\n");
    EXPECT_EQ(read(proc_read_scsi_ctrl), (Texts{"0 aic7xxx", "1 aic7xxx"}));
}

TEST_F(ProcHosts, ADriverThatIsNotInStorageInfIsNotCounted)
{
    addProcHost(0, "aic7xxx");
    addProcHost(1, "gdth");
    manage("gdth\n");
    EXPECT_EQ(proc_GetSCSIControllerNumber(), 1);
}

TEST_F(ProcHosts, TheSixNamesAreNeverHostAdapters)
{
    std::string inf;
    for (const char *name : {"scsi", "scsi_debug", "iscsi", "sg", "usb-storage-0", "ovfx2", "hub"}) {
        addProcHost(0, name);
        inf += std::string(name) + "\n";
    }
    manage(inf);
    EXPECT_EQ(proc_GetSCSIControllerNumber(), 0);
}

TEST_F(ProcHosts, ADriversNameOf64CharactersIsKeptWhole)
{
    const std::string name(64, 'd');
    addProcHost(2, name);
    manage(name + "\n");
    EXPECT_EQ(read(proc_read_scsi_ctrl), (Texts{"2 " + name}));
}

TEST_F(ProcHosts, AMissingOrEmptyDirectoryMeansNoHostAdapters)
{
    manage("ahci\n");
    EXPECT_EQ(proc_GetSCSIControllerNumber(), 0);
    EXPECT_EQ(read(proc_read_scsi_ctrl), Texts{});
    EXPECT_EQ(proc_GetSCSIControllerTypeDetailInfo(&types, &typeCount, &count, &status), -1);
    EXPECT_EQ(status, 1);
    machine.makeDirectory("/proc/scsi");
    EXPECT_EQ(proc_GetSCSIControllerNumber(), 0);
    EXPECT_EQ(read(proc_read_scsi_ctrl), Texts{});
    EXPECT_EQ(readTypes(proc_GetSCSIControllerTypeDetailInfo), Texts{});
}

TEST_F(ProcHosts, ADriverWithoutADirectoryHasNoAdapters)
{
    HostArray hosts;
    EXPECT_EQ(proc_GetSCSIControllerNumFromType("gone", hosts), 0);
    EXPECT_LT(proc_GetSCSIControllerNumFromType(nullptr, hosts), 0);
}

TEST_F(Hosts, WithoutAUsableStorageInfThereAreNone)
{
    addSysHost(0, "ahci\n");
    addProcHost(0, "ahci");
    const std::pair<const char *, std::string> files[] = {{"unusable", "[Diagnostic Port]\nahci\n"},
                                                          {"too large", "ahci\n" + std::string(65536, '#')}};
    EXPECT_EQ(sys_GetSCSIControllerNumber(), 0) << "absent";
    EXPECT_EQ(proc_GetSCSIControllerNumber(), 0) << "absent";
    for (const auto &[what, text] : files) {
        manage(text);
        EXPECT_EQ(sys_GetSCSIControllerNumber(), 0) << what;
        EXPECT_EQ(proc_GetSCSIControllerNumber(), 0) << what;
        EXPECT_EQ(readTypes(sys_GetSCSIControllerTypeDetailInfo), Texts{}) << what;
    }
}

TEST_F(Hosts, AnyOtherFailureOfStorageInfIsAFailure)
{
    addSysHost(0, "ahci\n");
    addProcHost(0, "ahci");
    machine.makeDirectory(kDriversInf);
    EXPECT_EQ(sys_GetSCSIControllerNumber(), -1);
    EXPECT_EQ(proc_GetSCSIControllerNumber(), -1);
    EXPECT_EQ(proc_read_scsi_ctrl(&list, &count), -1);
    EXPECT_EQ(sys_GetSCSIControllerTypeDetailInfo(&types, &typeCount, &count, &status), -1);
    EXPECT_EQ(status, -1);
}

TEST_F(Hosts, ManyAreAllListed)
{
    std::string inf;
    for (int i = 0; i < 200; ++i) {
        addSysHost(i, "driver" + std::to_string(i % 7) + "\n");
    }
    for (int i = 0; i < 7; ++i) {
        inf += "driver" + std::to_string(i) + "\n";
    }
    manage(inf);
    EXPECT_EQ(read(sys_read_scsi_ctrl).size(), 200U);
    EXPECT_EQ(readTypes(sys_GetSCSIControllerTypeDetailInfo).size(), 7U);
    EXPECT_EQ(count, 200);
}

TEST_F(Hosts, FailedAllocationsLeaveNothingBehind)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    addSysHost(0, "ahci\n");
    addSysHost(1, "mpt3sas\n");
    manage("ahci\nmpt3sas\n");
    bool noMemory = false;
    sim::countCallsOf("");
    for (unsigned nth = 1; nth < 1000; ++nth) {
        int result = 0;
        bool struck = false;
        const int64_t blocks = sim::liveBlocks();
        {
            const ShortMemory shortMemory(nth);
            result = sys_GetSCSIControllerTypeDetailInfo(&types, &typeCount, &count, &status);
            struck = shortMemory.struck();
        }
        if (!struck) {
            ASSERT_EQ(result, 0);
            break;
        }
        if (result != 0) {
            ASSERT_EQ(types, nullptr);
            ASSERT_EQ(count, 0);
            noMemory = noMemory || status == -9;
        }
        FreeSCSIControllerTypeDetailInfo(&types);
        ASSERT_EQ(sim::liveBlocks(), blocks) << "allocation " << nth;
    }
    EXPECT_TRUE(noMemory);
}

TEST_F(Hosts, NullArgumentsAreFailures)
{
    EXPECT_EQ(sys_read_scsi_ctrl(nullptr, &count), -1);
    EXPECT_EQ(sys_read_scsi_ctrl(&list, nullptr), -1);
    EXPECT_EQ(proc_GetUSBCtrlFromProc(nullptr, &count), -1);
    EXPECT_EQ(sys_GetUSBCtrlFromSys(&usb, nullptr), -1);
    EXPECT_LT(proc_GetSCSIControllerTypeDetailInfo(nullptr, &typeCount, &count, &status), 0);
    EXPECT_EQ(status, -3);
    status = 77;
    EXPECT_LT(sys_GetSCSIControllerTypeDetailInfo(&types, nullptr, &count, &status), 0);
    EXPECT_EQ(status, -3);
    status = 77;
    EXPECT_LT(sys_GetSCSIControllerTypeDetailInfo(&types, &typeCount, nullptr, &status), 0);
    EXPECT_EQ(status, -3);
    EXPECT_LT(sys_GetSCSIControllerTypeDetailInfo(&types, &typeCount, &count, nullptr), 0);
    FreeSCSIControllerTypeDetailInfo(nullptr);
}

TEST_F(UsbHosts, AHostWhoseDriverBeginsWithUsbIsOne)
{
    ASSERT_GT(layOutRecording(machine, "vm-pc-5.10-ide", "sys"), 50);
    TraceRecorder trace;
    EXPECT_EQ(readUsb(sys_GetUSBCtrlFromSys), (Texts{"12 usb-storage"}));
    EXPECT_TRUE(trace.has(0, "get one usb device,hostno=12,hostname=usb-storage", "sys_GetUSBCtrlFromSys"));
    EXPECT_TRUE(trace.has(0, "_OUT_ USB Ctroller number is [1]", "sys_GetUSBCtrlFromSys"));
}

TEST_F(UsbHosts, InSysfsHaveOneOfThreeDriverPrefixes)
{
    addSysHost(0, "usb-storage\n");
    addSysHost(1, "ovfx2 more\n");
    addSysHost(2, "\n hubble");
    addSysHost(3, "uas\n");
    addSysHost(4, "(null)\n");
    addSysHost(5, "scsi\n");
    addSysHost(6, "");
    addSysHost(7, "usb" + std::string(100, 'x') + "\n");
    machine.makeDirectory("/sys/class/scsi_host/host8");
    EXPECT_EQ(readUsb(sys_GetUSBCtrlFromSys),
              (Texts{"0 usb-storage", "1 ovfx2", "2 hubble", "7 usb" + std::string(61, 'x')}));
}

TEST_F(UsbHosts, InProcfsHaveOneOfThreeDirectoryPrefixes)
{
    addProcHost(1, "usb-storage-0");
    addProcHost(2, "usb-storage-1");
    addProcHost(3, "hub");
    addProcHost(4, "ovfx2");
    addProcHost(5, "aic7xxx");
    machine.write("/proc/scsi/usb-storage-0/notes", "");
    machine.write("/proc/scsi/usbfile", "a file");
    TraceRecorder trace;
    EXPECT_EQ(readUsb(proc_GetUSBCtrlFromProc), (Texts{"3 hub", "4 ovfx2", "1 usb-storage-0", "2 usb-storage-1"}));
    EXPECT_TRUE(trace.has(0, "_OUT_ USB Ctroller number is [4]", "proc_GetUSBCtrlFromProc"));
}

TEST_F(UsbHosts, AMissingDirectoryGivesAnEmptyList)
{
    TraceRecorder trace;
    EXPECT_EQ(readUsb(sys_GetUSBCtrlFromSys), Texts{});
    EXPECT_EQ(readUsb(proc_GetUSBCtrlFromProc), Texts{});
    EXPECT_TRUE(trace.has(0, "_OUT_ [/sys/class/scsi_host] is not exist.", "sys_GetUSBCtrlFromSys"));
    EXPECT_TRUE(trace.has(0, "_OUT_ [/proc/scsi] is not exist.", "proc_GetUSBCtrlFromProc"));
}

TEST_F(UsbHosts, ADirectoryThatCannotBeListedIsAFailure)
{
    machine.write("/sys/class/scsi_host", "no directory");
    EXPECT_EQ(sys_GetUSBCtrlFromSys(&usb, &count), -1);
    EXPECT_EQ(usb, nullptr);
    EXPECT_EQ(count, 0);
}

TEST_F(UsbHosts, ManyAreAllListed)
{
    for (int i = 0; i < 100; ++i) {
        addSysHost(i, "usb-storage\n");
    }
    EXPECT_EQ(readUsb(sys_GetUSBCtrlFromSys).size(), 100U);
}

TEST_F(UsbHosts, AFailedReallocationFailsTheCall)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    for (int i = 0; i < 40; ++i) {
        addSysHost(i, "usb-storage\n");
    }
    const TraceWatch watch(3, "realloc failed,pnm is NULL");
    for (unsigned nth = 1; nth < 1000; ++nth) {
        const ShortMemory shortMemory(nth);
        const int result = sys_GetUSBCtrlFromSys(&usb, &count);
        if (!shortMemory.struck()) {
            break;
        }
        if (result == -1) {
            ASSERT_EQ(usb, nullptr);
            ASSERT_EQ(count, 0);
        }
        memfree(usb);
    }
    EXPECT_EQ(watch.seen(), 3); // 16, 32 and 64 entries
}

TEST(CmpControllerName, TracesWhatItCompares)
{
    TraceRecorder trace;
    EXPECT_EQ(_CmpControllerName("ahci", "ahci"), 0);
    EXPECT_TRUE(trace.has(0, "_OUT_ strcmp(ahci,ahci)=(0)", "_CmpControllerName"));
    EXPECT_LT(_CmpControllerName("ahci", "mpt3sas"), 0);
    EXPECT_GT(_CmpControllerName("mpt3sas", "ahci"), 0);
    EXPECT_NE(_CmpControllerName(nullptr, "ahci"), 0);
    EXPECT_NE(_CmpControllerName("ahci", nullptr), 0);
}

TEST(InterfaceChoice, KernelsBelow26UseProcfsAndOthersSysfs)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(choiceUnder("2.4.21")), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(std::_Exit(choiceUnder("2.6.9")), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(std::_Exit(choiceUnder("6.1.0-56-amd64")), testing::ExitedWithCode(1), "");
}

TEST(InterfaceChoice, IsMadeOnce)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto both = [] {
        const int first = choiceUnder("2.4.21");
        return 10 * first + choiceUnder("2.6.32");
    };
    EXPECT_EXIT(std::_Exit(both()), testing::ExitedWithCode(0), "");
}

TEST(InterfaceChoice, AFailedUnameIsProcfs)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto failing = [] {
        sim::Machine machine("{}");
        sim::countCallsOf("");
        sim::failNth(sim::Call::uname, 1);
        const int choice = select_proc_or_sys();
        return sim::failureStruck() ? choice : 99;
    };
    EXPECT_EXIT(std::_Exit(failing()), testing::ExitedWithCode(0), "");
}

TEST(InterfaceChoice, EveryDispatcherFollowsIt)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Both trees exist, with different contents.
    const auto hostsOf = [](const char *kernel) {
        sim::Machine machine(std::string(R"({"sysfs": false, "procfs": false, "kernel": ")") + kernel + "\"}");
        machine.write(kDriversInf, "ahci\n");
        machine.write("/proc/scsi/scsi", "Attached devices: none\n");
        machine.write("/proc/scsi/ahci/7", "");
        machine.write("/proc/scsi/usb-storage/7", "");
        machine.write("/sys/class/scsi_host/host8/proc_name", "ahci\n");
        machine.write("/sys/class/scsi_host/host9/proc_name", "usb-storage\n");
        machine.write("/sys/bus/scsi/devices/8:0:0:0/type", "0\n");
        SCSIDeviceInfo *devices = nullptr;
        SCSIControllerTypeDetail *types = nullptr;
        SCSIHostEntry *hosts = nullptr;
        USBHostEntry *usb = nullptr;
        int32_t counts[5] = {};
        int32_t status = 0;
        const bool built = GetSCSIDeviceInfoFromProc(&devices, &counts[0], &status) == 0 &&
                           GetSCSIControllerTypeDetailInfo(&types, &counts[1], &counts[2], &status) == 0 &&
                           read_proc_scsi(&hosts, &counts[3]) == 0 && TAVStorageGetUSBCtrl(&usb, &counts[4]) == 0 &&
                           GetSCSIControllerNumber() == 1;
        const bool one = counts[1] == 1 && counts[2] == 1 && counts[3] == 1 && counts[4] == 1;
        const int result = built && one ? 100 * counts[0] + hosts[0].host + usb[0].host : 99;
        FreeSCSIDeviceInfo(&devices);
        FreeSCSIControllerTypeDetailInfo(&types);
        memfree(hosts);
        memfree(usb);
        return result;
    };
    EXPECT_EXIT(std::_Exit(hostsOf("2.4.21")), testing::ExitedWithCode(7 + 7), "");
    EXPECT_EXIT(std::_Exit(hostsOf("2.6.9")), testing::ExitedWithCode(100 + 8 + 9), "");
}

TEST(InterfaceChoice, TracesTheChoice)
{
    TraceRecorder trace;
    const int choice = select_proc_or_sys();
    EXPECT_TRUE(trace.has(0, "_OUT_ (" + std::to_string(choice) + ")", "select_proc_or_sys"));
}
