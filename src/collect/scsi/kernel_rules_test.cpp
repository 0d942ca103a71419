// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/kernel_rules.h"

#include "collect/scsi/scsi_discovery.h"
#include "collect/scsi/scsi_parse.h"
#include "devcmd/transport/transport.h"
#include "support/options_fixture.h"
#include "support/snapshot_fixture.h"

#include <string>

using namespace tavstrg;

namespace {

TEST(NumbersOfRelease, AreWhatItStartsWith)
{
    const struct {
        std::string_view release;
        std::string_view numbers;
    } cases[] = {
        {"6.12.117+deb12-amd64", "6.12.117"},
        {"6.9.7_1", "6.9.7"},
        {"6.1.0-56-amd64", "6.1.0"},
        {"10.2.3", "10.2.3"},
        {"2.6.32.61", "2.6.32"},
        {"7", "7"},
        {"7.", "7"},
        {"7.1rc", "7.1"},
        {"7..1", "7"},
        {".7", ""},
        {"linux", ""},
        {" 6.1", ""},
        {"", ""},
    };
    for (const auto &[release, numbers] : cases) {
        EXPECT_EQ(numbersOfRelease(release), numbers) << release;
    }
}

std::string withDisk(const std::string &release)
{
    return R"({"kernel": ")" + release +
           R"(", "hosts": [{"driver": "ahci", "devices": [{"ata": true}]}], "files": {"storage.inf": "ahci\n"}})";
}

// SCSI devices that a collection has, or -1 if it fails.
int collected(sim::Machine &machine, const std::string &options)
{
    const OptionsInForce inForce(machine, options);
    kernelRules().choice = kInterfaceUndecided; // a process meets one kernel; these tests meet several
    Snapshot now;
    const int count = strgGetCurrentInfo(0, now.dat) == 0 ? now.count(TAV_CID_STRG_SCSI) : -1;
    kernelRules().choice = kInterfaceUndecided;
    return count;
}

TEST(KernelRelease, OneWithSignsOfADistributionIsRefusedWithoutTheLineOnly)
{
    for (const char *const release : {"6.12.117+deb12-amd64", "6.9.7_1", "6.12.48+deb13-amd64"}) {
        sim::Machine machine(withDisk(release));
        EXPECT_EQ(collected(machine, ""), -1) << release;
        EXPECT_EQ(collected(machine, "kernel-release\n"), 1) << release;
        EXPECT_EQ(collected(machine, "all\n"), 1) << release;
    }
}

TEST(KernelRelease, TenAndMoreShowAnEmptyMachineWithoutTheLineOnly)
{
    for (const char *const release : {"10.2.3", "10.0.0-1-amd64", "19.1.0", "20.11.0+deb99-amd64", "100.1"}) {
        sim::Machine machine(withDisk(release));
        if (std::string_view(release).find('+') == std::string_view::npos && release[0] == '1') {
            EXPECT_EQ(collected(machine, ""), 0) << release;
        }
        EXPECT_EQ(collected(machine, "kernel-release\n"), 1) << release;
        EXPECT_EQ(collected(machine, "all\n"), 1) << release;
    }
}

TEST(KernelRelease, OldOnesAreReadAsBefore)
{
    for (const char *const release : {"2.4.21", "2.4.31-rc1", "2.6.8", "2.6.9", "3.10.0", "5.4.0", "6.1.0-56-amd64"}) {
        sim::Machine machine(withDisk(release));
        use_sg_io = 7;
        const int base = collected(machine, "");
        const int32_t transport = use_sg_io;
        use_sg_io = 7;
        EXPECT_EQ(collected(machine, "kernel-release\n"), base) << release;
        EXPECT_EQ(use_sg_io, transport) << release;
    }
    use_sg_io = 1;
}

TEST(KernelRelease, OneWithoutANumberIsRefusedWithTheLineToo)
{
    sim::Machine machine(withDisk("linux"));
    EXPECT_EQ(collected(machine, "kernel-release\n"), -1);
}

TEST(KernelRelease, TakesEffectAtTheNextCollection)
{
    sim::Machine machine(withDisk("10.2.3"));
    kernelRules().choice = kInterfaceUndecided;
    for (const int wanted : {0, 1, 0, 1}) {
        machine.write(OptionsInForce::kFile, wanted == 1 ? "kernel-release\n" : "");
        Snapshot now;
        ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
        EXPECT_EQ(now.count(TAV_CID_STRG_SCSI), wanted);
    }
    machine.remove(OptionsInForce::kFile);
    takeOptions();
    kernelRules().choice = kInterfaceUndecided;
}

} // namespace
