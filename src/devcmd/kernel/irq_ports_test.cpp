// SPDX-License-Identifier: Apache-2.0
#include "devcmd/kernel/irq_ports.h"

#include "runtime/memory.h"
#include "sim/sim.h"
#include "support/ioctl_double.h"
#include "support/long_file.h"
#include "support/trace_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

using testing::ElementsAre;

struct ProcTest : testing::Test {
    sim::Machine machine{"{}"};

    void interrupts(const std::string &text) { machine.write("/proc/interrupts", text); }
    void ioports(const std::string &text) { machine.write("/proc/ioports", text); }
};

// Has the product's allocations counted from now on: whether they are.
bool countAllocations()
{
    sim::countCallsOf("");
    sim::resetCounts();
    std::free(memalloc(1));
    const bool counted = sim::callsMade(sim::Call::allocate) == 1;
    sim::resetCounts();
    return counted;
}

struct GetIrq : ProcTest {
    uint32_t irq = 77;
    int32_t found = 77;

    uint32_t irqOf(const char *name)
    {
        EXPECT_EQ(GetIRQ(name, &irq, &found), 0);
        EXPECT_EQ(found, irq == 0xFFFFFFFE ? 0 : 1);
        return irq;
    }
};

struct Ioports : ProcTest {
    using Ranges = std::vector<std::pair<unsigned long, unsigned long>>;
    IoportRange *head = nullptr;
    int32_t found = 77;

    Ranges rangesOf(const char *name, long start = 0)
    {
        Ranges ranges;
        EXPECT_EQ(GetIoports(name, start, &head, &found), 0);
        for (const IoportRange *range = head; range != nullptr; range = range->next) {
            ranges.emplace_back(range->start, range->end);
        }
        EXPECT_EQ(found, ranges.empty() ? 0 : 1);
        FreeIoports(head);
        head = nullptr;
        return ranges;
    }
};

TEST_F(GetIrq, OfARecordedMachine)
{
    interrupts(dataText("interrupts-pc-5.10"));
    const std::pair<const char *, uint32_t> cases[] = {
        {"ahci", 30},
        {"ide0", 14},
        {"ide1", 15},
        {"sym53c8xx", 11},
        {"am53c974", 11},
        {"i8042", 1},
        {"i80421", 1},
        {"i80422", 12},
        {"virtio0-request", 28},
        {"timer", 0},
        {"xhci_hcd", 31},
        {"nosuch", 0xFFFFFFFE},
        {"Local timer", 0xFFFFFFFE}, // a line without a number
    };
    for (const auto &[name, expected] : cases) {
        EXPECT_EQ(irqOf(name), expected) << name;
    }
}

TEST_F(GetIrq, OfARecordedMachineWithTwoCpus)
{
    interrupts(dataText("interrupts-q35-6.12"));
    EXPECT_EQ(irqOf("ahci"), 24U);
    EXPECT_EQ(irqOf("sym53c8xx"), 22U);
    EXPECT_EQ(irqOf("i80422"), 12U);
    EXPECT_EQ(irqOf("virtio0-request"), 28U);
}

TEST_F(GetIrq, I80421IsTheFirstI8042LineAndI80422TheSecond)
{
    interrupts("  1:  9  XT-PIC  i8042\n 12:  5  XT-PIC  i8042\n");
    EXPECT_EQ(irqOf("i80421"), 1U);
    EXPECT_EQ(irqOf("i80422"), 12U);
    interrupts("  1:  9  XT-PIC  i8042\n");
    EXPECT_EQ(irqOf("i80421"), 1U);
    EXPECT_EQ(irqOf("i80422"), 0xFFFFFFFEU);
}

TEST_F(GetIrq, ReadsNoFurtherThanItsBound)
{
    const TraceRecorder traces;
    writeLong(machine, "/proc/interrupts", kMaxInterrupts - 100, "\n 14: 7 XT-PIC ide0\n");
    EXPECT_EQ(irqOf("ide0"), 14U);
    EXPECT_FALSE(traces.has(kFailure, "[/proc/interrupts] is too long, the rest is not read Failure!!"));
    writeLong(machine, "/proc/interrupts", kMaxInterrupts, "\n 14: 7 XT-PIC ide0\n");
    EXPECT_EQ(irqOf("ide0"), 0xFFFFFFFEU);
    EXPECT_TRUE(traces.has(kFailure, "[/proc/interrupts] is too long, the rest is not read Failure!!", "GetIRQ"));
}

TEST_F(Ioports, AreReadNoFurtherThanTheBound)
{
    const TraceRecorder traces;
    writeLong(machine, "/proc/ioports", kMaxIoports - 100, "\n01f0-01f7 : ide0\n");
    EXPECT_EQ(rangesOf("ide0").size(), 1U);
    EXPECT_FALSE(traces.has(kFailure, "[/proc/ioports] is too long, the rest is not read Failure!!"));
    writeLong(machine, "/proc/ioports", kMaxIoports, "\n01f0-01f7 : ide0\n");
    EXPECT_EQ(rangesOf("ide0").size(), 0U);
    EXPECT_TRUE(traces.has(kFailure, "[/proc/ioports] is too long, the rest is not read Failure!!", "GetIoports"));
}

TEST_F(GetIrq, GoesOnAfterAMatchWithoutANumber)
{
    interrupts("NMI: ahci\n 24: ahci\n 25: ahci\n");
    EXPECT_EQ(irqOf("ahci"), 24U);
}

TEST_F(GetIrq, UsesALastLineWithoutANewline)
{
    interrupts(" 24: ahci");
    EXPECT_EQ(irqOf("ahci"), 24U);
}

TEST_F(GetIrq, TracesWhatItFound)
{
    interrupts(" 23: ide\n 24:  5  ahci\n");
    const TraceRecorder traces;
    irqOf("ahci");
    EXPECT_THAT(traces.textsOf("GetIRQ"),
                ElementsAre("_IN_ name=[ahci]", "name=[ahci] irq=[24] line=[ 24:  5  ahci\n]", "_OUT_ ret=[0]"));
    EXPECT_TRUE(traces.has(0, "name=[ahci] irq=[24] line=[ 24:  5  ahci\n]"));
}

TEST_F(GetIrq, LongLinesAndBinaryBytesDoNoHarm)
{
    interrupts(" 5: " + std::string(5000, 'x') + " ahci\n" + std::string("\0\xFF 7: ahci\0\n", 12) +
               std::string(3000, '1') + "\n 24: ahci\n");
    EXPECT_EQ(irqOf("ahci"), 24U);
    // with many processors, a count in the middle of a line is never read as its number
    std::string counts = " 33:";
    for (int cpu = 0; cpu < 200; ++cpu) {
        counts += "          7";
    }
    interrupts(counts + "  IO-APIC  ahci\n");
    EXPECT_EQ(irqOf("ahci"), 0xFFFFFFFEU);
    interrupts("");
    EXPECT_EQ(irqOf("ahci"), 0xFFFFFFFEU);
}

TEST_F(GetIrq, NullArgumentsAreRefused)
{
    const TraceRecorder traces;
    EXPECT_EQ(GetIRQ(nullptr, &irq, &found), -1);
    EXPECT_EQ(GetIRQ("ahci", nullptr, &found), -1);
    EXPECT_EQ(GetIRQ("ahci", &irq, nullptr), -1);
    EXPECT_THAT(traces.textsOf("GetIRQ"), testing::Contains("_OUT_ param is NULL").Times(3));
    EXPECT_TRUE(traces.has(3, "_OUT_ param is NULL", "GetIRQ"));
    EXPECT_EQ(irq, 77U);
    EXPECT_EQ(found, 77);
}

TEST_F(GetIrq, AFileThatCannotBeOpenedFails)
{
    machine.remove("/proc/interrupts");
    const TraceRecorder traces;
    EXPECT_EQ(GetIRQ("ahci", &irq, &found), -1);
    EXPECT_EQ(irq, 0xFFFFFFFEU);
    EXPECT_EQ(found, 0);
    EXPECT_TRUE(traces.has(3, "_OUT_ fopen failed. [/proc/interrupts]", "GetIRQ"));
    machine.makeDirectory("/proc/interrupts");
    EXPECT_EQ(GetIRQ("ahci", &irq, &found), -1);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(Ioports, OfARecordedMachine)
{
    ioports(dataText("ioports-pc-5.10"));
    EXPECT_EQ(rangesOf("piix"),
              (Ranges{{0x170, 0x177}, {0x1F0, 0x1F7}, {0x376, 0x376}, {0x3F6, 0x3F6}, {0xC3E0, 0xC3EF}}));
    EXPECT_EQ(rangesOf("ahci"), (Ranges{{0xC3C0, 0xC3DF}}));
    EXPECT_EQ(rangesOf("nosuch"), Ranges{});
    // the outer range that begins there, not the driver's range inside it
    EXPECT_EQ(rangesOf(nullptr, 0xC3C0), (Ranges{{0xC3C0, 0xC3DF}}));
    EXPECT_EQ(rangesOf(nullptr, 0), (Ranges{{0, 0xCF7}}));
    EXPECT_EQ(rangesOf(nullptr, 0x60), (Ranges{{0x60, 0x60}}));
    EXPECT_EQ(rangesOf(nullptr, 0x61), Ranges{});
}

TEST_F(Ioports, OfIde0AreAllItsLinesInFileOrder)
{
    ioports("0170-0177 : ide1\n01f0-01f7 : ide0\n0376-0376 : ide1\n03f6-03f6 : ide0\n  f000-f007 : ide0\n");
    EXPECT_EQ(rangesOf("ide0"), (Ranges{{0x1F0, 0x1F7}, {0x3F6, 0x3F6}, {0xF000, 0xF007}}));
}

TEST_F(Ioports, OnlyTheFirstRangeThatBeginsThereIsTaken)
{
    ioports("c000-cfff : PCI Bus\n  c000-c0ff : sym53c8xx\n");
    EXPECT_EQ(rangesOf(nullptr, 0xC000), (Ranges{{0xC000, 0xCFFF}}));
}

TEST_F(Ioports, ALastLineWithoutANewlineIsIgnored)
{
    ioports("01f0-01f7 : ide0\n03f6-03f6 : ide0");
    EXPECT_EQ(rangesOf("ide0"), (Ranges{{0x1F0, 0x1F7}}));
    EXPECT_EQ(rangesOf(nullptr, 0x3F6), Ranges{});
}

TEST_F(Ioports, LinesThatDoNotParseAreLeftOut)
{
    ioports("ide0\nide0 : 01f0-01f7\n\nab\n01f0 : ide0\n01f0- : ide0\n03f6-03f6 : ide0\n");
    EXPECT_EQ(rangesOf("ide0"), (Ranges{{0x3F6, 0x3F6}}));
    EXPECT_EQ(rangesOf(nullptr, 0x1F0), Ranges{});
    // the shortest line has two characters and the newline
    ioports("a\nab\n1-2\n");
    EXPECT_EQ(rangesOf(""), (Ranges{{1, 2}}));
}

TEST_F(Ioports, NothingIsLeftOfLinesThatDoNotParse)
{
    ioports("ide0\n01f0 : ide0\n03f6-03f6 : ide0\n");
    if (!countAllocations()) {
        GTEST_SKIP() << "a sanitizer's allocator is not counted, but finds leaks by itself";
    }
    const int64_t before = sim::liveBlocks();
    EXPECT_EQ(GetIoports("ide0", 0, &head, &found), 0);
    EXPECT_EQ(sim::liveBlocks(), before + 1);
    FreeIoports(head);
    EXPECT_EQ(sim::liveBlocks(), before);
    EXPECT_EQ(sim::callsMade(sim::Call::allocate), 3U);
}

TEST_F(Ioports, LongLinesAndBinaryBytesDoNoHarm)
{
    ioports("0001-0002 : " + std::string(5000, 'x') + "ide0\n" + std::string("\0\xFF-\x80ide0\n", 9) +
            "0003-0004 : ide0 " + std::string(5000, 'y') + "\n03f6-03f6 : ide0\n");
    EXPECT_EQ(rangesOf("ide0"), (Ranges{{3, 4}, {0x3F6, 0x3F6}}));
    ioports("");
    EXPECT_EQ(rangesOf("ide0"), Ranges{});
}

TEST_F(Ioports, TracesEachRange)
{
    ioports("01f0-01f7 : ide0\n  f000-f007 : ide0\n");
    const TraceRecorder traces;
    rangesOf("ide0");
    EXPECT_THAT(
        traces.textsOf("GetIoports"),
        ElementsAre("_IN_ name=[ide0] start=[0]", "line=(01f0-01f7 : ide0) pTempInfo->start=(1f0) pTempInfo->end=(1f7)",
                    "line=(  f000-f007 : ide0) pTempInfo->start=(f000) pTempInfo->end=(f007)", "_OUT_ ret=[0]"));
    EXPECT_TRUE(traces.has(0, "line=(01f0-01f7 : ide0) pTempInfo->start=(1f0) pTempInfo->end=(1f7)"));
    EXPECT_THAT(traces.textsOf("FreeIoports"),
                ElementsAre("_IN_", testing::StartsWith("memfree("), testing::StartsWith("memfree("), "_OUT_"));
}

TEST_F(Ioports, NullResultsAreRefused)
{
    const TraceRecorder traces;
    EXPECT_EQ(GetIoports("ide0", 0, &head, nullptr), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ dwflag is NULL", "GetIoports"));
    EXPECT_EQ(GetIoports("ide0", 0, nullptr, &found), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ head is NULL", "GetIoports"));
    EXPECT_EQ(found, 0);
}

TEST_F(Ioports, AFileThatCannotBeOpenedFails)
{
    machine.remove("/proc/ioports");
    const TraceRecorder traces;
    IoportRange other{};
    head = &other;
    EXPECT_EQ(GetIoports("ide0", 0, &head, &found), -1);
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(found, 0);
    EXPECT_TRUE(traces.has(3, "_OUT_ fopen failed. [/proc/ioports]", "GetIoports"));
}

TEST_F(Ioports, ANodeThatCannotBeAllocatedFailsAndFreesTheOthers)
{
    ioports("01f0-01f7 : ide0\n03f6-03f6 : ide0\nf000-f007 : ide0\n");
    if (!countAllocations()) {
        GTEST_SKIP() << "a sanitizer's allocator is not counted";
    }
    for (unsigned nth = 1; nth <= 3; ++nth) {
        const int64_t before = sim::liveBlocks();
        const TraceRecorder traces;
        sim::failNth(sim::Call::allocate, nth);
        EXPECT_EQ(GetIoports("ide0", 0, &head, &found), -1);
        EXPECT_TRUE(sim::failureStruck());
        EXPECT_EQ(head, nullptr);
        EXPECT_EQ(found, 0);
        EXPECT_TRUE(traces.has(3, "malloc failure", "GetIoports"));
        EXPECT_TRUE(traces.has(3, "_OUT_ return -1", "GetIoports"));
        EXPECT_EQ(traces.texts().back(), "_OUT_ return -1");
        EXPECT_EQ(sim::liveBlocks(), before);
    }
    sim::failNth(sim::Call::allocate, 4);
    EXPECT_EQ(rangesOf("ide0").size(), 3U);
    EXPECT_FALSE(sim::failureStruck());
    sim::failNth(sim::Call::allocate, 0);
}

TEST_F(Ioports, FreeingNothingIsAllowed)
{
    const TraceRecorder traces;
    FreeIoports(nullptr);
    EXPECT_THAT(traces.texts(), ElementsAre("_IN_", "_OUT_"));
}

} // namespace
