// A sink by itself: hands messages over at a steady rate and tells what became of them and what they cost.
//
//   sink_rate nats://HOST:PORT/SUBJECT BYTES RATE SECONDS
//
// One line on standard output. Without a server all goes through the buffer.
#include <fmt/format.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "host/lib/sink.h"
#include "platform/event_ids.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

double processor_seconds(int whose) {
    rusage usage{};
    getrusage(whose, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    std::string payload(strtoul(argv[2], nullptr, 10), 'x');
    const double rate = strtod(argv[3], nullptr);
    const auto count = static_cast<uint64_t>(rate * strtod(argv[4], nullptr));
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / fmt::format("sink_rate.{}", getpid());
    zelhost::SinkOptions options;
    options.address = argv[1];
    options.buffer = folder;
    options.buffer_mb = 4096;
    char guid[] = "12345678-1234-4234-8234-123456789012";
    ST_PB_EVENT event{event_id::first_report, payload.size(), payload.data(), event_id::ioa_alert, guid};
    {
        zelhost::Sink sink(options, {});
        std::this_thread::sleep_for(500ms);  // to be connected
        const double before = processor_seconds(RUSAGE_SELF), before_here = processor_seconds(RUSAGE_THREAD);
        const auto begin = Clock::now();
        for (uint64_t sent = 0; sent < count;) {
            const double due = std::chrono::duration<double>(Clock::now() - begin).count() * rate;
            for (; sent < count && static_cast<double>(sent) <= due; ++sent) sink.hand_over(event);
            std::this_thread::sleep_for(1ms);
        }
        const double here = processor_seconds(RUSAGE_THREAD) - before_here;
        const double took = std::chrono::duration<double>(Clock::now() - begin).count();
        sink.close();
        const zelhost::SinkAccount account = sink.account();
        const double messages = static_cast<double>(account.handed_over);
        fmt::print(
            "{} bytes, {:.0f}/s: {} through the buffer ({:.1f} %), {} left in it, {} shed; {:.1f} us of processor "
            "time for each, {:.1f} of them for the thread that hands over\n",
            payload.size(), messages / took, account.spilled, 100 * static_cast<double>(account.spilled) / messages,
            account.buffered, account.shed_full + account.shed_disk + account.shed_size,
            (processor_seconds(RUSAGE_SELF) - before) / messages * 1e6, here / messages * 1e6);
    }
    std::filesystem::remove_all(folder);
}
