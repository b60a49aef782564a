// Notes a session in a record: what goes in, what the outside answers, what comes out, and the lines of the log.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "host/lib/json_lines.h"
#include "host/lib/session.h"
#include "host/record/outside.h"
#include "host/record/record_file.h"

namespace zelhost {

// The head of a record that begins now, in an agent folder as it stands.
record::Head head_of(const AgentFolder& folder, const char* agent_id);

// Any thread. A session's client passes on what it sees.
// Owns the file. It is an Outside that asks the real one, and the session's client hands over all
// that it sees. The order of the calls is the order of the steps.
class Recorder final : public Outside {
public:
    // Makes the file. Throws Failure.
    Recorder(const std::string& path, const record::Head& head) : writer_(path, head) {}

    // The act of the host begins, and has ended. Both calls come on the host's thread.
    void input(const Input& input);
    void input_done(const Input& input);
    // The bus is about to give an event to the plug-in, and has given it. Both calls come on the
    // bus thread.
    void delivery();
    void delivered() { flags_.unlock(); }
    // Calls `enqueue`, which puts an event of the plug-in into the bus.
    void send(const std::function<void()>& enqueue);
    // The rest is called on the thread on which the thing happened. What the arguments point to is
    // copied.
    void log_line(const LogLine& line);
    void event(const ST_PB_EVENT& event);
    void memory_check(const ST_MEM_DETECT_INFO& info);
    void answer(int code, uint32_t context, const char* buffer, uint32_t size);
    void report(std::string_view module, int32_t result, std::string_view text, bool shown);

    // Writes what waits. Throws Failure when not all of the record could be written.
    void finish();

    Answer ask(record::Question question, const Real& real) override;
    // A recording changes nothing: the plug-in opens its file itself.
    std::optional<std::string> place_of_file(int64_t) override { return {}; }

private:
    void add(record::Step step);
    void add(record::Output output);

    RecordWriter writer_;
    // Held while the plug-in has an event, and while the host calls what sets a flag that no mutex of the plug-in
    // guards: a replay could not tell otherwise which was first.
    std::mutex flags_;
    std::mutex sending_;  // one event at a time, so that the steps are in the order of the events
    // Makes the line of a memory check, which the record keeps as text.
    JsonLines lines_;
};

// The forms in which the record keeps what the plug-in gave out; a replay makes the same of what it gets.
record::Output output_of(const ST_PB_EVENT& event);
record::Output output_of(const std::string& memory_check_line);
record::Output output_of(int code, uint32_t context, const char* buffer, uint32_t size);
record::Output output_of(std::string_view module, int32_t result, std::string_view text, bool shown);

}  // namespace zelhost
