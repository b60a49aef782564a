// What the builders share besides the members of CGetProtobuf.
#pragma once

#include <google/protobuf/arena.h>
#include <google/protobuf/repeated_ptr_field.h>
#include <array>
#include <cstddef>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "decode/records.h"
#include "retrace.pb.h"

namespace zel {

// The message under construction. It and its parts live in an arena: a large alert has tens of thousands of parts, and
// one by one their allocation and their end would cost more than all the rest.
class TraceInfo {
public:
    TraceInfo()
        : arena_(block_.data(), block_.size()),
          info_(google::protobuf::Arena::CreateMessage<vorn_retrace::vorn_trace_info>(&arena_)) {}

    vorn_retrace::vorn_trace_info* operator->() const { return info_; }
    vorn_retrace::vorn_trace_info& operator*() const { return *info_; }
    vorn_retrace::vorn_trace_info* get() const { return info_; }

private:
    alignas(std::max_align_t) std::array<char, 8192> block_;  // enough for most alerts
    google::protobuf::Arena arena_;
    vorn_retrace::vorn_trace_info* info_;
};

// Hands on whether a step has gone well; if not, `failure` is logged at ERROR in the caller's name.
bool passed(bool ok, const char* failure, std::source_location where = std::source_location::current());

// Appends the texts, each checked after its element is there. A refused text leaves its element empty and ends the
// list: false then.
bool add_texts(const std::vector<std::string>& texts, google::protobuf::RepeatedPtrField<vorn_retrace::string_ex>* list,
               std::source_location where = std::source_location::current());

// Copies what is known of a container, each text checked. False when one is refused; nothing is set then.
bool fill_container(vorn_retrace::threat_alert& alert, const ContainerTexts& texts);

// The text of a fixed array: up to its terminator, or all of it.
template <size_t size>
std::string array_text(const char (&array)[size]) {
    const std::string_view bytes(array, size);
    return std::string(bytes.substr(0, bytes.find('\0')));
}

}  // namespace zel
