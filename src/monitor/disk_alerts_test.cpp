// SPDX-License-Identifier: Apache-2.0
#include "monitor/disk_alerts.h"

#include "monitor/alert.h"
#include "monitor/monitor.h"
#include "runtime/field_text.h"
#include "runtime/options.h"
#include "support/alert_recorder.h"
#include "support/store_fixture.h"

#include <nlohmann/json.hpp>

#include <sys/stat.h>

using namespace tavstrg;

namespace {

using machines::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kOptions[] = "/opt/qlm/tavkit_sa/data/options.inf";
constexpr char kMovedAside[] = "/opt/qlm/tavkit_sa/data/tavstrgdisks.dat.bad";

// A disk of a machine in short.
struct Place {
    const char *serial;
    bool failing = false;
};

std::string machineOf(const std::vector<Place> &disks)
{
    std::vector<json> devices;
    for (const Place &disk : disks) {
        devices.push_back(machines::ataDisk("MODEL", disk.serial, uint64_t{1} << 30));
        if (disk.failing) {
            devices.back()["smart"] = {{"failing", true}};
        }
    }
    return machines::text(machines::withDevices(std::move(devices)));
}

class DiskAlerts : public StoreTest {
protected:
    explicit DiskAlerts(const char *options = "disk-alerts\n") : StoreTest(machineOf({{"A"}, {"B"}}))
    {
        if (options != nullptr) {
            machine.write(kOptions, options);
        }
        strgInitDatInfo(instSt);
        fill<StrgConfRec>(instSt[TAV_CID_STRG_CONF], {{60, 10, 3600, 60, 1, 0}});
        fill<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM], {{}});
        OwnedRecords now; // a store with its disks, as after a first collection
        EXPECT_EQ(strgGetCurrentInfo(0, now.dat), 0);
        for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
            const int32_t num = now.dat[id].datNum;
            replaceRecords(instSt[id], num, takeRecords(now.dat[id]));
        }
        strgTakeTotals();
        gst_first = kBuilt;
        gst_SmartMode = 1;
        g_srvmod = 1;
        EXPECT_EQ(shmNew(&cInfo, 10, kShmKeyFileBase, instSt, shmSt), 0);
        EXPECT_EQ(strgPublishAll(&cInfo), 0);
    }
    ~DiskAlerts() override
    {
        forgetUnsavedDisks();
        machine.remove(kOptions);
        takeOptions();
    }

    // A pass over these disks: its events about disks, shortly.
    std::vector<std::string> pass(const std::vector<Place> &disks)
    {
        machine.change(machineOf(disks));
        EXPECT_EQ(strgCheckConfigChange(&cInfo), 0);
        return sent();
    }
    std::vector<std::string> sent()
    {
        std::vector<std::string> events;
        for (const AlertRecord &alert : alerts.records()) {
            if (alert.numOfStrings < 5) {
                continue; // one of the base system's
            }
            char id[16];
            std::snprintf(id, sizeof id, "%08X", alert.eventId);
            events.push_back(std::string(id) + ": " + alert.strings[2] + ", " + alert.strings[4] +
                             (alert.numOfStrings > 5 ? ", " + alert.strings[5] : ""));
        }
        alerts.clear();
        return events;
    }
    std::string book() const { return machine.read(kDiskBookFile); }

    AlertRecorder alerts;
};

class WithoutDiskAlerts : public DiskAlerts {
protected:
    WithoutDiskAlerts() : DiskAlerts(nullptr) {}
};

TEST_F(WithoutDiskAlerts, ASwapAndAFailingDiskAtAnothersIndexRaiseNothing)
{
    EXPECT_THAT(pass({{"A"}, {"B", true}}), IsEmpty());
    alerts.clear();
    machine.change(machineOf({{"A"}, {"C", true}}));
    EXPECT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_THAT(alerts.records(), IsEmpty());
    EXPECT_FALSE(machine.exists(kDiskBookFile));
    EXPECT_TRUE(trace->textsOf("alertDisks").empty());
}

TEST_F(DiskAlerts, InTheFirstPassNothingIsAdded)
{
    EXPECT_THAT(pass({{"A"}, {"B"}}), IsEmpty());
    EXPECT_THAT(book(), HasSubstr("disk good readable 1 A "));
}

TEST_F(DiskAlerts, ASwapIsOneReplacementWithBothSerialNumbers)
{
    pass({{"A"}, {"B"}});
    EXPECT_THAT(pass({{"A"}, {"C"}}),
                ElementsAre("40040836: Serial Number : C, Event : 1, Replaced Serial Number : B"));
    EXPECT_THAT(pass({{"A"}, {"C"}}), IsEmpty());
}

TEST_F(DiskAlerts, EachTransitionHasItsEvent)
{
    pass({{"A"}, {"B"}});
    EXPECT_THAT(pass({{"A"}, {"B", true}}), ElementsAre("80040837: Serial Number : B, Event : 1"));
    EXPECT_THAT(pass({{"A"}, {"B", true}, {"C"}}), ElementsAre("40040834: Serial Number : C, Event : 2"));
    EXPECT_THAT(pass({{"A"}, {"B", true}}), ElementsAre("80040835: Serial Number : C, Event : 3"));
    EXPECT_THAT(pass({{"A"}, {"B", true}}), IsEmpty());
}

TEST_F(DiskAlerts, AFailingDiskThatTakesAnothersIndexIsReported)
{
    pass({{"A", true}, {"B"}});
    EXPECT_THAT(pass({{"B", true}}),
                ElementsAre("80040835: Serial Number : A, Event : 2", "80040837: Serial Number : B, Event : 3"));
}

TEST_F(DiskAlerts, StringsNameAddressModelSerialAndKernelName)
{
    pass({{"A"}, {"B"}});
    machine.change(machineOf({{"A"}, {"B", true}}));
    alerts.clear();
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    const AlertRecord alert = alerts.records().back();
    EXPECT_EQ(alert.sourceName, "TAV Storage Service");
    EXPECT_EQ(alert.eventType, 2);
    EXPECT_EQ(alert.method, 3U);
    EXPECT_THAT(alert.strings, ElementsAre("Address(Controller-Bus-ID-LUN) : 1-0-1-0", "Hard Disk[2] : ATA MODEL FW01",
                                           "Serial Number : B", "Kernel Name : sdb", "Event : 1"));
}

TEST_F(DiskAlerts, OutsideServiceModeNothingIsKept)
{
    g_srvmod = 0;
    EXPECT_THAT(pass({{"A"}, {"B"}}), IsEmpty());
    EXPECT_FALSE(machine.exists(kDiskBookFile));
}

TEST_F(DiskAlerts, AFailedCollectionChangesNothing)
{
    pass({{"A"}, {"B"}});
    machine.change(machineOf({{"A"}}));
    sim::failNth(sim::Call::uname, 1);
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_THAT(pass({{"A"}}), ElementsAre("80040835: Serial Number : B, Event : 1"));
}

TEST_F(DiskAlerts, WithTheSmartModeOffHealthStaysAsItWas)
{
    pass({{"A"}, {"B", true}});
    gst_SmartMode = 0;
    EXPECT_THAT(pass({{"A", true}, {"B", true}}), IsEmpty());
    gst_SmartMode = 1;
    EXPECT_THAT(pass({{"A", true}, {"B", true}}), ElementsAre("80040837: Serial Number : A, Event : 2"));
}

TEST_F(DiskAlerts, NothingIsWrittenWhileNothingChanges)
{
    pass({{"A"}, {"B"}});
    struct stat before = {};
    ASSERT_EQ(::lstat(machine.where(kDiskBookFile).c_str(), &before), 0);
    EXPECT_EQ(before.st_mode & ALLPERMS, 0600U);
    pass({{"A"}, {"B"}});
    struct stat after = {};
    ASSERT_EQ(::lstat(machine.where(kDiskBookFile).c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_FALSE(machine.exists(std::string(kDiskBookFile) + ".tmp"));
}

TEST_F(DiskAlerts, TheSavedStateKeepsItsFormat)
{
    pass({{"A"}, {"B"}});
    const std::string with = machine.read(kSavedStateFile);
    machine.remove(kOptions);
    pass({{"A"}, {"B"}});
    EXPECT_EQ(machine.read(kSavedStateFile), with);
}

TEST_F(DiskAlerts, ARefusedEventIsSentAgainInOrder)
{
    pass({{"A"}, {"B"}});
    alerts.answer = 1;
    EXPECT_THAT(pass({{"A"}, {"B"}, {"C"}}), ElementsAre("40040834: Serial Number : C, Event : 1"));
    EXPECT_TRUE(trace->has(kFailure, "event 1 of a disk is refused, it is sent again later", "alertDisks"));
    pass({{"A"}, {"B"}, {"C"}, {"D"}});
    alerts.answer = 0;
    EXPECT_THAT(pass({{"A"}, {"B"}, {"C"}, {"D"}}),
                ElementsAre("40040834: Serial Number : C, Event : 1", "40040834: Serial Number : D, Event : 2"));
    EXPECT_THAT(pass({{"A"}, {"B"}, {"C"}, {"D"}}), IsEmpty());
}

TEST_F(DiskAlerts, AnEventIsInTheFileBeforeItIsSentAndMarkedAfterwards)
{
    pass({{"A"}, {"B"}});
    std::string during;
    alerts.onReceipt = [&] { during = book(); };
    pass({{"A"}, {"C"}});
    alerts.onReceipt = nullptr;
    EXPECT_THAT(during, HasSubstr("disk good readable 1 C ")) << "the new state";
    EXPECT_THAT(during, HasSubstr("event s 1 replaced ")) << "and that it is being sent";
    EXPECT_THAT(book(), HasSubstr("event d 1 replaced "));
}

// What a killed process leaves.
TEST_F(DiskAlerts, AnEventThatWasBeingSentIsSentAgainAndSaysSo)
{
    pass({{"A"}, {"B"}});
    std::string during;
    alerts.onReceipt = [&] { during = book(); };
    pass({{"A"}, {"C"}});
    alerts.onReceipt = nullptr;
    machine.write(kDiskBookFile, during);
    EXPECT_THAT(pass({{"A"}, {"C"}}),
                ElementsAre("40040836: Serial Number : C, Event : 1 (repeated), Replaced Serial Number : B"));
    EXPECT_THAT(pass({{"A"}, {"C"}}), IsEmpty());
}

TEST_F(DiskAlerts, ADamagedFileIsMovedAsideAndBegunAnew)
{
    for (const char *const content : {"", "nonsense", "tavstrg-disks 1\nnext 5\n"}) {
        machine.write(kDiskBookFile, content);
        EXPECT_THAT(pass({{"A"}, {"B"}}), IsEmpty());
        EXPECT_EQ(machine.read(kMovedAside), content);
        EXPECT_TRUE(trace->has(kFailure,
                               std::string(kDiskBookFile) + " is damaged, disks are compared from now on; moved to [" +
                                   kMovedAside + "]",
                               "alertDisks"));
        EXPECT_THAT(pass({{"A"}}), ElementsAre("80040835: Serial Number : B, Event : 1"));
    }
}

TEST_F(DiskAlerts, ANewerFileIsMovedAsideAndBegunAnew)
{
    machine.write(kDiskBookFile, "tavstrg-disks 2\nmore\n");
    EXPECT_THAT(pass({{"A"}, {"B"}}), IsEmpty());
    EXPECT_EQ(machine.read(kMovedAside), "tavstrg-disks 2\nmore\n");
    EXPECT_THAT(book(), testing::StartsWith("tavstrg-disks 1\n"));
}

TEST_F(DiskAlerts, ASymbolicLinkIsNotFollowed)
{
    machine.write("/opt/qlm/tavkit_sa/work/victim", "kept");
    machine.link(kDiskBookFile, machine.where("/opt/qlm/tavkit_sa/work/victim"));
    EXPECT_THAT(pass({{"A"}, {"B"}}), IsEmpty());
    EXPECT_EQ(machine.read("/opt/qlm/tavkit_sa/work/victim"), "kept");
    EXPECT_THAT(book(), HasSubstr(" B "));
}

TEST_F(DiskAlerts, AFileWithASecondNameIsNotWrittenTo)
{
    pass({{"A"}, {"B"}});
    alerts.answer = 1;
    pass({{"A"}, {"C"}});
    alerts.answer = 0;
    const std::string waiting = book();
    machine.write("/opt/qlm/tavkit_sa/work/victim", waiting);
    machine.remove(kDiskBookFile);
    ASSERT_EQ(::link(machine.where("/opt/qlm/tavkit_sa/work/victim").c_str(), machine.where(kDiskBookFile).c_str()), 0);
    EXPECT_THAT(pass({{"A"}, {"C"}}), IsEmpty());
    EXPECT_EQ(machine.read("/opt/qlm/tavkit_sa/work/victim"), waiting);
}

TEST_F(DiskAlerts, EventsComeAlsoWhileTheFileCannotBeSaved)
{
    pass({{"A"}, {"B"}});
    const std::string before = book();
    machine.makeDirectory(std::string(kDiskBookFile) + ".tmp");
    EXPECT_THAT(pass({{"A"}, {"C"}}),
                ElementsAre("40040836: Serial Number : C, Event : 1, Replaced Serial Number : B"));
    EXPECT_THAT(trace->textsOf("alertDisks"), Contains(HasSubstr("is not saved: errno=")));
    EXPECT_THAT(pass({{"A"}, {"C"}}), IsEmpty()) << "it is known in memory";
    EXPECT_EQ(book(), before);
    machine.remove(std::string(kDiskBookFile) + ".tmp");
    EXPECT_THAT(pass({{"A"}, {"C"}}), IsEmpty());
    EXPECT_THAT(book(), HasSubstr("disk good readable 1 C ")) << "saved as soon as possible";
}

TEST_F(DiskAlerts, EventsComeAlsoWhereTheSavedStateCannotBeSaved)
{
    pass({{"A"}, {"B"}});
    machine.remove(kSavedStateFile);
    machine.makeDirectory(kSavedStateFile);
    machine.change(machineOf({{"A"}, {"C"}}));
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    EXPECT_THAT(sent(), ElementsAre("40040836: Serial Number : C, Event : 1, Replaced Serial Number : B"));
}

// Whatever call fails, each transition comes once: in that pass or in a later one.
TEST_F(DiskAlerts, OneEventWhicheverCallFails)
{
    pass({{"A"}, {"B"}});
    unsigned number = 0;
    const char *serials[] = {"B", "C"};
    for (const sim::Call kind :
         {sim::Call::open, sim::Call::read, sim::Call::write, sim::Call::stat, sim::Call::allocate}) {
        if (kind == sim::Call::allocate && !sim::allocationsCanFail()) {
            continue;
        }
        bool struck = true;
        for (unsigned nth = 1; struck; ++nth) {
            SCOPED_TRACE(testing::Message() << "kind " << static_cast<int>(kind) << ", call " << nth);
            const char *const to = serials[(number + 1) % 2];
            machine.change(machineOf({{"A"}, {to}}));
            alerts.clear();
            const TraceScope scope("alertDisks");
            DiskList list;
            OwnedRecords current;
            ASSERT_EQ(strgGetCurrentInfo(1, current.dat), 0);
            sim::failNth(kind, nth);
            alertDisks(list);
            struck = sim::failureStruck();
            sim::failNth(kind, 0);
            alertDisks(list);
            ASSERT_EQ(alerts.records().size(), 1U);
            EXPECT_EQ(alerts.records()[0].strings[2], std::string("Serial Number : ") + to);
            ++number;
            EXPECT_EQ(alerts.records()[0].strings[4], "Event : " + std::to_string(number));
            ASSERT_LT(nth, 200U);
        }
    }
    EXPECT_GT(number, 10U);
}

TEST_F(DiskAlerts, TheWorldwideNameIsReadFromTheKernel)
{
    machine.change(machineOf({{""}, {"B"}}));
    machine.write("/sys/block/sda/device/wwid", "naa.5000c500a1b2c3d4  \n");
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_THAT(book(), HasSubstr("disk good readable 1 - naa.5000c500a1b2c3d4 ATA%20MODEL sda "));
}

TEST(KernelName, IsTheLastPartOfANode)
{
    EXPECT_EQ(kernelNameOf("/dev/sda"), "sda");
    EXPECT_EQ(kernelNameOf("hda"), "hda");
    EXPECT_EQ(kernelNameOf(""), "");
}

TEST(DiskEvents, HaveIdsOfTheirOwnWithTheirSeverities)
{
    EXPECT_EQ(diskEventId(DiskChange::added), TAV_ALERTID_DISK_ADDED);
    EXPECT_EQ(diskEventId(DiskChange::readable), TAV_ALERTID_DISK_READABLE);
    EXPECT_EQ(typeOfSeverity(TAV_ALERTID_DISK_UNREADABLE), kAlertError);
    EXPECT_EQ(typeOfSeverity(TAV_ALERTID_DISK_FAILING), kAlertWarning);
    EXPECT_EQ(typeOfSeverity(TAV_ALERTID_DISK_ADDED), kAlertInformation);
}

TEST(SeenDisk, ASerialNumberEndsWhereTheKernelsDoes)
{
    CollectedDisk disk = {};
    copyText(disk.serial, "SERIAL              \x03");
    EXPECT_STREQ(seenDisk(disk).facts.serial, "SERIAL");
}

TEST(SeenDisk, AWorldwideNameIsNoSerialNumber)
{
    CollectedDisk disk = {};
    copyText(disk.serial, "naa.5000c500a1b2c3d4");
    copyText(disk.wwid, "naa.5000c500a1b2c3d4");
    EXPECT_STREQ(seenDisk(disk).facts.serial, "");
    EXPECT_STREQ(seenDisk(disk).facts.wwid, "naa.5000c500a1b2c3d4");
}

TEST(DiskEvents, AnIdeDiskHasItsDriveAsAddress)
{
    CollectedDisk disk = {};
    disk.interfaceType = kInterfaceIde;
    disk.controllerIndex = 3;
    disk.drivePosition = 2;
    EXPECT_STREQ(seenDisk(disk).facts.address, "Address(Controller-Drive) : 3-Master");
}

} // namespace
