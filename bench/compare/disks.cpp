// SPDX-License-Identifier: Apache-2.0
// The disks engine: finds, names and asks every disk of the machine, as "tavstrg disks" does.
//
// usage: compare_disks DISKS TIMES
// Prints a line for each time, as compare_provider does. Ends with status 1 unless it found exactly DISKS disks, all of
// them good. Ends at once without arguments.
#include "compare/stopwatch.h"

#include "disks/find/find.h"
#include "disks/identity/identity.h"
#include "disks/pass/pass.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace tavstrg::disks;

int main(int argc, char **argv)
{
    if (argc != 3) {
        return argc == 1 ? 0 : 1;
    }
    const int wanted = static_cast<int>(std::strtol(argv[1], nullptr, 10));
    const int times = static_cast<int>(std::strtol(argv[2], nullptr, 10));
    Pass pass;
    for (int i = 0; i < times; ++i) {
        Array<Disk> disks;
        const compare::Stopwatch watch;
        const bool done = findDisks(disks) == FindResult::done && pass.run(disks) && nameAskedDisks(disks);
        const compare::Taken taken = watch.taken();
        const auto good = std::count_if(disks.begin(), disks.end(),
                                        [](const Disk &disk) { return disk.health.state == HealthState::good; });
        if (!done || disks.count() != wanted || good != wanted) {
            std::fprintf(stderr, "compare_disks: %d disks found, %d good\n", disks.count(), static_cast<int>(good));
            return 1;
        }
        print(taken);
    }
    return 0;
}
