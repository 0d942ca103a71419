// SPDX-License-Identifier: Apache-2.0
#include "collect/controllers/controller_build.h"

#include "sim/sim.h"
#include "support/lists_fixture.h"

#include <cstdlib>
#include <memory>

using namespace tavstrg;

namespace {

TEST(IdeChannelName, NumberFollowsIde)
{
    int32_t channel = -1;
    EXPECT_TRUE(parseIDEChannelName("ide0", &channel));
    EXPECT_EQ(channel, 0);
    EXPECT_TRUE(parseIDEChannelName("ide12x", &channel));
    EXPECT_EQ(channel, 12);
    for (const char *const name : {"ide", "idex", "hda", "", "id0", "xide0"}) {
        EXPECT_FALSE(parseIDEChannelName(name, &channel)) << name;
    }
}

TEST(IdeBusType, HasACodePerBus)
{
    EXPECT_EQ(GetIDEControllerBusType("isa"), 2);
    EXPECT_EQ(GetIDEControllerBusType("eisa"), 3);
    EXPECT_EQ(GetIDEControllerBusType("pci"), 4);
    for (const char *const bus : {"", "PCI", "pcix", "vlb", "(none)"}) {
        EXPECT_EQ(GetIDEControllerBusType(bus), 1) << bus;
    }
}

TEST(CmpControllerTid, IsTheDifferenceOfTheHostNumbers)
{
    const SCSIHostEntry three = hostEntry(3, "a");
    const SCSIHostEntry ten = hostEntry(10, "b");
    EXPECT_EQ(_CmpControllerTid(&ten, &three), 7);
    EXPECT_EQ(_CmpControllerTid(&three, &ten), -7);
    EXPECT_EQ(_CmpControllerTid(&three, &three), 0);
    const SCSIHostEntry lowest = hostEntry(INT32_MIN, "c");
    EXPECT_LT(_CmpControllerTid(&lowest, &ten), 0); // no overflow reverses the order
    EXPECT_GT(_CmpControllerTid(&ten, &lowest), 0);
}

void expectUnknownWords(const ControllerEntry &entry)
{
    EXPECT_STREQ(entry.version, "Not Supported");
    EXPECT_EQ(entry.oneWord, 1);
    EXPECT_EQ(entry.interruptWord, 0xFFFFFFFFU);
    EXPECT_EQ(entry.values[0], 0xFFFFFFFFU);
    EXPECT_EQ(entry.values[1], 0xFFFFFFFFU);
    EXPECT_EQ(entry.driverCount, 1);
    EXPECT_EQ(entry.words[0], 0xFFFF);
    EXPECT_EQ(entry.words[1], 0xFFFF);
    EXPECT_EQ(entry.value, 0xFFFFFFFFU);
}

TEST(NewController, OfAnUnknownKindHasNothingButItsIndex)
{
    const ControllerEntry entry = newUnknownController(4);
    EXPECT_EQ(entry.Index, 5);
    EXPECT_EQ(entry.InterfaceType, 0xFFFF);
    EXPECT_EQ(entry.controllerNumber, 0xFFFF);
    EXPECT_EQ(entry.numberInKind, 0);
    EXPECT_EQ(entry.kindWord, 0xFFFF);
    EXPECT_STREQ(entry.Model, "Unknown");
    EXPECT_EQ(entry.busType, 0xFFFF);
    EXPECT_EQ(entry.InterruptNumber, 0xFFFFFFFFU);
    EXPECT_EQ(entry.driverIndex, 0xFFFF);
    expectUnknownWords(entry);
}

TEST(NewController, OfAScsiHostIsNumberedByItsIndex)
{
    const ControllerEntry entry = newSCSIController(4, 11);
    EXPECT_EQ(entry.Index, 5);
    EXPECT_EQ(entry.InterfaceType, 0);
    EXPECT_EQ(entry.controllerNumber, 11);
    EXPECT_EQ(entry.numberInKind, 5);
    EXPECT_EQ(entry.kindWord, 0xFFFF);
    EXPECT_STREQ(entry.Model, "SCSI Controller");
    EXPECT_EQ(entry.busType, 0xFFFF);
    EXPECT_EQ(entry.InterruptNumber, 0xFFFFFFFFU);
    expectUnknownWords(entry);
}

TEST(NewController, OfAnIdeChannelIsNumberedAmongTheIdeControllers)
{
    const ControllerEntry entry = newIDEController(4, 2, 1);
    EXPECT_EQ(entry.Index, 5);
    EXPECT_EQ(entry.InterfaceType, 1);
    EXPECT_EQ(entry.controllerNumber, 1);
    EXPECT_EQ(entry.numberInKind, 2);
    EXPECT_EQ(entry.kindWord, 0xFFFE);
    EXPECT_STREQ(entry.Model, "IDE Controller(ide)");
    expectUnknownWords(entry);
}

class Controllers : public testing::Test {
protected:
    // A machine, its discovery lists, and the controller tables.
    int init(const std::string &json)
    {
        machine_ = std::make_unique<sim::Machine>(json);
        EXPECT_EQ(GetSCSIAndIDEInfoListFromProc(), 0);
        trace_.clear();
        return InitController();
    }

    TraceRecorder trace_;
    std::unique_ptr<sim::Machine> machine_;
    Collection collected_;
};

TEST_F(Controllers, HostsAreNumberedInTheOrderOfTheirNumbers)
{
    ASSERT_EQ(init(R"({"hosts": [{"number": 3, "driver": "ahci"}, {"number": 0, "driver": "ahci"},
                                 {"number": 10, "driver": "ahci"}, {"number": 1, "driver": "ahci"}],
                       "files": {"storage.inf": "ahci\n"}})"),
              0);
    EXPECT_EQ(collection().CtrlNumMib.TotalController, 4);
    EXPECT_EQ(collection().CtrlNumMib.TotalSCSIController, 4);
    EXPECT_EQ(collection().CtrlNumMib.TotalIDEController, 0);
    const uint16_t hosts[] = {0, 1, 3, 10};
    for (uint16_t i = 0; i < 4; ++i) {
        EXPECT_EQ(collection().pCtrlTbl[i].Index, i + 1);
        EXPECT_EQ(collection().pCtrlTbl[i].controllerNumber, hosts[i]);
        EXPECT_EQ(collection().pSCSICtrlTbl[i].controllerIndex, i + 1);
        EXPECT_EQ(collection().pSCSICtrlTbl[i].controllerIndexAgain, i + 1);
        EXPECT_EQ(collection().pSCSICtrlTbl[i].host, hosts[i]);
        EXPECT_EQ(controllerIndexOfHost(collection(), hosts[i]), i + 1);
    }
    EXPECT_EQ(controllerIndexOfHost(collection(), 2), 65535);
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ (0) CtrlNumMib.TotalIDEController=[0]", "GetIDEControllerNumber_Leaf"));
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ (0) CtrlNumMib.TotalSCSIController=[4]", "GetSCSIControllerNumber_Leaf"));
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ TotalSCSIController=[4] + TotalIDEController=[0] = TotalController[4]",
                           "GetControllerNumber"));
}

TEST_F(Controllers, HostsOfOneDriverShareItsEntry)
{
    ASSERT_EQ(init(R"({"hosts": [{"driver": "ahci"}, {"driver": "mptspi"}, {"driver": "ahci"}, {"driver": "mptspi"}],
                       "files": {"storage.inf": "ahci\nmptspi\n"}})"),
              0);
    ASSERT_EQ(collection().driver_cnt, 2);
    EXPECT_EQ(collection().CtrlNumMib.TotalDriver, 2);
    EXPECT_EQ(collection().pDriverTbl[0].index, 1U);
    EXPECT_EQ(collection().pDriverTbl[0].zero, 0U);
    EXPECT_STREQ(collection().pDriverTbl[0].name, "ahci");
    EXPECT_STREQ(collection().pDriverTbl[0].version, "Not Supported");
    EXPECT_EQ(collection().pDriverTbl[1].index, 2U);
    EXPECT_STREQ(collection().pDriverTbl[1].name, "mptspi");
    const uint16_t drivers[] = {1, 2, 1, 2};
    for (uint16_t i = 0; i < 4; ++i) {
        EXPECT_EQ(collection().pCtrlTbl[i].driverIndex, drivers[i]) << i;
    }
}

TEST_F(Controllers, ADriverIsFoundByAsManyCharactersAsTheStoredNameHas)
{
    ASSERT_EQ(init(R"({"hosts": [{"driver": "ata"}, {"driver": "ata_piix"}],
                       "files": {"storage.inf": "ata\nata_piix\n"}})"),
              0);
    EXPECT_EQ(collection().driver_cnt, 1);
    EXPECT_EQ(collection().pCtrlTbl[1].driverIndex, 1);
}

TEST_F(Controllers, ALongDriverNameIsCutInItsEntry)
{
    const std::string name(64, 'd');
    ASSERT_EQ(init(R"({"hosts": [{"driver": ")" + name.substr(0, 63) + R"("}, {"driver": ")" + name.substr(0, 63) +
                   R"("}], "files": {"storage.inf": ")" + name.substr(0, 63) + R"(\n"}})"),
              0);
    ASSERT_EQ(collection().driver_cnt, 1);
    EXPECT_EQ(std::string(collection().pDriverTbl[0].name), std::string(31, 'd'));
    EXPECT_EQ(collection().pCtrlTbl[1].driverIndex, 1);
}

TEST_F(Controllers, IdeChannelsFollowTheScsiHosts)
{
    ASSERT_EQ(init(R"({"hosts": [{"driver": "ahci"}],
                       "ide": {"channels": [{"name": "ide0", "model": "pci"}, {"name": "ide1", "model": "isa"}], "drives": []},
                       "interrupts": "           CPU0\n 14:   7   XT-PIC  ide0\n 15:   7   XT-PIC  ide9\n",
                       "ioports": "01f0-01f7 : ide0\n0170-0177 : ide1\n03f6-03f6 : ide0\n",
                       "files": {"storage.inf": "ahci\n"}})"),
              0);
    EXPECT_EQ(collection().CtrlNumMib.TotalController, 3);
    EXPECT_EQ(collection().CtrlNumMib.TotalIDEController, 2);
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ (0) CtrlNumMib.TotalIDEController=[2]"));

    const ControllerEntry &first = collection().pCtrlTbl[1];
    EXPECT_EQ(first.Index, 2);
    EXPECT_EQ(first.InterfaceType, 1);
    EXPECT_EQ(first.controllerNumber, 0);
    EXPECT_EQ(first.numberInKind, 1);
    EXPECT_EQ(first.busType, 4);
    EXPECT_EQ(first.InterruptNumber, 14U);
    EXPECT_EQ(first.portCount, 2);
    EXPECT_EQ(first.firstPort, 1);
    EXPECT_EQ(first.driverIndex, 0xFFFF);

    const ControllerEntry &second = collection().pCtrlTbl[2];
    EXPECT_EQ(second.controllerNumber, 1);
    EXPECT_EQ(second.numberInKind, 2);
    EXPECT_EQ(second.busType, 2);
    EXPECT_EQ(second.InterruptNumber, 0xFFFFFFFFU);
    EXPECT_EQ(second.portCount, 1);
    EXPECT_EQ(second.firstPort, 3);

    ASSERT_EQ(collection().port_cnt, 3);
    EXPECT_EQ(collection().CtrlNumMib.TotalPort, 3);
    const PortEntry ports[] = {{1, 0x1F0, 8}, {2, 0x3F6, 1}, {3, 0x170, 8}};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(collection().pPortTbl[i].index, ports[i].index);
        EXPECT_EQ(collection().pPortTbl[i].start, ports[i].start);
        EXPECT_EQ(collection().pPortTbl[i].length, ports[i].length);
    }
    EXPECT_EQ(collection().pIDECtrlTbl[0].controllerIndex, 2);
    EXPECT_EQ(collection().pIDECtrlTbl[0].position, 1);
    EXPECT_EQ(collection().pIDECtrlTbl[1].controllerIndex, 3);
    EXPECT_EQ(collection().pIDECtrlTbl[1].position, 2);
}

TEST_F(Controllers, AChannelWhoseNameIsNoNumberFails)
{
    EXPECT_EQ(init(R"({"ide": {"channels": [{"name": "idex"}], "drives": []}})"), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ (-1)", "GetController"));
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ (-1)", "InitController"));
}

TEST_F(Controllers, InterruptsThatCannotBeReadFail)
{
    EXPECT_EQ(init(R"({"ide": {"channels": [{"name": "ide0"}], "drives": []}, "interrupts": null})"), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ (-1)", "GetControllerInterrupt"));
}

TEST_F(Controllers, PortsThatCannotBeReadFail)
{
    EXPECT_EQ(init(R"({"ide": {"channels": [{"name": "ide0"}], "drives": []}, "ioports": null})"), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ (-1)", "GetControllerPort"));
}

TEST_F(Controllers, WithoutAnyEveryTableIsNullAndAllCountsAreZero)
{
    ASSERT_EQ(init("{}"), 0);
    EXPECT_EQ(collection().CtrlNumMib.TotalController, 0);
    EXPECT_EQ(collection().pCtrlTbl, nullptr);
    EXPECT_EQ(collection().pSCSICtrlTbl, nullptr);
    EXPECT_EQ(collection().pIDECtrlTbl, nullptr);
    EXPECT_EQ(collection().pPortTbl, nullptr);
    EXPECT_EQ(collection().pDriverTbl, nullptr);
}

TEST_F(Controllers, AnAdapterThatComesDuringACollectionIsInTheNext)
{
    machine_ = std::make_unique<sim::Machine>(R"({"hosts": [{"driver": "ahci"}], "files": {"storage.inf": "ahci\n"}})");
    ASSERT_EQ(GetSCSIAndIDEInfoListFromProc(), 0);
    machine_->change(R"({"hosts": [{"driver": "ahci"}, {"driver": "ahci"}]})");
    EXPECT_EQ(InitController(), 0);
    EXPECT_EQ(collection().CtrlNumMib.TotalController, 1);
    const Collection next;
    ASSERT_EQ(GetSCSIAndIDEInfoListFromProc(), 0);
    EXPECT_EQ(InitController(), 0);
    EXPECT_EQ(collection().CtrlNumMib.TotalController, 2);
}

TEST_F(Controllers, AnotherNumberOfAdaptersThanCountedFails)
{
    machine_ = std::make_unique<sim::Machine>(R"({"hosts": [{"driver": "ahci"}], "files": {"storage.inf": "ahci\n"}})");
    ASSERT_EQ(GetSCSIAndIDEInfoListFromProc(), 0);
    machine_->write("/opt/qlm/tavkit_sa/data/storage.inf", "other\n");
    EXPECT_EQ(InitController(), -1);
}

TEST_F(Controllers, AreCountedAndAllocatedInTheirOrder)
{
    ASSERT_EQ(init("{}"), 0);
    std::vector<std::string> begun;
    for (const TraceRecord &record : trace_.records()) {
        if (record.text.starts_with("_IN_") &&
            (record.function.starts_with("Malloc") || record.function.ends_with("Number_Leaf"))) {
            begun.push_back(record.function);
        }
    }
    EXPECT_EQ(begun,
              (std::vector<std::string>{"GetIDEControllerNumber_Leaf", "GetSCSIControllerNumber_Leaf",
                                        "MallocController", "MallocSCSIControllerTable", "MallocIDEControllerTable",
                                        "MallocPortTable", "MallocDriverTable", "MallocControllerTable"}));
}

TEST_F(Controllers, FreeingNullsEveryTableInItsOrder)
{
    ASSERT_EQ(init(R"({"hosts": [{"driver": "ahci"}], "ide": {"channels": [{"name": "ide0"}], "drives": []},
                       "ioports": "01f0-01f7 : ide0\n", "files": {"storage.inf": "ahci\n"}})"),
              0);
    std::vector<std::string> expected{"_IN_"};
    for (const void *const table :
         {static_cast<void *>(collection().pCtrlTbl), static_cast<void *>(collection().pDriverTbl),
          static_cast<void *>(collection().pPortTbl), static_cast<void *>(collection().pIDECtrlTbl),
          static_cast<void *>(collection().pSCSICtrlTbl)}) {
        expected.push_back(freedText(table));
    }
    expected.emplace_back("_OUT_");
    FreeControllerTable();
    EXPECT_EQ(trace_.textsOf("FreeControllerTable"), expected);
    EXPECT_EQ(collection().pCtrlTbl, nullptr);
    EXPECT_EQ(collection().pDriverTbl, nullptr);
    EXPECT_EQ(collection().pPortTbl, nullptr);
    EXPECT_EQ(collection().pIDECtrlTbl, nullptr);
    EXPECT_EQ(collection().pSCSICtrlTbl, nullptr);
    trace_.clear();
    FreeControllerTable();
    EXPECT_EQ(trace_.textsOf("FreeControllerTable")[1], "memfree already NULL");
}

TEST(ControllerNumbers, CountsBeyondAWordFailTheirLeaf)
{
    TraceRecorder trace;
    HandMadeLists lists;
    collection().g_IDEGeneralInfo.controllerCount = 65536;
    EXPECT_EQ(GetControllerNumber(), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ GetIDEControllerNumber_Leaf() failed. (-1)", "GetControllerNumber"));
    collection().g_IDEGeneralInfo.controllerCount = 65535;
    collection().g_SCSIControllerTotalNumber = -1;
    EXPECT_EQ(GetControllerNumber(), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ GetSCSIControllerNumber_Leaf() failed. (-1)", "GetControllerNumber"));
    collection().g_SCSIControllerTotalNumber = 1;
    EXPECT_EQ(GetControllerNumber(), -1);
}

TEST(ControllerNumbers, DriversGrowByTheDriversOfTheDetailList)
{
    HandMadeLists lists;
    collection().g_SCSIControllerTypeTotalNumber = 3;
    collection().g_SCSIControllerTotalNumber = 5;
    ASSERT_EQ(GetControllerNumber(), 0);
    EXPECT_EQ(collection().CtrlNumMib.TotalDriver, 3);
    EXPECT_EQ(collection().CtrlNumMib.TotalSCSIController, 5);
    EXPECT_EQ(collection().CtrlNumMib.TotalController, 5);
}

} // namespace
