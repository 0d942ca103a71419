// SPDX-License-Identifier: Apache-2.0
// Compares the provider with generic tools for the same disks, on simulated machines. Prints tables in Markdown and
// whether the goals are reached; exits non-zero if one is not.
//
// usage: compare_run [--quick|--places DISKS:MS[:PERHOST],...] [--runs N] [--json FILE]
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
    int runs = 11; // odd: the median is the figure of one run
    std::string json;
};

const std::vector<Place> kQuickPlaces = {{1, 0}, {16, 0}, {16, 2}, {16, 0, 1}};

std::vector<Place> allPlaces()
{
    std::vector<Place> places;
    for (const int disks : {1, 16, 64, 128}) {
        for (const int latency : {0, 2, 20}) {
            places.push_back({disks, latency});
        }
        if (disks > 1) {
            places.push_back({disks, 0, 1});
        }
    }
    return places;
}

// "64:2,128:20,128:0:1": disks, latency in ms, disks per host adapter. Returns none if the text is anything else.
std::vector<Place> placesIn(const std::string &text)
{
    std::vector<Place> places;
    std::istringstream list(text);
    for (std::string item; std::getline(list, item, ',');) {
        Place place = {};
        int end = 0;
        if (std::sscanf(item.c_str(), "%d:%d%n:%d%n", &place.disks, &place.latencyMs, &end, &place.perHost, &end) < 2 ||
            static_cast<size_t>(end) != item.size() || place.disks < 1 || place.latencyMs < 0 || place.perHost < 1) {
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
            std::fprintf(stderr,
                         "usage: compare_run [--quick|--places DISKS:MS[:PERHOST],...] [--runs N] [--json FILE]\n");
            return false;
        }
    }
    return true;
}

// Discovery sends no command, so it is measured without latency only. smartd's start is measured on few disks.
bool isMeasured(Contender contender, Place place)
{
    return (contender < Contender::discovery || place.latencyMs == 0) &&
           (contender != Contender::smartdStart || place.disks <= 16);
}

void measureAll(Contest &contest, const Options &options, Results &results)
{
    for (const Place place : options.places) {
        std::fprintf(stderr, "%d disks, %d a host, %d ms\n", place.disks, place.perHost, place.latencyMs);
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
    ::prctl(PR_SET_TIMERSLACK, 1UL); // ns, inherited by the children: a simulated device's sleep is not prolonged
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
