// SPDX-License-Identifier: Apache-2.0
// The provider beside generic tools for the same disks, on simulated machines: prints tables in Markdown, and whether
// the goals are reached; exits non-zero when one is not.
//
// usage: compare_run [--quick|--places DISKS:MS,...] [--runs N] [--json FILE]
#include "compare/figures.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <vector>

namespace {

using namespace compare;

struct Options {
    std::vector<Place> places;
    int runs = 11; // odd: the median is a run's own
    std::string json;
};

const std::vector<Place> kQuickPlaces = {{1, 0}, {16, 0}, {16, 2}};

std::vector<Place> allPlaces()
{
    std::vector<Place> places;
    for (const int disks : {1, 16, 64, 128}) {
        for (const int latency : {0, 2, 20}) {
            places.push_back({disks, latency});
        }
    }
    return places;
}

// "64:2,128:20"; none when the text is anything else.
std::vector<Place> placesIn(const std::string &text)
{
    std::vector<Place> places;
    std::istringstream list(text);
    for (std::string item; std::getline(list, item, ',');) {
        Place place = {};
        int end = 0;
        if (std::sscanf(item.c_str(), "%d:%d%n", &place.disks, &place.latencyMs, &end) != 2 ||
            static_cast<size_t>(end) != item.size() || place.disks < 1 || place.latencyMs < 0) {
            return {};
        }
        places.push_back(place);
    }
    return places;
}

bool readOptions(int argc, char **argv, Options &options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--quick") {
            options.places = kQuickPlaces;
            options.runs = 3;
        } else if (argument == "--places" && i + 1 < argc && !placesIn(argv[i + 1]).empty()) {
            options.places = placesIn(argv[++i]);
        } else if (argument == "--runs" && i + 1 < argc && std::atoi(argv[i + 1]) > 0) {
            options.runs = std::atoi(argv[++i]);
        } else if (argument == "--json" && i + 1 < argc) {
            options.json = argv[++i];
        } else {
            std::fprintf(stderr, "usage: compare_run [--quick|--places DISKS:MS,...] [--runs N] [--json FILE]\n");
            return false;
        }
    }
    return true;
}

// Discovery sends no command: it is measured without latency alone. What smartd does first is told by a few disks.
bool isMeasured(Contender contender, Place place)
{
    return (contender < Contender::discovery || place.latencyMs == 0) &&
           (contender != Contender::smartdStart || place.disks <= 16);
}

void measureAll(Contest &contest, const Options &options, Results &results)
{
    for (const Place place : options.places) {
        std::fprintf(stderr, "%d disks, %d ms\n", place.disks, place.latencyMs);
        for (int i = 0; i < kContenders; ++i) {
            const auto contender = static_cast<Contender>(i);
            if (isMeasured(contender, place)) {
                const std::vector<Cost> costs = contest.measure(contender, place, options.runs);
                results.add(contender, place, costs, place.latencyMs == 0 ? contest.systemCalls(contender, place) : 0);
            }
        }
    }
}

int compareAll(const Options &options)
{
    ::prctl(PR_SET_TIMERSLACK, 1UL); // ns, of the children too: a simulated device waits as long as it is said to
    const std::string build = TAV_BINARY_DIR;
    Lab lab(build + "/lib/libtavsim.so");
    Contest contest(lab, build + "/bin", build + "/lib");
    contest.checkThatAllSeeTheMachine();
    Results results;
    measureAll(contest, options, results);
    std::printf("%s\n", results.tables().c_str());
    if (!options.json.empty()) {
        std::ofstream(options.json) << results.jsonLines();
    }
    return results.goals() ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    options.places = allPlaces();
    if (!readOptions(argc, argv, options)) {
        return 2;
    }
    try {
        return compareAll(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "compare_run: %s\n", error.what());
        return 2;
    }
}
