#include "plugin/zelreshdl_dns.h"

#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "common/log.h"
#include "common/memory.h"
#include "platform/native_payloads.h"
#include "suppress/fifoqueue.h"

namespace {

// Each hit has the same score.
constexpr int64_t kScore = 90;

// Gives the second interface of the event back.
struct DnsReleaser {
    void operator()(MbFrame::IDnsEvent* dns) const { dns->Release(); }
};

// Cuts the text to the room and terminates it. A null text leaves the room empty.
void put(std::span<char> room, const char* text) {
    if (text != nullptr) zel_str_strlcpy(room.data(), text, room.size());
}

template <class Flat, class Native>
// The guid comes first, then the path; the order is that of the native record.
void put_process(Flat& flat, const Native& native) {
    flat.uPid = native.uPid;
    flat.llCreateTime = native.llCreateTime;
    const std::array<std::span<char>, 7> texts{flat.szGuid, flat.szPath, flat.szMd5,   flat.szSha256,
                                               flat.szCmd,  flat.szUser, flat.szUnread};
    for (size_t i = 0; i < texts.size(); ++i) put(texts[i], native.pszProcess[i]);
}

template <class Flat, class Native>
void put_tail(Flat& flat, const Native& native) {
    // The rooms are those of the layout: longer texts are cut to 3 and 15 characters.
    put(flat.szTail1, native.pszTail[0]);
    put(flat.szTail2, native.pszTail[1]);
    put(flat.szTail3, native.pszTail[2]);
    memcpy(flat.uShort, native.uShort, sizeof flat.uShort);
    memcpy(&flat.uLong, &native.uLong, sizeof flat.uLong);
}

void put_variant(IocVariant1& flat, const ST_DNS_VARIANT_1& native) {
    put_process(flat, native);
    put_tail(flat, native);
}

void put_variant(IocVariant2& flat, const ST_DNS_VARIANT_2& native) {
    put_process(flat, native);
    put(flat.szDomain, native.pszDomain);
    flat.nDnsStatus = static_cast<int32_t>(native.uDnsStatus);
    put(flat.szDnsResults, native.pszDnsResults);
    flat.uTail = native.uTail;
}

void put_variant(IocVariant3& flat, const ST_DNS_VARIANT_3& native) { put_tail(flat, native); }

// The area is read as kind 2 whatever it holds, gaps between members included, so it is filled byte by byte.
template <class Flat, class Native>
void store_variant(ST_IOC_MSG& msg, const void* native) {
    Flat flat;
    memset(&flat, 0, sizeof flat);
    put_variant(flat, *static_cast<const Native*>(native));
    memcpy(msg.variant, &flat, sizeof flat);
}

void flatten(ST_IOC_MSG& msg, const ST_DNS_NATIVE& native) {
    msg.uKind = native.uKind;
    memcpy(msg.ullHead, native.ullHead, sizeof msg.ullHead);
    // Without a variant the numbers and texts of the container are left empty, too.
    if (native.pVariant == nullptr) return;
    memcpy(msg.uHead, native.uHead, sizeof msg.uHead);
    const std::array<std::span<char>, 13> texts{
        msg.szRepository,   msg.szMounts,   msg.szUser,      msg.szNamespace,     msg.szImageId,
        msg.szContainerId,  msg.szImageTag, msg.szImageName, msg.szContainerName, msg.szCapability,
        msg.szPortsBinding, msg.szUnread1,  msg.szUnread2};
    for (size_t i = 0; i < texts.size(); ++i) put(texts[i], native.pszText[i]);
    switch (native.uKind) {
        case 1: return store_variant<IocVariant1, ST_DNS_VARIANT_1>(msg, native.pVariant);
        case 2: return store_variant<IocVariant2, ST_DNS_VARIANT_2>(msg, native.pVariant);
        case 3: return store_variant<IocVariant3, ST_DNS_VARIANT_3>(msg, native.pVariant);
        default: return;  // no layout is known
    }
}

}  // namespace

void log_no_native_event() { LOG_ERROR("Evt->GetNativeEvent error"); }

std::unique_ptr<ST_IOC_MSG> copy_dns_event(MbFrame::IEvent& event) {
    void* face = nullptr;
    const int32_t result = event.QueryInterface(&kIidDnsEvent, &face);
    if (result < 0 || face == nullptr) {
        LOG_ERROR("Evt->QueryInterface IDnsEvent error, 0x%08x", static_cast<uint32_t>(result));
        return nullptr;
    }
    std::unique_ptr<MbFrame::IDnsEvent, DnsReleaser> dns(static_cast<MbFrame::IDnsEvent*>(face));
    const auto* native = static_cast<const ST_DNS_NATIVE*>(event.GetNativeEvent());
    if (native == nullptr) {
        log_no_native_event();
        return nullptr;
    }
    std::unique_ptr<ST_IOC_MSG> msg(new (std::nothrow) ST_IOC_MSG);
    if (msg == nullptr) {
        LOG_ERROR("new(std::nothrow)ST_IOC_MSG error!");
        zel::leave_allocated(dns.release());  // the interface is not given back on this path
        return nullptr;
    }
    // The native record and its texts belong to the event, so all of them are copied now.
    flatten(*msg, *native);
    if (const char* name = dns->GetQueryName(); name != nullptr) msg->strQueryName = name;
    msg->llScore = kScore;
    // The key is computed once for each hit; the cache and the node both use it. For kinds 1 and 3 it comes from what
    // lies at the places of kind 2.
    const IocVariant2& process = msg->process();
    msg->ullCacheKey =
        ResHdlCache::CFifoQueue::CalculateHash(process.szDomain, process.llCreateTime, process.szPath, process.uPid);
    LOG_DEBUG("[-IOC-]pid:%d, guid:%s, path:%s, create time:%lld, name:%s", static_cast<int>(process.uPid),
              process.szGuid, process.szPath, static_cast<long long>(process.llCreateTime), process.szDomain);
    return msg;
}
