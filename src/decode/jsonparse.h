// The decoder of alert documents. Its functions keep scratch state between documents and run on the alarm worker alone.
#pragma once

#include <cjson/cJSON.h>

#include <string>
#include <vector>

#include "common/queue_nodes.h"
#include "decode/records.h"

class CEventHandle {
public:
    // Decodes the node's text and writes the document's GUID to the node, also when the decoding failed. False with log
    // lines that name what is wrong; what was decoded until then stays in `stData` for FreeBufData.
    static bool GetJsonInfo(ST_QUEQE_NODE* pNode, ST_BUF_DATA& stData);
};
