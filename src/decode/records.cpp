#include "decode/records.h"

#include "decode/decode_state.h"
#include "decode/event_types.h"
#include "decode/memory_party.h"
#include "decode/observer.h"

namespace {

// clear() would keep the storage.
template <class T>
void give_up(std::vector<T>& list) {
    std::vector<T>().swap(list);
}

void free_events(std::vector<ST_RAW_EVENT>& events) {
    for (ST_RAW_EVENT& event : events) FreeEventPrivate(event);
    zel::decode_state().spare_events.give(events);
}

}  // namespace

void zel::TreeDeleter::operator()(cJSON* tree) const { observe::done_with(tree); }

void FreeEventPrivate(ST_RAW_EVENT& stEvent) {
    if (!stEvent.pPrivate) return;
    if (zel::find_event_type(stEvent.uType) == nullptr) {
        zel::log_unknown_event(stEvent.uType);
        stEvent.pPrivate.leave();  // nothing that is known here could have made it
        return;
    }
    stEvent.pPrivate = {};
}

void FreeBufData(ST_BUF_DATA& stData) {
    for (ST_RULE& rule : stData.vecRule) free_events(rule.vecEvent);
    give_up(stData.vecRule);
    free_events(stData.vecProcessSet);
    give_up(stData.vecLinkSet);
    stData.tree.reset();
}

std::optional<ProcessParty> object_process(const ST_RAW_EVENT& stEvent) {
    const zel::EventType* type = zel::find_event_type(stEvent.uType);
    if (type == nullptr || type->process == nullptr) return std::nullopt;
    return type->process(stEvent.pPrivate);
}
