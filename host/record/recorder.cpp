#include "host/record/recorder.h"

#include <chrono>
#include <utility>

#include "host/lib/failure.h"
#include "host/record/input.h"

namespace zelhost {
namespace {

// Limits and the reset period.
// Only these set what workers read without a lock. Other acts are ordered by the plug-in's own
// mutexes.
bool sets_flag(const Input& input) {
    return input.kind == Input::configure || input.kind == Input::reset_begin || input.kind == Input::reset_end;
}

}  // namespace

record::Head head_of(const AgentFolder& folder, const char* agent_id) {
    record::Head head;
    head.set_zelhost(ZEL_VERSION);
    head.set_began_us(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
    if (agent_id != nullptr) head.set_agent_id(agent_id);
    // The files are kept whole. A replay writes them into a copy of the agent folder.
    for (auto& [path, text] : folder.settings_files()) (*head.mutable_settings())[path] = text;
    return head;
}

record::Output output_of(const ST_PB_EVENT& event) {
    record::Output output;
    record::Event& out = *output.mutable_event();
    out.set_event_id(event.uEventId);
    out.set_source(event.uSourceEventId);
    // By value: the record is packed, and a reference to a member could be misaligned.
    const char* const guid = event.pszGuid;
    const char* const data = event.pData;
    if (guid != nullptr) out.set_guid(guid);
    if (data != nullptr) out.set_message(data, static_cast<size_t>(event.uSize));
    return output;
}

record::Output output_of(const std::string& memory_check_line) {
    record::Output output;
    output.mutable_memory_check()->set_line(memory_check_line);
    return output;
}

record::Output output_of(int code, uint32_t context, const char* buffer, uint32_t size) {
    record::Output output;
    record::CallBack& out = *output.mutable_call_back();
    out.set_code(code);
    out.set_context(context);
    if (buffer != nullptr) out.set_message(buffer, size);
    return output;
}

record::Output output_of(std::string_view module, int32_t result, std::string_view text, bool shown) {
    record::Output output;
    record::Report& out = *output.mutable_report();
    out.set_module(std::string(module));
    out.set_result(result);
    out.set_text(std::string(text));
    out.set_shown(shown);
    return output;
}

void Recorder::add(record::Step step) {
    // The thread that calls is the one that the step belongs to.
    step.set_role(role_of_this_thread());
    writer_.add(std::move(step));
}

void Recorder::input(const Input& input) {
    record::Step step;
    *step.mutable_input() = input_to_record(input);
    // The step must stand behind every delivery before it and before every delivery after it.
    if (sets_flag(input)) flags_.lock();
    add(std::move(step));
}

void Recorder::input_done(const Input& input) {
    if (sets_flag(input)) flags_.unlock();
}

void Recorder::delivery() {
    // The lock is held until delivered, on the same thread.
    flags_.lock();
    record::Step step;
    step.mutable_delivery();
    add(std::move(step));
}

void Recorder::log_line(const LogLine& line) {
    record::Step step;
    step.mutable_line()->set_level(static_cast<uint32_t>(line.level));
    step.mutable_line()->set_text(std::string(line.text));
    add(std::move(step));
}

void Recorder::add(record::Output output) {
    record::Step step;
    *step.mutable_output() = std::move(output);
    add(std::move(step));
}

void Recorder::event(const ST_PB_EVENT& event) { add(output_of(event)); }

void Recorder::memory_check(const ST_MEM_DETECT_INFO& info) { add(output_of(lines_.memory_check(info))); }

void Recorder::answer(int code, uint32_t context, const char* buffer, uint32_t size) {
    add(output_of(code, context, buffer, size));
}

void Recorder::report(std::string_view module, int32_t result, std::string_view text, bool shown) {
    add(output_of(module, result, text, shown));
}

// The step comes first: the bus may be so quick that what it gives out would stand before it otherwise.
void Recorder::send(const std::function<void()>& enqueue) {
    const std::lock_guard lock(sending_);
    ask(record::SEND, [] { return Answer{}; });
    enqueue();
}

void Recorder::finish() {
    writer_.flush();
    // A record that is short is worth a message, but only once the session is over.
    if (const std::string error = writer_.error(); !error.empty()) throw Failure("{}", error);
}

// The step stands where the answer came; that of a lock while it is held, so that the order of the steps is that in
// which the threads held it.
Outside::Answer Recorder::ask(record::Question question, const Real& real) {
    Answer answer = real();
    record::Step step;
    record::Answer& out = *step.mutable_answer();
    out.set_question(question);
    out.set_number(answer.number);
    if (answer.data) out.set_data(*answer.data);
    add(std::move(step));
    return answer;
}

}  // namespace zelhost
