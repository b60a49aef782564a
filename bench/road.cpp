#include <google/protobuf/util/json_util.h>

#include <cstdio>
#include <cstdlib>

#include "bench/baseline.h"
#include "bench/documents.h"
#include "bench/measures.h"

namespace bench {
namespace {

constexpr int kRounds = 21;
constexpr const char* kQuietSettings = "\n[config]\nqueue_max=500\ninterval=10\n";

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

// Each round measures both, so that a slow moment of the machine falls on both.
void road(const Place& place, int events) {
    Rig rig(place.agent, place.scripted, kQuietSettings);
    const Ready ready;
    const std::string text = make_document(events);
    const int batch = batch_for(events);
    // The first alerts fill caches and pools.
    cost_ns(rig, text, batch);
    baseline_ns(ready, text, events, batch);
    std::vector<double> roads;
    std::vector<double> baselines;
    std::vector<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
        roads.push_back(cost_ns(rig, text, batch));
        baselines.push_back(baseline_ns(ready, text, events, batch));
        ratios.push_back(roads.back() / baselines.back());
    }
    const double reader = json_reader_ns(ready, events, std::max(batch / 4, 2));
    const double cost = quantile(roads, 0.5);
    printf("road %d events: %.1f us, baseline %.1f us, ratio %.3f, JSON reader of protobuf %.2f times the road\n", events,
           cost / 1000, quantile(baselines, 0.5) / 1000, quantile(ratios, 0.5), reader / cost);
}

void rate(const Place& place, int) {
    Rig rig(place.agent, place.scripted, kQuietSettings);
    const std::string text = make_document(1);
    std::vector<double> costs;
    for (int round = 0; round < kRounds; ++round) costs.push_back(cost_ns(rig, text, 400));
    printf("rate: %.0f alerts of one event for each second of processor time\n", 1e9 / quantile(costs, 0.5));
}

}  // namespace bench
