// What there is in a chain: one row for each list of vertices in the schema, and one word for each kind of edge.
#pragma once

#include <span>
#include <string_view>

namespace zelhost {

// What looks alike in a picture.
enum class Family {
    process,
    file,
    network,
    dns,
    registry,
    account,
    service,
    task,
    module,
    pipe,
    thread,
    wmi,
    container,
    unknown,
    rest
};

// A text with fields in braces: "{net_dst_ip}:{net_dst_port}". A slash before the name takes the part behind the last
// slash or backslash of the value. A text whose fields are all empty is left out.
struct ChainKind {
    // All texts are constants and live as long as the process.
    std::string_view list;  // the field of vorn_trace_event; empty for what no list holds
    Family family;
    std::string_view word;    // of one
    std::string_view plural;  // of several that are folded: "312 files"
    std::string_view name;    // what the vertex is called
    std::string_view second = {};
    std::string_view third = {};
};

// In the order of the schema.
std::span<const ChainKind> chain_kinds();

extern const ChainKind kUnknownVertex;  // an edge names it, and no list holds it
extern const ChainKind kMoreVertices;   // stands for what a picture has no room for

// What the first vertex does to the second, as "creates"; "acts on" for a type that the schema does not know.
std::string_view edge_word(int type);

}  // namespace zelhost
