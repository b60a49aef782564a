// Ids of the bus's interfaces. The first field is the ELF hash of the interface's name; the rest is zero.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

struct InterfaceId {
    uint64_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];

    friend bool operator==(const InterfaceId& a, const InterfaceId& b) {
        return a.Data1 == b.Data1 && a.Data2 == b.Data2 && a.Data3 == b.Data3 &&
               memcmp(a.Data4, b.Data4, sizeof a.Data4) == 0;
    }
};

// The classic ELF string hash. Characters are read as signed bytes, as the bus does it.
constexpr uint64_t elf_hash(std::string_view name) {
    uint64_t h = 0;
    for (const char c : name) {
        h = (h << 4) + static_cast<uint64_t>(static_cast<int64_t>(static_cast<signed char>(c)));
        const uint64_t g = h & 0xf0000000u;
        if (g != 0) h ^= g >> 24;
        h &= ~g;
    }
    return h;
}

constexpr InterfaceId interface_id(std::string_view name) { return {elf_hash(name), 0, 0, {}}; }

inline constexpr InterfaceId kNoClassId{};
inline constexpr InterfaceId kIidUnknown = interface_id("IUnknown");
inline constexpr InterfaceId kIidEvent = interface_id("IEvent");
inline constexpr InterfaceId kIidPlugin = interface_id("IPlugin");
inline constexpr InterfaceId kIidMessageBus = interface_id("IMessageBus");
inline constexpr InterfaceId kIidConnectPoint = interface_id("IConnectPoint");
inline constexpr InterfaceId kIidRtmFrame = interface_id("IRtmFrame");
inline constexpr InterfaceId kIidDnsEvent = interface_id("IDnsEvent");

// The bus compares these numbers, so a mistake in the hash must not get through a build.
static_assert(kIidUnknown.Data1 == 0xc52523e && kIidEvent.Data1 == 0x4dccc54 && kIidPlugin.Data1 == 0xe73bdbe);
static_assert(kIidMessageBus.Data1 == 0x933a563 && kIidConnectPoint.Data1 == 0x7310ca4);
static_assert(kIidRtmFrame.Data1 == 0xb1dcaa5 && kIidDnsEvent.Data1 == 0x57c87e4);
