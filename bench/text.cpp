// Work that is done once a text: the check on its way into a message, and the hash of a DNS hit.
#include <benchmark/benchmark.h>

#include <string>

#include "suppress/cityhash.h"
#include "trace/text_check.h"

namespace {

void text_check_ascii(benchmark::State& state) {
    const std::string text(static_cast<size_t>(state.range(0)), 'a');
    for (auto _ : state) benchmark::DoNotOptimize(CheckDsStr(text));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// Without its line in the log.
void text_check_utf8(benchmark::State& state) {
    std::string text;
    while (text.size() < static_cast<size_t>(state.range(0))) text += "/home/\u5f20\u4e09/\u00e9t\u00e9";
    for (auto _ : state)
        benchmark::DoNotOptimize(IsAsciiText(text.data(), text.size()) || IsUtf8Text(text.data(), text.size()));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void hash(benchmark::State& state) {
    const std::string text(static_cast<size_t>(state.range(0)), 'a');
    for (auto _ : state) benchmark::DoNotOptimize(zel::CityHash64(text));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(text_check_ascii)->Arg(16)->Arg(256)->Arg(4096);
BENCHMARK(text_check_utf8)->Arg(16)->Arg(256)->Arg(4096);
BENCHMARK(hash)->Arg(32)->Arg(128)->Arg(1039);

}  // namespace
