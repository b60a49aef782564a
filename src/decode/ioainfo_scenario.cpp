// Scenario, post-operations and the selection of a process tree.
//
// A scenario names the processes that took part beside the rules. A post-operation is work that an event asks for: the
// memory of a process is to be checked, or the tree of a process is to be selected.
#include "common/checks.h"
#include "common/log.h"
#include "decode/event_records.h"
#include "decode/json_fields.h"
#include "decode/jsonparse.h"
#include "decode/key_rows.h"
#include "decode/observer.h"
#include "decode/processtreeselector.h"

using zel::Field;
using zel::JsonObject;
using zel::KeyRow;
using zel::Need;
using zel::ValueKind;
using zel::Words;

namespace {

struct PostOperation {
    int32_t nType = 0;
};
constexpr Field<PostOperation> kPostOperationTypeField = {"Type", &PostOperation::nType};
// Bits of a post-operation's type. With both set, the memory check alone is done.
constexpr int32_t kMemoryCheck = 1;
constexpr int32_t kSelectTree = 2;

constexpr Field<ST_BUF_DATA> kScenarioIdField = {"ScenarioID", &ST_BUF_DATA::strScenarioId};

// Keys of an edge between two processes.
constexpr Field<ST_LINK_SET> kLinkFields[] = {
    {"SrcNodeGuid", &ST_LINK_SET::strSrcNodeGuid},
    {"DstNodeGuid", &ST_LINK_SET::strDstNodeGuid},
    {"OpTime", &ST_LINK_SET::llOpTime},
    {"LinkType", &ST_LINK_SET::uLinkType},
};

// Keys of lists and objects, which have no table.
constexpr zel::Key kScenarioInfoKey = "ScenarioInfo";
constexpr zel::Key kProcessSetKey = "ProcessSet";
constexpr zel::Key kPostOprKey = "PostOpr";
constexpr zel::Key kNameKey = "Name";

// What an event of type 1 created; null for all others.
const ST_PROCESS_CREATE* created_process(const ST_RAW_EVENT& event) { return event.pPrivate.as<ST_PROCESS_CREATE>(); }

// The created process if there is one to be selected, otherwise the subject.
void select(const ST_PROCESS_CREATE* created, const ST_RAW_EVENT& event) {
    ProcessTreeSelector& selector = ProcessTreeSelector::Instance();
    if (created != nullptr) {
        selector.SetSelection(created->uPid, created->llCreateTime, created->strImage);
    } else {
        selector.SetSelection(event.uPid, event.llCreateTime, event.strImage);
    }
}

}  // namespace

bool CEventHandle::GetScenarioInfo(const JsonObject& pjRoot, ST_BUF_DATA& stData) {
    ZEL_ASSERT(pjRoot);
    const cJSON* info = pjRoot.find(kScenarioInfoKey);
    if (info == nullptr) {
        LOG_ERROR("get json object error:[ScenarioInfo]");
        zel::observe::missing(pjRoot.node(), kScenarioInfoKey.name);
        return false;
    }
    const JsonObject scenario(info);
    if (!zel::read_field(scenario, stData, kScenarioIdField, Words::not_type)) return false;
    if (!GetProcessSet(scenario, stData.vecProcessSet)) {
        LOG_ERROR("GetProcessSet failed!");
        return false;
    }
    return true;
}

bool CEventHandle::GetProcessSet(const JsonObject& pjScenarioInfo, std::vector<ST_RAW_EVENT>& vecProcessSet) {
    ZEL_ASSERT(pjScenarioInfo);
    return events_under(pjScenarioInfo, kProcessSetKey, vecProcessSet);
}

bool CEventHandle::GetLinkSet(const JsonObject& pjScenarioInfo, std::vector<ST_LINK_SET>& vecLinkSet) {
    ZEL_ASSERT(pjScenarioInfo);
    const cJSON* links = pjScenarioInfo.find("LinkSet");
    if (links == nullptr) {
        LOG_ERROR("get json array item error:[LinkSet]");
        return false;
    }
    for (const cJSON* item = links->child; item != nullptr; item = item->next) {
        ST_LINK_SET stLink;
        if (!zel::read_fields(item, stLink, kLinkFields, Words::not_type)) return false;
        vecLinkSet.push_back(std::move(stLink));
    }
    return true;
}

void CEventHandle::GetPostOprInfo(const JsonObject& pjRawEventArray, ST_RAW_EVENT& stEvent) {
    ZEL_ASSERT(pjRawEventArray);
    const cJSON* operations = pjRawEventArray.find(kPostOprKey);
    if (operations == nullptr) return;
    for (const cJSON* item = operations->child; item != nullptr; item = item->next) {
        const JsonObject object(item);
        PostOperation operation;
        if (!zel::read_field(object, operation, kPostOperationTypeField, Words::not_type)) return;
        if ((operation.nType & kMemoryCheck) != 0) {
            SetMemCheckPostOprEvent(object, stEvent);
        } else if ((operation.nType & kSelectTree) != 0) {
            SetSelectProTreePostOprEvent(object, stEvent);
        } else {
            LOG_ERROR("unknown type:%d", operation.nType);
        }
    }
}

// An item replaces what an earlier one asked for. Any name but the subject's means the object; an empty list means the
// subject, and no list nobody.
void CEventHandle::SetMemCheckPostOprEvent(const JsonObject& pjPostOprArray, ST_RAW_EVENT& stEvent) {
    ZEL_ASSERT(pjPostOprArray);
    stEvent.uPostOpr = 0;
    const cJSON* parties = pjPostOprArray.find(kNameKey);
    if (parties == nullptr) return;
    std::vector<std::string> names;
    zel::append_texts(*parties, names);
    for (const std::string& name : names)
        stEvent.uPostOpr |= name == "SubjectPid" ? memory_check::subject : memory_check::object;
    if (names.empty()) stEvent.uPostOpr = memory_check::subject;
}

void CEventHandle::SetSelectProTreePostOprEvent(const JsonObject& pjPostOprArray, ST_RAW_EVENT& stEvent) {
    ZEL_ASSERT(pjPostOprArray);
    const cJSON* parties = pjPostOprArray.find(kNameKey);
    if (parties == nullptr) return;
    std::vector<std::string> names;
    zel::append_texts(*parties, names);
    const bool object = !names.empty() && names.front() == "ObjectPid";
    select(object ? created_process(stEvent) : nullptr, stEvent);
}

void SelectLastEventProcess(std::vector<ST_RAW_EVENT>& vecEvent) {
    if (vecEvent.empty() || ProcessTreeSelector::Instance().IsSelected()) return;
    const ST_RAW_EVENT& last = vecEvent.back();
    const ST_PROCESS_CREATE* created = created_process(last);
    select(created != nullptr && !created->strImage.empty() ? created : nullptr, last);
}

// --- the keys as rows ---

namespace {

constexpr KeyRow kScenarioHolderKeys[] = {{kScenarioInfoKey.name, ValueKind::object, Need::required, "scenario"}};
constexpr KeyRow kScenarioKeys[] = {
    zel::key_row(kScenarioIdField),
    {kProcessSetKey.name, ValueKind::objects, Need::required, "event"},
};
constexpr KeyRow kPostOprList[] = {{kPostOprKey.name, ValueKind::objects, Need::silent, "post_operation"}};
constexpr KeyRow kPostOprKeys[] = {
    zel::key_row(kPostOperationTypeField),
    {kNameKey.name, ValueKind::texts, Need::silent},
};

constexpr zel::KeyTable kScenarioTables[] = {
    {"scenario_holder", kScenarioHolderKeys},
    {"scenario", kScenarioKeys},
    {"event", kPostOprList},
    {"post_operation", kPostOprKeys},
};

}  // namespace

std::span<const zel::KeyTable> zel::scenario_key_tables() { return kScenarioTables; }
