#include "common/queue_nodes.h"

#include <cstring>

#include "platform/zel_support.h"

IocVariant2 ST_IOC_MSG::process() const {
    // A copy: the bytes of the area are no IocVariant2 object, so a reference to one would be undefined.
    IocVariant2 area;
    memcpy(&area, variant, sizeof area);
    return area;
}

void FreeNodeData(ST_QUEQE_NODE& node) {
    node.pIocMsg.reset();
    node.pData.reset();
}

void set_guid(ST_QUEQE_NODE& node, const char* guid) {
    memset(node.szGuid, 0, sizeof node.szGuid);
    zel_str_strlcpy(node.szGuid, guid, kGuidSize);
}
