// SPDX-License-Identifier: Apache-2.0
// The walk of /proc/ide and the readers of its files.
#include "collect/ide/ide_discovery.h"
#include "collect/ide/ide_readers.h"

#include "sim/sim.h"
#include "support/recording.h"
#include "support/short_memory.h"
#include "support/trace_recorder.h"
#include "support/trace_watch.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tavstrg;

namespace {

using Texts = std::vector<std::string>;

class Ide : public testing::Test {
protected:
    Ide() { forgetTheModelsTree(); }
    ~Ide() override { FreeIDEInfo(&info); }

    // The description has the drive behind /dev/hda, with another geometry than the files of /proc/ide, which the test
    // writes.
    void forgetTheModelsTree() { machine.remove("/proc/ide"); }

    void addChannel(const std::string &name, const std::string &number = "0\n")
    {
        machine.write("/proc/ide/" + name + "/channel", number);
        machine.write("/proc/ide/" + name + "/model", "pci\n");
        machine.write("/proc/ide/" + name + "/mate", "(none)\n");
    }
    std::string file(const std::string &channel, const std::string &drive, const std::string &name) const
    {
        return "/proc/ide/" + channel + "/" + drive + "/" + name;
    }
    void addDrive(const std::string &channel, const std::string &drive, const std::string &media = "disk\n")
    {
        if (!machine.exists("/proc/ide/" + channel)) {
            addChannel(channel);
        }
        machine.write(file(channel, drive, "media"), media);
        machine.write(file(channel, drive, "model"), "QIDEDISK\n");
        machine.write(file(channel, drive, "driver"), "ide-gd version 1.18\n");
        machine.write(file(channel, drive, "geometry"), "physical     1040/32/61\nlogical      2080/255/63\n");
        machine.write(file(channel, drive, "capacity"), "2097152\n");
        machine.write(file(channel, drive, "cache"), "256\n");
        machine.link("/proc/ide/" + drive, channel + "/" + drive);
    }

    void expectEmpty() const
    {
        EXPECT_EQ(info.controllerCount, 0);
        EXPECT_EQ(info.deviceCount, 0);
        EXPECT_EQ(info.controllers, nullptr);
        EXPECT_EQ(info.devices, nullptr);
        EXPECT_EQ(machine.openDescriptors(), 0);
    }
    void expectFailure()
    {
        EXPECT_EQ(GetIDEInfoFromProc(&info), -1);
        expectEmpty();
    }
    void expectKernelsAnswer()
    {
        ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
        ASSERT_EQ(info.deviceCount, 1);
        EXPECT_TRUE(info.devices->capacityInMiB);
        EXPECT_EQ(info.devices->heads, 16);
        EXPECT_EQ(info.devices->sectors, 63);
        EXPECT_EQ(info.devices->cylinders, 2080);
        EXPECT_EQ(info.devices->capacity, 1023); // MiB: 2080 cylinders of 16 heads of 63 sectors
        EXPECT_EQ(info.devices->cache, 0);
        FreeIDEInfo(&info);
    }

    Texts controllerNames() const
    {
        Texts names;
        for (const IDEControllerInfo *node = info.controllers; node != nullptr; node = node->next) {
            names.emplace_back(node->name);
        }
        return names;
    }
    Texts deviceNames() const
    {
        Texts names;
        for (const IDEDeviceInfo *node = info.devices; node != nullptr; node = node->next) {
            names.emplace_back(node->name);
        }
        return names;
    }

    sim::Machine machine{
        R"({"sysfs": false, "ide": {"drives": [{"name": "hda", "model": "QIDEDISK", "sizeBytes": 1073741824,
        "geometry": {"heads": 16, "sectors": 63, "cylinders": 2080}}]}})"};
    IDEGeneralInfo info = {};
};

} // namespace

using IdeReader = Ide;

TEST_F(Ide, ASystemWithoutProcIdeYieldsNothingAndSucceeds)
{
    info.deviceCount = 77;
    TraceRecorder trace;
    EXPECT_EQ(GetIDEInfoFromProc(&info), 0);
    expectEmpty();
    EXPECT_TRUE(trace.has(0, "_OUT_ [/proc/ide] is not exist.", "GetIDEInfoFromProc"));
}

TEST_F(Ide, AnEmptyProcIdeYieldsNothingAndSucceeds)
{
    machine.makeDirectory("/proc/ide");
    EXPECT_EQ(GetIDEInfoFromProc(&info), 0);
    expectEmpty();
}

TEST_F(Ide, AnyOtherListingErrorFails)
{
    machine.write("/proc/ide", "no directory");
    expectFailure();
}

TEST_F(Ide, ReadsARecordedKernel)
{
    ASSERT_GT(layOutRecording(machine, "vm-pc-5.10-ide", "proc"), 10);
    ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
    ASSERT_EQ(controllerNames(), (Texts{"ide0", "ide1"}));
    ASSERT_EQ(deviceNames(), (Texts{"hda", "hdc"}));
    EXPECT_EQ(info.controllerCount, 2);
    EXPECT_EQ(info.deviceCount, 2);

    const IDEControllerInfo &second = *info.controllers->next;
    EXPECT_EQ(info.controllers->channel, 0);
    EXPECT_EQ(second.channel, 1);
    EXPECT_STREQ(second.model, "pci");
    EXPECT_STREQ(second.mate, "ide0");
    EXPECT_EQ(second.deviceCount, 1);

    const IDEDeviceInfo &disk = *info.devices;
    EXPECT_STREQ(disk.controllerName, "ide0");
    EXPECT_STREQ(disk.media, "disk");
    EXPECT_STREQ(disk.model, "QIDEDISK");
    EXPECT_STREQ(disk.driver, "ide-gd");
    EXPECT_STREQ(disk.driverVersion, "1.18");
    EXPECT_EQ(disk.cylinders, 2080);
    EXPECT_EQ(disk.heads, 16);
    EXPECT_EQ(disk.sectors, 63);
    EXPECT_EQ(disk.capacity, 2097152);
    EXPECT_FALSE(disk.capacityInMiB);
    EXPECT_EQ(disk.cache, 256);

    const IDEDeviceInfo &cdrom = *disk.next;
    EXPECT_STREQ(cdrom.controllerName, "ide1");
    EXPECT_STREQ(cdrom.media, "cdrom");
    EXPECT_STREQ(cdrom.model, "QEMU DVD-ROM");
    EXPECT_EQ(cdrom.cylinders, 0);
    EXPECT_EQ(cdrom.capacity, 0); // although there is a "capacity" file
    EXPECT_EQ(cdrom.cache, 0);
}

TEST_F(Ide, BothListsKeepTheAlphabeticalOrder)
{
    for (const char *channel : {"ide1", "ide10", "ide0"}) {
        addChannel(channel);
    }
    addDrive("ide1", "hdc", "cdrom\n");
    addDrive("ide0", "hdb");
    addDrive("ide0", "hda");
    ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
    EXPECT_EQ(controllerNames(), (Texts{"ide0", "ide1", "ide10"}));
    EXPECT_EQ(deviceNames(), (Texts{"hda", "hdb", "hdc"}));
    EXPECT_EQ(info.controllers->deviceCount, 2);
}

TEST_F(Ide, OtherNamesAndFilesNamedLikeAChannelAreIgnored)
{
    addChannel("ide0");
    machine.write("/proc/ide/drivers", "ide-gd version 1.18\n");
    machine.write("/proc/ide/ide9", "a file");
    machine.makeDirectory("/proc/ide/piix");
    ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
    EXPECT_EQ(controllerNames(), (Texts{"ide0"}));
    EXPECT_EQ(info.deviceCount, 0);
}

TEST_F(Ide, AnUnreadableChannelIsUnknownAndNoFailure)
{
    addChannel("ide0");
    machine.remove("/proc/ide/ide0/channel");
    ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
    EXPECT_EQ(info.controllers->channel, 65535);
}

TEST_F(Ide, AFailedStatDiscardsTheLists)
{
    addChannel("ide0");
    machine.link("/proc/ide/ide1", "gone");
    expectFailure();
}

TEST_F(Ide, EveryReadersFailureDiscardsTheLists)
{
    const char *const files[] = {"/proc/ide/ide0/model", "/proc/ide/ide0/mate", "/proc/ide/ide0/hda/media",
                                 "/proc/ide/ide0/hda/model", "/proc/ide/ide0/hda/driver"};
    for (const char *path : files) {
        for (const bool directory : {false, true}) {
            addChannel("ide0");
            addDrive("ide0", "hda");
            machine.remove(path);
            if (directory) {
                machine.makeDirectory(path);
            }
            expectFailure();
            machine.remove(path);
        }
    }
}

TEST_F(Ide, ADeviceThatIsNoLinkOrWhoseLinkHasNoSlashFails)
{
    machine.makeDirectory("/proc/ide/hda");
    expectFailure();
    machine.remove("/proc/ide/hda");
    machine.link("/proc/ide/hda", "ide0");
    expectFailure();
}

TEST_F(Ide, AnyDriverTextButNameVersionAndNumberIsUnknown)
{
    addDrive("ide0", "hda");
    machine.write(file("ide0", "hda", "driver"), "(none)\n");
    ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
    EXPECT_STREQ(info.devices->driver, "Unknown");
    EXPECT_STREQ(info.devices->driverVersion, "Unknown");
}

TEST_F(Ide, ALinkTargetOfMoreThan31CharactersBeforeItsSlashIsCut)
{
    const std::string longName = "ide" + std::string(40, '0');
    addDrive(longName, "hda");
    ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
    EXPECT_STREQ(info.devices->controllerName, longName.substr(0, 31).c_str());
}

TEST_F(Ide, WithoutAPhysicalLineTheGeometryIsTheKernels)
{
    addDrive("ide0", "hda");
    machine.write(file("ide0", "hda", "geometry"), "logical      2080/255/63\n");
    expectKernelsAnswer();
}

TEST_F(Ide, AnyOfTheThreeFilesThatFailsMakesTheKernelAnswer)
{
    for (const char *name : {"geometry", "capacity", "cache"}) {
        addDrive("ide0", "hda");
        machine.remove(file("ide0", "hda", name));
        expectKernelsAnswer();
        machine.write(file("ide0", "hda", name), "not a number\n");
        expectKernelsAnswer();
        machine.remove(file("ide0", "hda", name));
        machine.makeDirectory(file("ide0", "hda", name));
        expectKernelsAnswer();
        machine.remove(file("ide0", "hda", name));
    }
}

TEST_F(Ide, ADiskThatNeitherItsFilesNorTheKernelKnowFails)
{
    addDrive("ide0", "hdb"); // there is no /dev/hdb
    machine.remove(file("ide0", "hdb", "cache"));
    expectFailure();
}

TEST_F(Ide, TheMediaIsDiskOnlyWhenExactlySo)
{
    for (const char *media : {"disks\n", "Disk\n", "disk \n", "", "floppy\n"}) {
        addDrive("ide0", "hda", media);
        ASSERT_EQ(GetIDEInfoFromProc(&info), 0) << media;
        EXPECT_EQ(info.devices->capacity, 0) << media;
        EXPECT_EQ(info.devices->heads, 0) << media;
        EXPECT_EQ(info.devices->cache, 0) << media;
        FreeIDEInfo(&info);
    }
}

TEST_F(Ide, TextsAreCutTo63Characters)
{
    addChannel("ide0");
    machine.write("/proc/ide/ide0/model", std::string(64, 'm'));
    machine.write("/proc/ide/ide0/mate", std::string(100000, 'n'));
    addDrive("ide0", "hda");
    machine.write(file("ide0", "hda", "model"), std::string(64, 'q') + "\n");
    machine.write(file("ide0", "hda", "driver"), std::string(100, 'd') + " version " + std::string(100, '1') + "\n");
    ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
    EXPECT_EQ(info.controllers->model, std::string(63, 'm'));
    EXPECT_EQ(info.controllers->mate, std::string(63, 'n'));
    EXPECT_EQ(info.devices->model, std::string(63, 'q'));
    EXPECT_EQ(info.devices->driver, std::string(63, 'd'));
    EXPECT_EQ(info.devices->driverVersion, std::string(63, '1'));
}

TEST_F(Ide, BinaryFilesAreHarmless)
{
    addChannel("ide0", std::string(200, '\0'));
    addDrive("ide0", "hda", std::string("\0disk", 5));
    machine.write(file("ide0", "hda", "model"), std::string(5000, '\xff'));
    machine.write(file("ide0", "hda", "driver"), std::string("a\0version\0 1", 12));
    ASSERT_EQ(GetIDEInfoFromProc(&info), 0);
    EXPECT_EQ(info.controllers->channel, 65535);
    EXPECT_STREQ(info.devices->media, "");
    EXPECT_STREQ(info.devices->driver, "Unknown");
}

TEST_F(Ide, FailedAllocationsDiscardTheLists)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    addChannel("ide0");
    addDrive("ide0", "hda");
    int controllerTraces = 0;
    int deviceTraces = 0;
    sim::countCallsOf("");
    for (unsigned nth = 1; nth < 1000; ++nth) {
        for (const char *const text : {"pIDEControllerInfo alloc failed!!", "pIDEDeviceInfo alloc failed!!"}) {
            const TraceWatch watch(3, text);
            bool struck = false;
            int result = 0;
            const int64_t blocks = sim::liveBlocks();
            {
                const ShortMemory shortMemory(nth);
                result = GetIDEInfoFromProc(&info);
                struck = shortMemory.struck();
            }
            if (result != 0) {
                expectEmpty();
            }
            FreeIDEInfo(&info);
            ASSERT_EQ(sim::liveBlocks(), blocks) << "allocation " << nth;
            (std::string(text).starts_with("pIDEC") ? controllerTraces : deviceTraces) += watch.seen();
            if (!struck) {
                ASSERT_EQ(result, 0);
                nth = 1000;
            }
        }
    }
    EXPECT_EQ(controllerTraces, 1);
    EXPECT_EQ(deviceTraces, 1);
}

TEST_F(Ide, NullIsAFailureAndNothingToFree)
{
    TraceRecorder trace;
    EXPECT_EQ(GetIDEInfoFromProc(nullptr), -1);
    FreeIDEInfo(nullptr);
    EXPECT_EQ(trace.textsOf("FreeIDEInfo"), (Texts{"_IN_", "_OUT_ ResultInfo is NULL"}));
    EXPECT_TRUE(trace.has(3, "_OUT_ ResultInfo is NULL", "GetIDEInfoFromProc"));
    EXPECT_TRUE(trace.has(3, "_OUT_ ResultInfo is NULL", "FreeIDEInfo"));
}

TEST_F(IdeReader, GiveTheirValueAndTraceIt)
{
    addChannel("ide0", "3\n");
    addDrive("ide0", "hda");
    TraceRecorder trace;
    EXPECT_EQ(getIDEControllerChannel("/proc/ide/ide0/channel"), 3);
    EXPECT_TRUE(trace.has(0, "_OUT_ ret=[3]", "getIDEControllerChannel"));
    int32_t cylinders = 0;
    int32_t heads = 0;
    int32_t sectors = 0;
    EXPECT_EQ(getIDEDeviceGeometry("/proc/ide/hda/geometry", &cylinders, &heads, &sectors), 0);
    EXPECT_EQ(cylinders, 1040);
    EXPECT_EQ(heads, 32);
    EXPECT_EQ(sectors, 61);
    int64_t capacity = 0;
    machine.write(file("ide0", "hda", "capacity"), "6442450944\n");
    EXPECT_EQ(getIDEDeviceCapacity("/proc/ide/hda/capacity", &capacity), 0);
    EXPECT_EQ(capacity, 6442450944);
}

TEST_F(IdeReader, AChannelThatCannotBeReadIs65535)
{
    TraceRecorder trace;
    EXPECT_EQ(getIDEControllerChannel("/proc/ide/ide0/channel"), 65535);
    machine.write("/proc/ide/ide0/channel", "(none)\n");
    EXPECT_EQ(getIDEControllerChannel("/proc/ide/ide0/channel"), 65535);
    EXPECT_EQ(getIDEControllerChannel(nullptr), 65535);
    EXPECT_EQ(
        trace.textsOf("getIDEControllerChannel"),
        (Texts{"_IN_", "_OUT_ MIB_UNKNOWN_WORD", "_IN_", "_OUT_ MIB_UNKNOWN_WORD", "_IN_", "_OUT_ MIB_UNKNOWN_WORD"}));
}

TEST_F(IdeReader, OnlyDirectoriesNamedHdCountAsAControllersDevices)
{
    machine.makeDirectory("/proc/ide/ide0/hda");
    machine.makeDirectory("/proc/ide/ide0/hdb");
    machine.write("/proc/ide/ide0/hdc", "a file");
    machine.makeDirectory("/proc/ide/ide0/sda");
    machine.link("/proc/ide/ide0/hdd", "gone");
    int32_t number = 77;
    EXPECT_EQ(getIDEDeviceNumberofController("/proc/ide/ide0", &number), 0);
    EXPECT_EQ(number, 2);
    EXPECT_EQ(getIDEDeviceNumberofController("/proc/ide/ide1", &number), -1);
}

TEST_F(IdeReader, NullArgumentsAreFailures)
{
    char text[kIDETextSize];
    int32_t number = 0;
    int64_t capacity = 0;
    EXPECT_EQ(getIDEControllerModel(nullptr, text), -1);
    EXPECT_EQ(getIDEControllerModel("/proc/ide/x", nullptr), -1);
    EXPECT_EQ(getIDEControllerMate(nullptr, text), -1);
    EXPECT_EQ(getIDEDeviceMedia("/proc/ide/x", nullptr), -1);
    EXPECT_EQ(getIDEDeviceModel(nullptr, text), -1);
    EXPECT_EQ(getIDEDeviceDriver("/proc/ide/x", text, nullptr), -1);
    EXPECT_EQ(getIDEDeviceDriver("/proc/ide/x", nullptr, text), -1);
    EXPECT_EQ(getIDEDeviceDriver(nullptr, text, text), -1);
    EXPECT_EQ(getIDEDeviceNumberofController(nullptr, &number), -1);
    EXPECT_EQ(getIDEDeviceNumberofController("/proc/ide/x", nullptr), -1);
    EXPECT_EQ(getIDEDeviceControllerName(nullptr, text), -1);
    EXPECT_EQ(getIDEDeviceControllerName("/proc/ide/x", nullptr), -1);
    EXPECT_EQ(getIDEDeviceGeometry(nullptr, &number, &number, &number), -1);
    EXPECT_EQ(getIDEDeviceGeometry("/proc/ide/x", nullptr, &number, &number), -1);
    EXPECT_EQ(getIDEDeviceCapacity(nullptr, &capacity), -1);
    EXPECT_EQ(getIDEDeviceCapacity("/proc/ide/x", nullptr), -1);
    EXPECT_EQ(getIDEDeviceCache("/proc/ide/x", nullptr), -1);
}
