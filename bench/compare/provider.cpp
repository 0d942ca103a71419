// SPDX-License-Identifier: Apache-2.0
// Sends requests to the provider as a client does: loaded into a broker, once or repeatedly.
//
// usage: compare_provider PROVIDER DISKS REQUESTS [SMART]
// Loads the shared object PROVIDER and enumerates TAV_StorageHardDisk REQUESTS times: each request makes the provider,
// which runs without its monitoring thread, collect again. SMART, 0 or 1, is set as the SMART mode first.
// Prints a line for each request: seconds of CPU time and on the clock without the simulated machine's, then both with
// them. Ends with status 2 and the reason on standard output if an answer is not that of DISKS good disks. Ends at once
// without arguments.
#include "compare/stopwatch.h"

#include "broker/broker.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

int fail(const std::string &what)
{
    std::fprintf(stderr, "compare_provider: %s\n", what.c_str());
    return 1;
}

// Returns what is wrong, empty if nothing is. SMART status 0: the disk predicts no failure, or is not asked.
std::string judge(const broker::Reply &reply, size_t disks)
{
    if (!reply.ok() || reply.instances.size() != disks) {
        return "rc " + std::to_string(reply.rc) + " \"" + reply.message + "\", " +
               std::to_string(reply.instances.size()) + " instances";
    }
    for (const broker::Instance &instance : reply.instances) {
        const broker::Value *const status = instance.find("SmartStatus");
        if (status == nullptr || status->toString() != "0") {
            return "SMART status " + (status == nullptr ? "none" : status->toString());
        }
    }
    return "";
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 1) {
        return 0;
    }
    if (argc < 4) {
        return fail("usage: compare_provider PROVIDER DISKS REQUESTS [SMART]");
    }
    const auto disks = size_t{std::strtoul(argv[2], nullptr, 10)};
    const int requests = static_cast<int>(std::strtol(argv[3], nullptr, 10));
    broker::Broker broker;
    if (const std::string failure = broker.load(argv[1]); !failure.empty()) {
        return fail(failure);
    }
    if (argc > 4 && !broker
                         .invokeMethod("TAV_StorageConfig", "SetHardDiskSmartMode",
                                       {{"HardDiskSmartMode", broker::Value::text(argv[4])}})
                         .ok()) {
        return fail("the SMART mode cannot be set");
    }
    for (int i = 0; i < requests; ++i) {
        const compare::Stopwatch watch;
        const broker::Reply reply = broker.enumInstances("TAV_StorageHardDisk");
        const compare::Taken taken = watch.taken();
        if (const std::string wrong = judge(reply, disks); !wrong.empty()) {
            std::puts(wrong.c_str());
            return 2;
        }
        print(taken);
    }
    broker.stop();
    return 0;
}
