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
class LoadRun : public Client {
public:
    explicit LoadRun(const LoadOptions& options);

    // Throws Failure.
    ExitCode run();

private:
    void start();
    // Publishes for a time, waits until all has its end, and measures both.
    LoadMeasures measure(double per_second, std::chrono::milliseconds time);
    void publish(double per_second, std::chrono::milliseconds time);
    // Returns also when the longest wait has passed or a signal has come, and notes it.
    void settle();
    void tick(double share_done);
    // The search, in load_capacity.cpp. It needs the session started.
    void find_capacity();
    bool is_borne(double per_second, std::chrono::milliseconds time);
    CapacityStep try_rate(double per_second, std::chrono::milliseconds time);
    void stop();

    void on_log_line(const LogLine& line) override { meter_.on_log_line(line); }
    void on_event(MbFrame::IEvent&, const ST_PB_EVENT& record) override { meter_.on_event(record); }

    const LoadOptions options_;
    StopSignal stop_signal_;
    Meter meter_;
    AgentFolder folder_;
    LoadEnd end_;
    std::optional<LoadPlot> plot_;
    std::optional<Session> session_;
    std::optional<Load> load_;
};

}  // namespace zelhost
