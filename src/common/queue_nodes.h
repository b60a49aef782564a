// The units of work of both stages, and the flat copy of a DNS hit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/memory.h"
#include "platform/event_ids.h"
#include "platform/zelreshdl.h"

inline constexpr size_t kGuidSize = 37;  // 36 characters and a terminator

// The variant area of ST_IOC_MSG. The builder and the hot cache read the process of kind 2 whatever the kind is. So
// each of the three layouts is copied into one zeroed area with memcpy and read from it with memcpy. Kinds 1 and 2
// begin alike, but they have no common base: a base would end on a multiple of 8 and move what follows it.
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
// The places are fixed here because the hot cache's key depends on what kind 1 and kind 3 leave at the places of kind
// 2.
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

// One DNS hit. The bus thread copies it from the native record, because the record lives only as long as the call. From
// then on its node owns it.
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

    // The area read as kind 2.
    const IocVariant2& process() const;
    uint64_t alert_time() const { return ullHead[12]; }
};

// One unit of work of the alert stage. It owns its payload. One thread at a time has it: whoever takes it from a queue
// owns it until it goes back into a queue.
struct ST_QUEQE_NODE {
    EVENT_ID uEventId = 0;
    uint64_t ullCacheKey = 0;  // only for 1281
    // The GUID of a document may be longer than 36 characters and then fills 37. The last byte is never written, so
    // every reader finds a terminator.
    char szGuid[kGuidSize + 1] = {};
    std::unique_ptr<ST_IOC_MSG> pIocMsg;  // only for 1281
    struct {
        std::string strPath;
        std::string strFileKey;
        uint32_t uContext = 0;
        fn_server_ret_t pfnResult = nullptr;
    } stFileTrace;       // only for 513 and 518
    uint64_t uSize = 0;  // of pData, without the spare terminator
    zel::MallocBuffer pData;
};
using NodePtr = std::unique_ptr<ST_QUEQE_NODE>;

// Frees pIocMsg and pData. The node itself stays, because its ids and its GUID are still needed.
void FreeNodeData(ST_QUEQE_NODE& node);

// Copies at most 36 characters of a GUID text. The rest of szGuid becomes zero.
void set_guid(ST_QUEQE_NODE& node, const char* guid);
