// The behaviour chain of a trace as a graph, apart from how it is drawn.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/lib/chain_kinds.h"

namespace google::protobuf {
class Message;
}
namespace vorn_retrace {
class vorn_trace_info;
}

namespace zelhost {

// How much the alert's rules say of a vertex or an edge.
// The order counts: of several marks the greatest is taken.
enum class Mark {
    none,
    named,  // it stands in an event of a rule
    hit     // it holds a text that a rule highlights
};

// All texts of a chain are clean, and as long as they came.
// Made from one message of a list of the chain. Or it stands for several, once the chain is folded.
struct ChainVertex {
    uint64_t node_id = 0;
    const ChainKind* kind = nullptr;
    Mark mark = Mark::none;
    std::string name = {};
    std::vector<std::string> lines = {};                // below the name, at most two
    const google::protobuf::Message* source = nullptr;  // of the trace; null when it holds no such vertex
    std::vector<std::string> folded = {};               // the names of those that it stands for
};

// Several edges of one kind between two vertices are one once the chain is folded.
// What one vertex did to another.
struct ChainEdge {
    size_t from = 0;  // places in the list of vertices
    size_t to = 0;
    std::string_view word = {};
    Mark mark = Mark::none;
    size_t first = 0;  // its number in the order of time, from 1; with several the first and the last
    size_t last = 0;
    size_t count = 1;
    const google::protobuf::Message* source = nullptr;  // the first
};

// It may be copied and moved. The message behind it has to live on.
struct Chain {
    std::string severity;               // "Critical"
    std::string title;                  // what the alert is called
    std::vector<std::string> subtitle;  // time, alert, host
    std::vector<ChainVertex> vertices;
    std::vector<ChainEdge> edges;  // in the order of time
    std::string note;              // what is not shown as it is; empty when all is
};

// Borrows vertices and edges of the message, which must outlive the chain.
Chain chain_of(const vorn_retrace::vorn_trace_info& message);

// Name and value of each field that is set, those of messages inside as "file_detect.risk_level". Texts are clean.
// The order is that of the fields in the schema.
using Fact = std::pair<std::string, std::string>;
std::vector<Fact> facts_of(const google::protobuf::Message& message);

}  // namespace zelhost
