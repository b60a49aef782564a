// `zelhost load`: publishes made-up events at a rate and measures how the plug-in bears it.
#pragma once

#include <chrono>
#include <optional>

#include "host/commands/load.h"
#include "host/commands/load_plot.h"
#include "host/lib/agent_folder.h"
#include "host/lib/exit_codes.h"
#include "host/lib/session.h"
#include "host/lib/stop_signal.h"
#include "host/load/load.h"
#include "host/load/meter.h"

namespace zelhost {

// One load of one session. The main thread waits while publishers work and a ticker takes samples.
// Owns the session, the threads that publish and the picture. Log lines and events come on the
// threads of the session and go to the meter, which has a lock.
class LoadRun : public Client {
public:
    explicit LoadRun(const LoadOptions& options);

    // Throws Failure.
    ExitCode run();

private:
    // The session, the plug-in, and the memory that it takes at rest.
    void start();
    // Publishes for a time, waits until all has its end, and measures both.
    LoadMeasures measure(double per_second, std::chrono::milliseconds time);
    // Publishes only. The plug-in may still be at work when it returns.
    void publish(double per_second, std::chrono::milliseconds time);
    // Returns also when the longest wait has passed or a signal has come, and notes it.
    // In both ways to wait, the ticker goes on to take samples meanwhile.
    void settle();
    // The ticker's thread alone.
    void tick(double share_done);
    // The search, in load_capacity.cpp. It needs the session started.
    void find_capacity();
    // Whether the rate is borne in one of two tries.
    bool is_borne(double per_second, std::chrono::milliseconds time);
    // Measures one step of the search and notes it.
    CapacityStep try_rate(double per_second, std::chrono::milliseconds time);
    // Stops the plug-in and makes the account.
    void stop();

    void on_log_line(const LogLine& line) override { meter_.on_log_line(line); }
    void on_event(MbFrame::IEvent&, const ST_PB_EVENT& record) override { meter_.on_event(record); }

    const LoadOptions options_;
    StopSignal stop_signal_;
    Meter meter_;
    AgentFolder folder_;
    // What the load has shown so far.
    LoadEnd end_;
    std::optional<LoadPlot> plot_;
    std::optional<Session> session_;
    // Made with the first period.
    std::optional<Load> load_;
};

}  // namespace zelhost
