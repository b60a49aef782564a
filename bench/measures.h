// What bus_road measures. Each measure has a plug-in of its own and prints its figures, a line each.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "bench/rig.h"

namespace bench {

// Where the plug-in comes from: the staged agent folder and the scripted library.
struct Place {
    std::string agent;
    std::string scripted;
};

// Processor time for each alert of so many events, of the road and of the baseline in turn, and of protobuf's JSON
// reader.
void road(const Place& place, int events);
// Small alerts for each second of processor time.
void rate(const Place& place, int);
// From the bus's call to the plug-in's, beyond the idle sleep of so many milliseconds.
void latency(const Place& place, int interval);
// What a hit of the hot cache costs the bus thread beyond its copy, with so many entries.
void hits(const Place& place, int entries);
// Refused alerts of so many events beside accepted ones.
void refused(const Place& place, int events);
// Ten seconds of three times what the plug-in can take, then how soon it answers as before.
void recovery(const Place& place, int);
// Resident memory with all queues full of alerts of so many events.
void full_queues(const Place& place, int events);
// Resident memory over so many thousand alerts of all sorts.
void long_run(const Place& place, int thousands);
// What the calls of a logger cost that writes nothing, as a share of an alert of so many events.
void log_off(const Place& place, int events);

// --- what they share ---

// The value below which this share of the values lies.
template <class T>
T quantile(std::vector<T> values, double share) {
    const auto place =
        values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1) + 0.5);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

// Publishes the document `count` times and waits until all are sent. No queue overflows up to 400.
void play(Rig& rig, const std::string& document, int count);
// Processor time of the whole process for each of them, in nanoseconds.
double cost_ns(Rig& rig, const std::string& document, int count);
// Of single alerts, one after the other: microseconds to the report from when the worker's sleep should have ended, and
// from when it did.
struct Latencies {
    std::vector<double> from_due;
    std::vector<double> from_awake;
};
Latencies latencies_us(Rig& rig, const std::string& document, int interval_ms, int count);

}  // namespace bench
