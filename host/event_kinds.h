// The events that go to and from the plug-in.
#pragma once

#include <cstdint>

namespace zel {

inline constexpr uint32_t kFirstReport = 769;
inline constexpr uint32_t kFinishedTrace = 770;
inline constexpr uint32_t kCredibleReport = 771;
inline constexpr uint32_t kMemoryCheck = 2305;

inline constexpr uint32_t kDnsHit = 1281;
inline constexpr uint32_t kIoaAlert = 1536;
inline constexpr uint32_t kMemoryTrojan = 1538;
inline constexpr uint32_t kKov = 1793;
inline constexpr uint32_t kExpand = 1794;

// Incoming events as people read them.
struct KindName {
    uint32_t id;
    const char* name;
};
inline constexpr KindName kKindNames[] = {
    {534, "not processed"},    {kDnsHit, "IOC: DNS hit"}, {kIoaAlert, "IOA alert"},    {kMemoryTrojan, "memory Trojan"},
    {1540, "port scan"},       {1541, "brute force"},     {1542, "abnormal login"},    {1543, "credible event"},
    {1544, "event detection"}, {kKov, "KOV alert"},       {kExpand, "expand a chain"}, {2304, "not handled"},
};

// Empty for an unknown one.
constexpr const char* kind_name(uint32_t id) {
    for (const KindName& kind : kKindNames)
        if (kind.id == id) return kind.name;
    return "";
}

}  // namespace zel
