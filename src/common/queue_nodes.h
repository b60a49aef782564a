// Units of work of the two stages, with the flat copy of a DNS hit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/memory.h"
#include "platform/event_ids.h"
#include "platform/zelreshdl.h"

inline constexpr size_t kGuidSize = 37;  // 36 characters and a terminator

// Variant area of ST_IOC_MSG. The builder and the cache read the place of kind 2 whatever the kind is, so the three
// layouts are written into one zeroed area by memcpy and read from it by memcpy. Kinds 1 and 2 begin alike; a common
// base would end on a multiple of 8 and move what follows it.
struct IocVariant1 {
    uint32_t uPid;
    int64_t llCreateTime;
    char szGuid[32];
    char szPath[1025];
    char szMd5[33];
    char szSha256[65];
    char szCmd[1025];
    char szUser[33];
    char szUnread[33];
    char szTail1[4];
    char szTail2[16];
    char szTail3[16];
    uint16_t uShort[2];
    uint32_t uLong[2];
};
struct IocVariant2 {
    uint32_t uPid;
    int64_t llCreateTime;
    char szGuid[32];
    char szPath[1025];
    char szMd5[33];
    char szSha256[65];
    char szCmd[1025];
    char szUser[33];
    char szUnread[33];
    char szDomain[64];
    int32_t nDnsStatus;
    char szDnsResults[512];
    uint32_t uTail;
};
struct IocVariant3 {
    char szTail1[4];
    char szTail2[16];
    char szTail3[16];
    uint16_t uShort[2];
    uint32_t uLong;
};
static_assert(offsetof(IocVariant2, szGuid) == 16 && offsetof(IocVariant2, szPath) == 48 &&
              offsetof(IocVariant2, szMd5) == 1073);
static_assert(offsetof(IocVariant2, szSha256) == 1106 && offsetof(IocVariant2, szCmd) == 1171 &&
              offsetof(IocVariant2, szUser) == 2196);
static_assert(offsetof(IocVariant2, szUnread) == 2229 && offsetof(IocVariant2, szDomain) == 2262);
static_assert(offsetof(IocVariant2, nDnsStatus) == 2328 && offsetof(IocVariant2, szDnsResults) == 2332);
static_assert(offsetof(IocVariant2, uTail) == 2844 && sizeof(IocVariant2) == 2848);
static_assert(offsetof(IocVariant1, szTail2) == 2266 && offsetof(IocVariant1, uShort) == 2298 &&
              offsetof(IocVariant1, uLong) == 2304);
static_assert(offsetof(IocVariant3, szTail2) == 4 && offsetof(IocVariant3, uShort) == 36 &&
              offsetof(IocVariant3, uLong) == 40);

// One DNS hit, made by the bus thread from the native record and owned by its node.
struct ST_IOC_MSG {
    uint32_t uKind = 0;
    uint64_t ullHead[13] = {};  // the last is the alert time
    uint32_t uHead[3] = {};     // the first is the container's init process
    char szRepository[512] = {};
    char szMounts[1024] = {};
    char szUser[512] = {};
    char szNamespace[512] = {};
    char szImageId[512] = {};
    char szContainerId[65] = {};
    char szImageTag[512] = {};
    char szImageName[512] = {};
    char szContainerName[512] = {};
    char szCapability[512] = {};
    char szPortsBinding[1024] = {};
    char szUnread1[512] = {};
    char szUnread2[512] = {};
    alignas(8) unsigned char variant[sizeof(IocVariant2)] = {};
    std::string strQueryName;
    int64_t llScore = 0;
    uint64_t ullCacheKey = 0;  // of the hot cache, computed once for each hit

    // The area as kind 2 has it.
    IocVariant2 process() const;
    uint64_t alert_time() const { return ullHead[12]; }
};

// One unit of work of the alert stage. It owns its payload. One thread at a time has it: who takes it from a queue owns
// it until it goes back into a queue.
struct ST_QUEQE_NODE {
    EVENT_ID uEventId = 0;
    uint64_t ullCacheKey = 0;  // only for 1281
    // A document's GUID of more than 36 characters fills its 37; the byte behind them is never written.
    char szGuid[kGuidSize + 1] = {};
    std::unique_ptr<ST_IOC_MSG> pIocMsg;  // only for 1281
    struct {
        std::string strPath;
        std::string strFileKey;
        uint32_t uContext = 0;
        fn_server_ret_t pfnResult = nullptr;
    } stFileTrace;           // only for 513 and 518
    uint64_t uSize = 0;      // of pData, without the spare terminator
    zel::MallocBuffer pData;
};
using NodePtr = std::unique_ptr<ST_QUEQE_NODE>;

// Frees the payload, that is pIocMsg and pData; the node stays.
void FreeNodeData(ST_QUEQE_NODE& node);

// At most 36 characters of a GUID text, terminated, the rest zero.
void set_guid(ST_QUEQE_NODE& node, const char* guid);
