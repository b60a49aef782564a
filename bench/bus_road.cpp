// Measures the built plug-in from bus to bus; tools/bench.sh runs it.
//
//   bus_road AGENT SCRIPTED MEASURE[=N]...    AGENT is a staged agent folder, SCRIPTED the scripted library
//
// With a number the measure runs for it alone, as in road=15; otherwise for those of its row.
//
// Each measure runs in a process of its own, since a plug-in attaches to the bus once in its life. Exit code 0:
// measured. 1: something could not be set up. 2: wrong arguments.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <initializer_list>
#include <iterator>
#include <string_view>

#include "bench/measures.h"

namespace {

using bench::Place;

struct Measure {
    std::string_view name;
    void (*run)(const Place& place, int argument);
    std::initializer_list<int> arguments;  // one process for each
};
const Measure kMeasures[] = {
    {"road", bench::road, {1, 15, 500, 10000}},
    {"rate", bench::rate, {0}},
    {"latency", bench::latency, {1, 5, 20, 100}},
    {"hits", bench::hits, {10, 1000, 4999}},
    {"refused", bench::refused, {1, 15, 500}},
    {"recovery", bench::recovery, {0}},
    {"full_queues", bench::full_queues, {1, 500, 10000}},
    {"long_run", bench::long_run, {1000}},
    {"log_off", bench::log_off, {1, 15}},
};

// False when the measure failed.
bool run_apart(const Measure& measure, const Place& place, int argument) {
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        try {
            measure.run(place, argument);
        } catch (const std::exception& e) {
            fprintf(stderr, "bus_road: %s\n", e.what());
            exit(1);
        }
        exit(0);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

int main(int argc, char** argv) {
    bool good = argc > 3;
    if (!good) fputs("usage: bus_road AGENT SCRIPTED MEASURE[=N]...\n", stderr);
    for (int i = 3; i < argc; ++i) {
        const std::string_view word = argv[i];
        const size_t equals = word.find('=');
        const auto* const measure = std::ranges::find(kMeasures, word.substr(0, equals), &Measure::name);
        if (measure == std::end(kMeasures)) {
            fprintf(stderr, "bus_road: there is no measure '%s'\n", argv[i]);
            return 2;
        }
        const Place place{argv[1], argv[2]};
        if (equals != word.npos) {
            good = run_apart(*measure, place, atoi(argv[i] + equals + 1)) && good;
            continue;
        }
        for (const int argument : measure->arguments) good = run_apart(*measure, place, argument) && good;
    }
    return good ? 0 : argc > 3 ? 1 : 2;
}
