#include "host/commands/load_plot.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// Owns the file and closes it.
using File = std::unique_ptr<FILE, int (*)(FILE*)>;

// The file has no name and is gone when it is closed.
File temporary_file() {
    File file(tmpfile(), fclose);
    if (file == nullptr) throw Failure("cannot make a temporary file for the picture: {}", strerror(errno));
    return file;
}

// What was written is read from its beginning.
void to_the_start(FILE* file) {
    if (fseek(file, 0, SEEK_SET) != 0)
        throw Failure("cannot use a temporary file for the picture: {}", strerror(errno));
}

// The whole file.
std::string content(FILE* file) {
    std::string text;
    to_the_start(file);
    char buffer[4096];
    while (const size_t size = fread(buffer, 1, sizeof buffer, file)) text.append(buffer, size);
    return text;
}

// What gnuplot makes of the script. Files stand between, so that neither side waits for the other.
// Throws Failure when the program is missing or does not take the script.
std::string gnuplot(const std::string& script) {
    const File in = temporary_file();
    const File out = temporary_file();
    const File errors = temporary_file();
    // The script is complete before the program starts.
    fwrite(script.data(), 1, script.size(), in.get());
    to_the_start(in.get());
    // The child gets the three files as its standard streams.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(in.get()), 0);
    posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), 1);
    posix_spawn_file_actions_adddup2(&actions, fileno(errors.get()), 2);
    // The function wants texts that it may change.
    char program[] = "gnuplot";
    char* arguments[] = {program, nullptr};
    pid_t child = 0;
    const int error = posix_spawnp(&child, program, &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error == ENOENT) throw Failure("--plot needs gnuplot, which is not there; install the package gnuplot-nox");
    if (error != 0) throw Failure("cannot run gnuplot for --plot: {}", strerror(error));
    int status = 0;
    // A signal may come while the child runs.
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (status == 0) return content(out.get());
    // The program tells its reason in several lines; the failure has one.
    std::string reason = content(errors.get());
    std::ranges::replace(reason, '\n', ' ');
    throw Failure("gnuplot failed for --plot: {}", reason.substr(0, 200));
}

// gnuplot leaves a gap for what is not known.
std::string number(double value) { return std::isnan(value) ? "NaN" : fmt::format("{:.4f}", value); }

// Milliseconds. Nothing where no alert was reported in the time.
std::string ms(std::optional<Histogram::Microseconds> time) {
    return number(time ? static_cast<double>(time->count()) / 1000 : NAN);
}

// One line a sample. Rates are those since the sample before, so the first sample has none and no line.
// Columns that are not known hold a mark that the program understands.
std::string data_block(const std::vector<LoadSample>& samples) {
    std::string text = "$load << END\n";
    for (size_t i = 1; i < samples.size(); ++i) {
        // The two samples whose difference is the line.
        const LoadSample& before = samples[i - 1];
        const LoadSample& now = samples[i];
        // A division by 0 is not possible, however near the two are.
        const double time = std::max(now.at - before.at, 1e-3);
        const auto rate = [&](uint64_t LoadSample::* count) {
            return number(static_cast<double>(now.*count - before.*count) / time);
        };
        // The order of the columns is that which the script below reads.
        fmt::format_to(std::back_inserter(text), "{:.3f} {} {} {} {} {} {} {} {} {} {} {} {} {}\n", now.at,
                       rate(&LoadSample::in), rate(&LoadSample::reports), rate(&LoadSample::traces),
                       rate(&LoadSample::refused), ms(now.median), ms(now.slow), ms(now.slowest), now.event_queue,
                       now.trc_queue, now.delay_queue, number(now.backlog ? now.backlog->predicted.count() : NAN),
                       number(now.backlog ? now.backlog->measured.count() : NAN), now.inbox);
    }
    return text + "END\n";
}

// A picture whose every text is written here or checked by the parser of the command line.
constexpr const char* kScript = R"(set terminal svg size 960,900 dynamic font "sans-serif,13" background "#ffffff"
set multiplot layout 3,1 title "{title}" font ",15" noenhanced
set grid lc rgb "#dddddd"
set border 3 lc rgb "#555555"
set tics nomirror
set lmargin 11
set rmargin {right_margin}
set key outside top center horizontal
set xrange [0:*]
set style data lines
set style line 1 lw 2 lc rgb "#0072b2"
set style line 2 lw 2 lc rgb "#009e73"
set style line 3 lw 2 lc rgb "#e69f00"
set style line 4 lw 2 lc rgb "#d55e00"
set style line 5 lw 1.5 lc rgb "#777777" dt 2
set arrow 1 from {end}, graph 0 to {end}, graph 1 nohead lc rgb "#777777" dt 3
set label 1 "publishing ends" at {end}, graph 0.06 right offset -0.6,0 tc rgb "#777777" font ",11"
set yrange [0:*]
set ylabel "events a second"
plot $load using 1:2 ls 1 title "in", "" using 1:3 ls 2 title "first reports", \
     "" using 1:4 ls 3 title "traces"{refused}
unset label 1
set ylabel "ms to the first report"
set yrange [*:*]
set logscale y
plot $load using 1:6 ls 1 title "median", "" using 1:7 ls 3 title "p99", "" using 1:8 ls 4 title "highest", \
     {sleep} ls 5 title "idle sleep"
unset logscale y
set yrange [0:*]
set xlabel "seconds"
{queues}
unset multiplot
)";
constexpr const char* kRefused = R"(, "" using 1:5 ls 4 title "refused")";
constexpr const char* kQueues = R"(set ylabel "entries of a queue"
{backlog_axis}
plot $load using 1:9 ls 1 title "event queue", "" using 1:10 ls 2 title "trc queue", \
     "" using 1:11 ls 3 title "delay queue", {limit} ls 5 title "limit"{backlog_lines})";
// All that is known without the log.
constexpr const char* kInbox = R"(set ylabel "events"
plot $load using 1:14 ls 1 title "waiting on the bus")";
// Where a prediction was followed, a second axis shows it beside what was measured.
constexpr const char* kBacklogAxis = "set y2label \"ms of backlog\"\nset y2tics\nset y2range [0:*]\nset border 11";
constexpr const char* kBacklogLines =
    R"(, \
     "" using 1:12 axes x1y2 with points pt 6 ps 0.6 lc rgb "#d55e00" title "predicted backlog", \
     "" using 1:13 axes x1y2 with points pt 7 ps 0.4 lc rgb "#000000" title "measured backlog")";

}  // namespace

// An empty script is drawn to see whether gnuplot is there.
// The file is only opened when the program is there.
LoadPlot::LoadPlot(const std::string& path) : file_((gnuplot(""), path)) {}

// The parts of the script that depend on what was measured.
void LoadPlot::draw(const LoadEnd& end, const std::string& title) {
    const LoadMeasures& measures = end.measures;
    const bool backlog = measures.backlog.count > 0;
    const std::string queues = fmt::format(
        fmt::runtime(measures.log ? kQueues : kInbox), fmt::arg("limit", end.settings.queue_max),
        fmt::arg("backlog_axis", backlog ? kBacklogAxis : ""), fmt::arg("backlog_lines", backlog ? kBacklogLines : ""));
    const std::string script =
        fmt::format(fmt::runtime(kScript), fmt::arg("title", title), fmt::arg("right_margin", backlog ? 10 : 3),
                    fmt::arg("end", measures.seconds), fmt::arg("sleep", end.settings.idle_sleep.count()),
                    fmt::arg("refused", measures.log ? kRefused : ""), fmt::arg("queues", queues));
    // The picture is written in one piece.
    file_.write(gnuplot(data_block(measures.samples) + script));
    file_.flush();
}

}  // namespace zelhost
