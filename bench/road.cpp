#include <google/protobuf/util/json_util.h>

#include <cstdio>
#include <cstdlib>

#include "bench/baseline.h"
#include "bench/documents.h"
#include "bench/measures.h"

namespace bench {
namespace {

constexpr int kRounds = 21;
const std::vector<std::string> kQuietSettings = {"config:queue_max=500", "config:interval=10"};

// As many as fill some 20 ms, and no more than the queue takes.
int batch_for(int events) { return std::clamp(4000 / events, 2, 400); }

// What the same content costs when protobuf reads it from its own JSON form and serialises it.
double json_reader_ns(const Ready& ready, int events, int count) {
    vorn_retrace::vorn_trace_info info;
    ready.fill(events, info);
    std::string json;
    if (!google::protobuf::util::MessageToJsonString(info, &json).ok()) exit(1);
    const int64_t before = cpu_ns();
    for (int i = 0; i < count; ++i) {
        vorn_retrace::vorn_trace_info read;
        std::string bytes;
        if (!google::protobuf::util::JsonStringToMessage(json, &read).ok() || !read.SerializeToString(&bytes)) exit(1);
    }
    return static_cast<double>(cpu_ns() - before) / count;
}

double least(const std::vector<double>& values) { return *std::ranges::min_element(values); }

double baseline_ns(const Ready& ready, const std::string& text, int events, int count) {
    const int64_t before = cpu_ns();
    for (int i = 0; i < count; ++i) baseline(ready, text, events);
    return static_cast<double>(cpu_ns() - before) / count;
}

}  // namespace

void play(Rig& rig, const std::string& document, int count) {
    const uint64_t before = rig.sent();
    for (int i = 0; i < count; ++i) rig.publish(document);
    rig.await_sent(before + static_cast<uint64_t>(count));
}

double cost_ns(Rig& rig, const std::string& document, int count) {
    const int64_t before = cpu_ns();
    play(rig, document, count);
    return static_cast<double>(cpu_ns() - before) / count;
}

// Each round measures both, and the least of all rounds counts: what others on the machine do only adds to a figure.
void road(const Place& place, int events) {
    Rig rig(place.agent, place.scripted, kQuietSettings);
    const Ready ready;
    const std::string text = make_document(events);
    const int batch = batch_for(events);
    // The first alert is no repeat, so its message has no mark of one.
    play(rig, text, 1);
    const uint64_t first_size = rig.last_size();
    // The next alerts fill caches and pools.
    cost_ns(rig, text, batch);
    baseline_ns(ready, text, events, batch);
    // A comparison of different work would say nothing.
    if (baseline(ready, text, events) != first_size) {
        fprintf(stderr, "bus_road: the baseline makes another message than the road\n");
        exit(1);
    }
    std::vector<double> roads;
    std::vector<double> baselines;
    for (int round = 0; round < kRounds; ++round) {
        roads.push_back(cost_ns(rig, text, batch));
        baselines.push_back(baseline_ns(ready, text, events, batch));
    }
    std::vector<double> readers;
    for (int round = 0; round < 5; ++round) readers.push_back(json_reader_ns(ready, events, std::max(batch / 16, 1)));
    const double reader = least(readers);
    const double cost = least(roads);
    printf("road %d events: %.1f us, baseline %.1f us, ratio %.3f, JSON reader of protobuf %.2f times the road\n",
           events, cost / 1000, least(baselines) / 1000, cost / least(baselines), reader / cost);
}

void rate(const Place& place, int) {
    Rig rig(place.agent, place.scripted, kQuietSettings);
    const std::string text = make_document(1);
    std::vector<double> costs;
    for (int round = 0; round < kRounds; ++round) costs.push_back(cost_ns(rig, text, 400));
    printf("rate: %.0f alerts of one event for each second of processor time\n", 1e9 / least(costs));
}

}  // namespace bench
