// Native records of bus events. Both sides of the bus read and write them by layout, so the sizes are asserted.
#pragma once

#include <cstddef>
#include <cstdint>

// Event 1536. The text is not terminated.
struct ST_JSON_BUFFER {
    char* pData;
    uint64_t uSize;
};
static_assert(sizeof(ST_JSON_BUFFER) == 16);

#pragma pack(push, 1)

// All other incoming events but 1281. The text is not terminated.
struct ST_COMMON_BUFFER {
    uint32_t uType;
    uint64_t uSize;
    char* pData;
};
static_assert(sizeof(ST_COMMON_BUFFER) == 20);

// Outgoing events 769, 770 and 771: a common buffer in another order, with two members more.
struct ST_PB_EVENT {
    uint32_t uEventId;
    uint64_t uSize;
    char* pData;              // serialised vorn_trace_info
    uint32_t uSourceEventId;  // the event that the message stems from
    char* pszGuid;            // may be null
};
static_assert(sizeof(ST_PB_EVENT) == 32);

// Outgoing event 2305, the request to check the memory of one process. A text of the eleven is null when it is empty. A
// time is in the unit of the document that it comes from.
struct ST_MEM_DETECT_INFO {
    int64_t llOpTime;
    uint32_t uPid;
    int64_t llCreateTime;
    char* pszPath;
    int32_t nConfidence;
    uint32_t uContainerInitPid;
    uint32_t uPrivileged;
    char* pszRepository;
    char* pszMounts;
    char* pszUser;
    char* pszNamespace;
    char* pszImageId;
    char* pszContainerId;
    char* pszImageTag;
    char* pszImageName;
    char* pszContainerName;
    char* pszCapability;
    char* pszPortsBinding;
};
static_assert(sizeof(ST_MEM_DETECT_INFO) == 128);

#pragma pack(pop)

// Event 1281. Texts may be null. uKind says which of the records below pVariant points to; it is null when there is
// none.
struct ST_DNS_NATIVE {
    uint32_t uKind;
    uint64_t ullHead[13];
    uint32_t uHead[3];
    const char* pszText[13];
    const void* pVariant;
};
static_assert(sizeof(ST_DNS_NATIVE) == 240 && offsetof(ST_DNS_NATIVE, pszText) == 128);

struct ST_DNS_VARIANT_1 {
    uint32_t uPid;
    int64_t llCreateTime;
    const char* pszProcess[7];  // guid, path and five more
    const char* pszTail[3];
    uint16_t uShort[2];
    uint32_t uLong[2];
};
static_assert(sizeof(ST_DNS_VARIANT_1) == 112);

struct ST_DNS_VARIANT_2 {
    uint32_t uPid;
    int64_t llCreateTime;
    const char* pszProcess[7];
    const char* pszDomain;
    uint32_t uDnsStatus;
    const char* pszDnsResults;
    uint32_t uTail;
};
static_assert(sizeof(ST_DNS_VARIANT_2) == 104);

struct ST_DNS_VARIANT_3 {
    const char* pszTail[3];
    uint16_t uShort[2];
    uint32_t uLong;
};
static_assert(sizeof(ST_DNS_VARIANT_3) == 32);
