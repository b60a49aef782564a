#include "e2e/documents.h"

namespace e2e {

void DnsHit::give(const std::function<void(const ST_DNS_NATIVE&, const char* query_name)>& take) const {
    const ST_DNS_VARIANT_2 process{
        .uPid = pid,
        .llCreateTime = 900,
        .pszProcess = {"01234567-89ab-cdef-0123-456789abcdef", path.c_str(), "", "", "curl bad"},
        .pszDomain = domain.c_str(),
        .uDnsStatus = 3,
        .pszDnsResults = "192.0.2.1",
        .uTail = 0};
    ST_DNS_NATIVE record{};
    record.uKind = 2;
    record.ullHead[12] = time;
    record.uHead[0] = 42;
    record.pszText[0] = "repo";
    record.pszText[5] = "cid";
    record.pVariant = &process;
    take(record, query_name.c_str());
}

}  // namespace e2e
