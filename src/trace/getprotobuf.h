// Builders: from decoded records to serialised vorn_trace_info messages.
//
// Each entry point returns the size of the message in bytes and stores it in `buffer`, a calloc buffer of exactly that size.
// On failure it returns 0 with log lines and leaves `buffer` as it was. All but GetFileTraceProtobuf, which may run on any
// thread, run on the alarm worker. They never free the node's payload.
#pragma once

#include <cstdint>

#include "common/memory.h"
#include "common/queue_nodes.h"
#include "decode/records.h"

class CGetProtobuf {
public:
    // Events 1536 and 1538. nProcessCount is raised by 1 for each event written, nRiskLevel receives the numeric level;
    // the caller zeroes both first. A repeat is marked in err_code.
    static uint64_t GetComProtobuf(ST_BUF_DATA& stData, bool bRepeated, zel::MallocBuffer& buffer, int& nProcessCount,
                                   int& nRiskLevel, uint32_t uEventId);
    // Event 1281; also selects the subject's process tree.
    static uint64_t GetIocProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer);
    // Events 1540, 1541 and 1542: the payload travels on as text.
    static uint64_t GetBfProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer);
    // Events 1543 and 1544: the payload is a message already; what can be parsed of it goes out.
    static uint64_t GetDetanalProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer);
    // Events 513 and 518: the request of a host, wrapped in an alert.
    static uint64_t GetFileTraceProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer);
};
