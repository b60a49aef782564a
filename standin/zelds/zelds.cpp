// The data store. It has no data; it only counts what is done with it.
#include "platform/zel_trc.h"
#include "standin/export.h"
#include "standin/zelcount/ledger.h"

namespace {

// Made and destroyed with the library, so it counts real loads and unloads.
struct Load {
    Load() { zelcount::ds_loaded(); }
    ~Load() { zelcount::ds_unloaded(); }
} load;

}  // namespace

extern "C" STANDIN_EXPORT int32_t ds_update_db(void) {
    zelcount::ds_updated();
    return 0;
}
