// The provider beside generic tools for the same disks, on simulated machines: prints tables in Markdown, and whether
// the goals are reached; exits non-zero when one is not.
//
// usage: compare_run [--quick] [--runs N] [--json FILE]
#include "figures.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <string>
#include <sys/prctl.h>
#include <vector>

namespace {

using namespace compare;

struct Options {
    bool quick = false;
    int runs = 11; // odd: the median is a run's own
    std::string json;
};

// More disks at 20 ms would take minutes of waiting, which tell nothing that the fewer do not.
std::vector<Place> placesOf(bool quick)
{
    if (quick) {
        return {{1, 0}, {16, 0}, {16, 2}};
    }
    return {{1, 0}, {1, 2}, {1, 20}, {16, 0}, {16, 2}, {16, 20}, {64, 0}, {128, 0}, {128, 2}};
}

bool readOptions(int argc, char **argv, Options &options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--quick") {
            options.quick = true;
            options.runs = 3;
        } else if (argument == "--runs" && i + 1 < argc && std::atoi(argv[i + 1]) > 0) {
            options.runs = std::atoi(argv[++i]);
        } else if (argument == "--json" && i + 1 < argc) {
            options.json = argv[++i];
        } else {
            std::fprintf(stderr, "usage: compare_run [--quick] [--runs N] [--json FILE]\n");
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
    for (const Place place : placesOf(options.quick)) {
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
