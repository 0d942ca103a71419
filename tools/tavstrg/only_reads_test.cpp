// SPDX-License-Identifier: Apache-2.0
// The commands about disks only read, over all example machines.
#include "tavstrg/disks.h"
#include "tavstrg/failure.h"
#include "tavstrg/record.h"

#include "disks/find/find.h"
#include "support/only_reads.h"

namespace {

using namespace tavstrg::disks;

// The command on the machine of the process; of "disk", the last one. A command that fails has read nothing either.
void runCommand(tool::Command command, const std::vector<std::string> &nodes)
{
    tool::Arguments arguments;
    arguments.command = command;
    arguments.disk = nodes.empty() ? "none" : nodes.back();
    try {
        command == tool::Command::record ? tool::recordMachine(arguments) : tool::runDisks(arguments, {});
    } catch (const tool::Failure &failure) {
        SUCCEED() << failure.what();
    }
}

class DiskCommands : public testing::TestWithParam<std::string> {};

TEST_P(DiskCommands, OnlyRead)
{
    for (const tool::Command command :
         {tool::Command::disks, tool::Command::disk, tool::Command::health, tool::Command::record}) {
        SCOPED_TRACE(tool::commandName(command));
        const sim::Machine machine(only_reads::exampleMachine(GetParam()));
        Array<Disk> disks;
        findDisks(disks);
        std::vector<std::string> nodes;
        for (const Disk &disk : disks) {
            nodes.push_back(std::string("/dev/") + disk.name);
        }
        const only_reads::Watch watch(machine, nodes);
        runCommand(command, nodes);
        watch.check();
    }
}

INSTANTIATE_TEST_SUITE_P(Examples, DiskCommands, testing::ValuesIn(only_reads::kExamples));

} // namespace
