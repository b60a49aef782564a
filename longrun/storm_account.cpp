#include "longrun/storm_account.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "host/lib/alert.h"
#include "host/lib/figures.h"

namespace zelhost {
namespace {

constexpr size_t kMostFaults = 20;
constexpr std::string_view kDropAlarm = "drop alarm: ";
constexpr std::string_view kPopped = ", pop from eliminator";

// One thread writes the predictions and the drops. Lines of other threads come in between and do not end a pass.
thread_local bool on_trace_worker = false;

// The number behind a name at the start of the text. The lines are terminated, so strtoll stops.
std::optional<int64_t> number_behind(std::string_view text, std::string_view name) {
    if (!text.starts_with(name)) return {};
    return strtoll(text.data() + name.size(), nullptr, 10);
}

}  // namespace

StormAccount::StormAccount(uint64_t alerts, int skip_level)
    : skip_level_(skip_level), ends_(alerts, End::none), shed_(alerts, false) {}

void StormAccount::set_limit(int64_t milliseconds) {
    const std::lock_guard lock(mutex_);
    limit_ = milliseconds;
}

void StormAccount::line(const LogLine& line) {
    const std::string_view text = line.body;
    if (text.empty()) return;
    const std::lock_guard lock(mutex_);

    // First, because the line that ends a pass may also be one of those below.
    if (pass_ && on_trace_worker && !text.starts_with(kDropAlarm)) end_pass(text);
    if (text.starts_with("node event id: ") && (text.ends_with(kPushedText) || text.ends_with(kPopped))) {
        Alert alert{guid_number(text.substr(text.find(kGuidText) + kGuidText.size())), 0, 0};
        sscanf(text.data(), "node event id: %*d, process count: %d, risk level: %d", &alert.processes, &alert.level);
        if (text.ends_with(kPopped))
            pop(alert.number);
        else if (pass_)
            pushed_in_pass_.push_back(alert);  // it waits for the pass to end
        else
            push(alert);
    } else if (text.starts_with("current predict time, ")) {
        int trunk = 0;
        int full = 0;
        // The misspelt word is the plug-in's.
        sscanf(text.data(), "current predict time, truck trace: %d, full trace: %d", &trunk, &full);
        trunk_ = trunk;
        full_ = full;
        on_trace_worker = true;
    } else if (const auto prediction = number_behind(text, "predict delay time: ")) {
        begin_pass(*prediction);
    } else if (text.starts_with(kDropAlarm)) {
        drop(guid_number(text.substr(kDropAlarm.size())));
    } else if (text.starts_with("alert trace ") && text.find("retry") == std::string_view::npos) {
        const End end = text.find("success") != std::string_view::npos   ? End::success
                        : text.find("dropped") != std::string_view::npos ? End::dropped
                                                                         : End::failed;
        end_alert(guid_number(text.substr(text.find("guid:") + 5)), end);
    } else if (figures_.queues.line(line)) {
        figures_.full_lines += line.row->figure == &KindFigures::queue_full;
    } else if (text.starts_with("drop trace will decrease: ")) {
        ++figures_.savings_lines;
    }
}

void StormAccount::push(const Alert& alert) {
    counts_.at(static_cast<size_t>(alert.level)) += alert.processes;
    waiting_.push_back(alert);
    figures_.most_waiting = std::max<uint64_t>(figures_.most_waiting, waiting_.size());
}

// A dropped alert has lost its weight already.
void StormAccount::pop(uint64_t number) {
    const auto at = std::ranges::find(waiting_, number, &Alert::number);
    if (at == waiting_.end()) return fault(fmt::format("alert {} was popped and never pushed", number));
    if (!at->dropped) counts_.at(static_cast<size_t>(at->level)) -= at->processes;
    waiting_.erase(at);
}

// In 64 bits, so that this account cannot overflow where the plug-in would end the process.
int64_t StormAccount::predict(const PerLevel& counts) const {
    int64_t total = 0;
    for (int level = 0; level < kLevels; ++level) total += counts[static_cast<size_t>(level)] * cost(level);
    return total;
}

// The mild levels lose all of theirs, until what is left of the excess fits into one level. Written anew here, so that
// a mistake in the plug-in is not repeated.
StormAccount::PerLevel StormAccount::quotas(int64_t excess, const PerLevel& counts) const {
    PerLevel quotas{};
    for (int level = 0; level < kLevels; ++level) {
        const auto i = static_cast<size_t>(level);
        const int64_t all = counts[i] * cost(level);
        if (excess <= all && cost(level) != 0) {
            quotas[i] = (excess + cost(level) - 1) / cost(level);
            break;
        }
        quotas[i] = counts[i];
        excess -= all;
    }
    return quotas;
}

// A push writes its line before it enters the account. So the last push before a pass may not be in the account yet;
// the prediction tells which it is. When that alert costs nothing, the prediction cannot tell.
void StormAccount::begin_pass(int64_t prediction) {
    ++figures_.passes;
    figures_.largest_prediction = std::max(figures_.largest_prediction, prediction);
    Pass pass;
    if (prediction != predict(counts_) && !waiting_.empty()) {
        const Alert last = waiting_.back();
        counts_.at(static_cast<size_t>(last.level)) -= last.processes;
        waiting_.pop_back();
        pushed_in_pass_.push_back(last);
    } else if (!waiting_.empty() && cost(waiting_.back().level) == 0) {
        pass.in_doubt = waiting_.back();
    }
    if (prediction != predict(counts_))
        fault(fmt::format("predicted {}, but what waits costs {}", prediction, predict(counts_)));
    pass.excess = pass.remaining = std::max<int64_t>(prediction - limit_, 0);
    if (pass.excess > 0) {
        ++figures_.shedding_passes;
        pass.quotas = quotas(pass.excess, counts_);
    }
    pass.at = waiting_.begin();
    pass_ = pass;
}

// The walk is in order of age. What it passes over must have had no quota. What it takes must have had one and must
// still have been needed.
void StormAccount::drop(uint64_t number) {
    ++figures_.drops;
    if (!pass_) return fault(fmt::format("alert {} was shed outside a pass", number));
    Pass& pass = *pass_;
    if (pass.remaining <= 0) fault(fmt::format("alert {} was shed after the excess was covered", number));
    const auto quota = [&](const Alert& alert) -> int64_t& { return pass.quotas[static_cast<size_t>(alert.level)]; };
    for (; pass.at != waiting_.end() && pass.at->number != number; ++pass.at)
        if (!pass.at->dropped && quota(*pass.at) > 0)
            fault(fmt::format("alert {} was passed over with a quota of {}", pass.at->number, quota(*pass.at)));
    if (pass.at == waiting_.end()) return fault(fmt::format("alert {} was shed out of turn", number));
    Alert& alert = *pass.at++;
    if (alert.dropped) fault(fmt::format("alert {} was shed twice", number));
    if (quota(alert) <= 0)
        fault(fmt::format("alert {} was shed with a quota of {} for level {}", number, quota(alert), alert.level));
    // Allowed, because quotas go by level and the walk by age. The figure shows how often it happens.
    figures_.older_severe += std::any_of(
        pass.at, waiting_.end(), [&](const Alert& other) { return !other.dropped && other.level < alert.level; });
    alert.dropped = true;
    shed_.at(number) = true;
    pass.remaining -= alert.processes * cost(alert.level);
    quota(alert) -= alert.processes;
    counts_.at(static_cast<size_t>(alert.level)) -= alert.processes;
}

// Ends the pass; `text` is the first line behind it, which tells how much was saved if anything was.
void StormAccount::end_pass(std::string_view text) {
    const Pass pass = *std::exchange(pass_, {});
    // The pass stopped before the excess was covered, so nothing with a quota may be left.
    for (auto at = pass.at; pass.remaining > 0 && at != waiting_.end(); ++at) {
        const bool doubtful = pass.in_doubt && pass.in_doubt->number == at->number;
        if (!at->dropped && !doubtful && pass.quotas[static_cast<size_t>(at->level)] > 0)
            fault(fmt::format("alert {} was left with a quota and {} ms to cover", at->number, pass.remaining));
    }
    figures_.overshoots += pass.remaining < 0;
    figures_.exhausted += pass.remaining > 0;
    const int64_t saved = pass.excess - pass.remaining;
    const auto told = number_behind(text, "drop trace will decrease: ").value_or(0);
    if (told != saved) fault(fmt::format("a pass saved {} ms and told {}", saved, told));
    // Pushes that came during the pass waited, since the pass holds the eliminator's lock.
    for (const Alert& alert : std::exchange(pushed_in_pass_, {})) push(alert);
}

// Each alert ends once, and it ends as dropped exactly if it was shed.
void StormAccount::end_alert(uint64_t number, End end) {
    if (number >= ends_.size()) return fault(fmt::format("an unknown alert {} has ended", number));
    if (ends_[number] != End::none) fault(fmt::format("alert {} has ended twice", number));
    ends_[number] = end;
    if ((end == End::dropped) != shed_[number]) fault(fmt::format("alert {} was not ended as it was shed", number));
    figures_.settled += end == End::dropped;
}

// Only the first texts are kept: after one mistake many follow.
void StormAccount::fault(std::string text) {
    ++fault_count_;
    if (faults_.size() < kMostFaults) faults_.push_back(std::move(text));
}

StormFigures StormAccount::figures() const {
    const std::lock_guard lock(mutex_);
    return figures_;
}

uint64_t StormAccount::count_ended() const {
    const std::lock_guard lock(mutex_);
    return static_cast<uint64_t>(ends_.size()) - static_cast<uint64_t>(std::ranges::count(ends_, End::none));
}

std::vector<std::string> StormAccount::faults() const {
    const std::lock_guard lock(mutex_);
    return faults_;
}

uint64_t StormAccount::fault_count() const {
    const std::lock_guard lock(mutex_);
    return fault_count_;
}

}  // namespace zelhost
