// Steps that the builders share besides the members of CGetProtobuf. Only the sources of this floor include it: it
// needs the generated messages, which nobody above has to know.
#pragma once

#include <google/protobuf/arena.h>
#include <google/protobuf/repeated_ptr_field.h>
#include <cstddef>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "decode/records.h"
#include "retrace.pb.h"
#include "trace/message_room.h"

namespace zel {

// The message that a builder fills, with the memory that it lives in. A large alert has tens of thousands of parts; in
// an arena they are allocated in blocks and end together. One by one that would cost more than all other work.
class TraceInfo {
public:
    TraceInfo()
        : arena_(room_.data(), room_.size()),
          info_(google::protobuf::Arena::CreateMessage<vorn_retrace::vorn_trace_info>(&arena_)) {}

    vorn_retrace::vorn_trace_info* operator->() const { return info_; }
    vorn_retrace::vorn_trace_info& operator*() const { return *info_; }
    vorn_retrace::vorn_trace_info* get() const { return info_; }

private:
    MessageRoom room_;
    google::protobuf::Arena arena_;
    vorn_retrace::vorn_trace_info* info_;
};

// Returns `ok`. When it is false, `failure` is logged at ERROR with the place of the call.
bool passed(bool ok, const char* failure, std::source_location where = std::source_location::current());

// Appends the texts to a list. Each is checked when its element is there already, so a refused text leaves an empty
// element. It also ends the list: the texts behind it are lost, and the result is false.
bool add_texts(const std::vector<std::string>& texts, google::protobuf::RepeatedPtrField<vorn_retrace::string_ex>* list,
               std::source_location where = std::source_location::current());

// Moves what is known of a container, each text checked. False when one is refused; nothing is set then.
bool fill_container(vorn_retrace::threat_alert& alert, ContainerTexts& texts);

// The text of a fixed array: up to the terminator, or the whole array when there is none.
template <size_t size>
std::string array_text(const char (&array)[size]) {
    const std::string_view bytes(array, size);
    return std::string(bytes.substr(0, bytes.find('\0')));
}

}  // namespace zel
