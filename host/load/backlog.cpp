#include "host/load/backlog.h"

#include <algorithm>
#include <charconv>

namespace zelhost {
namespace {

// These are the beginnings of two log lines of the trace worker. A number of milliseconds stands
// behind each.
constexpr std::string_view kPrediction = "predict delay time: ";
constexpr std::string_view kSaving = "drop trace will decrease: ";

// A text that is no number counts as 0.
Backlog::Milliseconds number_at(std::string_view text) {
    int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return std::chrono::milliseconds(number);
}

// A trace ends when it succeeds, fails, or is dropped without a try. A retry is no end.
bool ends_a_trace(const LogLine& line) {
    if (line.row == nullptr) return false;
    const Figure figure = line.row->figure;
    return figure == &KindFigures::succeeded || figure == &KindFigures::failed || figure == &KindFigures::dropped;
}

}  // namespace

// A pass that sheds says behind its prediction by how much it has lowered it.
void Backlog::line(const LogLine& line, Clock::time_point now) {
    const std::string_view text = line.body;
    if (ends_a_trace(line)) return end(line.rest, now);
    if (text.ends_with(kPushedText)) {
        // The line of a push ends with the GUID and a fixed text behind it.
        const size_t guid = text.rfind(kGuidText) + kGuidText.size();
        waiting_last_ = text.substr(guid, text.size() - kPushedText.size() - guid);
    } else if (text.starts_with(kPrediction)) {
        // The next prediction is taken up only when the alert of the last one has its trace. So the
        // pairs do not overlap.
        if (!followed_ && !waiting_last_.empty())
            followed_ = Followed{waiting_last_, now, number_at(text.substr(kPrediction.size()))};
    } else if (text.starts_with(kSaving) && followed_) {
        followed_->predicted -= number_at(text.substr(kSaving.size()));
    }
}

void Backlog::end(std::string_view guid, Clock::time_point now) {
    // The alert that was pushed last may end before any prediction is made. Then there is nobody to
    // follow until the next push.
    if (guid == waiting_last_) waiting_last_.clear();
    if (!followed_ || guid != followed_->guid) return;
    const Pair pair{followed_->predicted, now - followed_->since};
    followed_.reset();
    last_ = pair;
    ++sums_.count;
    sums_.predicted += pair.predicted;
    sums_.measured += pair.measured;
    sums_.highest_predicted = std::max(sums_.highest_predicted, pair.predicted);
    sums_.highest_measured = std::max(sums_.highest_measured, pair.measured);
}

}  // namespace zelhost
