// The data store: it has no data, it counts.
#include "platform/zel_trc.h"
#include "standin/export.h"
#include "standin/zelcount/ledger.h"

namespace {

struct Load {
    Load() { zelcount::ds_loaded(); }
    ~Load() { zelcount::ds_unloaded(); }
} load;

}  // namespace

extern "C" STANDIN_EXPORT int32_t ds_update_db(void) {
    zelcount::ds_updated();
    return 0;
}
