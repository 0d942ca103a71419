// SPDX-License-Identifier: Apache-2.0
#include "scenarios/clients.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>

namespace scenario {

namespace {

// Each collection asks for the kernel's release once; the first one twice.
unsigned collectionsBegun()
{
    return sim::callsMade(sim::Call::uname);
}

const char *const kAsked[] = {"TAV_StorageHardDisk", "TAV_StorageSCSIDevice", "TAV_StorageController",
                              "TAV_StorageTotalNumber", "TAV_StorageConfig"};

} // namespace

ClientsSeen letClientsAsk(broker::Broker &broker, size_t clients, size_t least, double seconds)
{
    ClientsSeen seen;
    std::mutex guard;
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    const auto ask = [&](size_t client) {
        for (size_t i = 0; i < least || std::chrono::steady_clock::now() < end; ++i) {
            const char *const asked = kAsked[(client + i) % std::size(kAsked)];
            const unsigned before = collectionsBegun();
            const broker::Reply reply = broker.enumInstances(asked);
            const unsigned after = collectionsBegun();
            const std::lock_guard held(guard);
            ++seen.requests;
            seen.collections.push_back(after - before);
            if (!reply.ok()) {
                seen.refusals.push_back(std::string(asked) + ": " + reply.message);
            }
        }
    };
    const unsigned first = collectionsBegun();
    std::vector<std::thread> threads;
    for (size_t client = 0; client < clients; ++client) {
        threads.emplace_back(ask, client);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    seen.collectionsOfAll = collectionsBegun() - first;
    std::sort(seen.collections.begin(), seen.collections.end());
    return seen;
}

} // namespace scenario
