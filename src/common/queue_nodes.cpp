#include "common/queue_nodes.h"

#include <cstring>
#include <new>
#include <type_traits>

#include "platform/zel_support.h"

// An array of unsigned char starts the life of the trivial object that its bytes are read as, whoever copied them
// there.
const IocVariant2& ST_IOC_MSG::process() const {
    static_assert(std::is_trivial_v<IocVariant2> && alignof(IocVariant2) <= 8);
    return *std::launder(reinterpret_cast<const IocVariant2*>(variant));
}

void FreeNodeData(ST_QUEQE_NODE& node) {
    node.pIocMsg.reset();
    node.pData.reset();
}

void set_guid(ST_QUEQE_NODE& node, const char* guid) {
    memset(node.szGuid, 0, sizeof node.szGuid);
    zel_str_strlcpy(node.szGuid, guid, kGuidSize);
}
