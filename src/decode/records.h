// What one alert document becomes. ST_BUF_DATA holds the rules, a rule holds its events, and an event owns the record
// that its type asks for. The alarm worker alone makes, reads and frees all of it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "decode/event_private.h"

struct cJSON;

// Whose memory is to be checked.
namespace memory_check {

inline constexpr uint32_t subject = 1;
inline constexpr uint32_t object = 2;

}  // namespace memory_check

// One behaviour event with its subject, the process that acted. It owns its record, so it moves and cannot be copied.
struct ST_RAW_EVENT {
    uint32_t uVersion = 0;  // of the event's form; passed on
    uint32_t uType = 0;     // the key into the table of event types
    uint32_t uPid = 0;
    uint32_t uTid = 0;
    std::string strImage;
    std::string strCmd;
    int64_t llCreateTime = 0;
    std::string strUser;
    std::string strGuid;
    int64_t llOpTime = 0;
    zel::EventPrivate pPrivate;  // the record of the event's type, see event_records.h
    std::vector<std::string> vecHighlight;
    std::vector<std::string> vecSubHighlight;
    uint32_t uPostOpr = 0;  // bits of memory_check
    std::string strLoginName;
    std::string strSshIp;
    std::string strMd5;
    std::string strSha256;
};
static_assert(std::is_nothrow_move_constructible_v<ST_RAW_EVENT> && !std::is_copy_constructible_v<ST_RAW_EVENT>);

// One rule of the engine that matched, with the events that made it match. The best rule of a document is the first one
// of the highest score; it gives the alert its name.
struct ST_RULE {
    std::string strRuleId;
    int32_t nScore = 0;
    std::string strMitreId;
    std::string strInternalId;
    std::string strRuleDesc;
    std::string strRuleName;
    std::string strRiskTag;
    int32_t nConfidence = 0;  // 0 when the engine gives none
    std::string strStatus;
    std::string strVersion;
    std::vector<ST_RAW_EVENT> vecEvent;
    std::vector<std::string> vecTags;
};

// One edge of a scenario.
struct ST_LINK_SET {
    std::string strSrcNodeGuid;
    std::string strDstNodeGuid;
    int64_t llOpTime = 0;
    uint32_t uLinkType = 0;
};

namespace zel {

// Owns a parsed document.
struct TreeDeleter {
    void operator()(cJSON* tree) const;
};
using JsonTree = std::unique_ptr<cJSON, TreeDeleter>;

// What is known of a container in words.
struct ContainerTexts {
    std::string strContainerId;
    std::string strRepository;
    std::string strMounts;
    std::string strUser;
    std::string strNamespace;
    std::string strImageId;
    std::string strImageTag;
    std::string strContainerName;
    std::string strCapability;
    std::string strPortsBinding;
    std::string strImageName;
};

}  // namespace zel

// A document. Types 2 and 6 fill the container; all others leave it at "host".
struct ST_BUF_DATA : zel::ContainerTexts {
    ST_BUF_DATA() { strContainerId = "host"; }

    int32_t nAlertType = 0;
    std::string strMaliciousKey;  // alert type 1
    std::string strGuid;
    uint32_t uCount = 0;
    int64_t llHash = 0;  // the engine's own key of the alert
    std::string strEngineVer;
    std::string strEngineRuleVer;
    uint32_t uPrivileged = 0;
    int32_t nContainerInitPid = 0;
    std::string strExtendedMsg;  // alert types 6 and 7
    std::string strScenarioId;   // alert type 2, as the two lists
    std::vector<ST_RAW_EVENT> vecProcessSet;
    std::vector<ST_LINK_SET> vecLinkSet;  // no road fills it
    std::string strRiskLevel;             // a word, from "Verbose" to "Critical"
    uint32_t uThreatScore = 0;            // the scores are passed on
    uint32_t uTotalScore = 0;
    uint32_t uVerifyScore = 0;
    uint32_t uVerifyTotalScore = 0;
    std::vector<ST_RULE> vecRule;
    int64_t llEarliestOpTime = 0;  // of all events, those of the process set too
    int64_t llLatestOpTime = 0;
    std::string strBestRuleDesc;
    std::string strBestRuleName;
    // What all this was read from. It is needed no more, but unless it is very large it ends last: its thousands of
    // small blocks serve the next document as they are, while a large allocation behind them would make the allocator
    // merge them all first.
    zel::JsonTree tree;
};

// The container of the last alert of type 2 or 6.
struct ST_CONTAINER_INFO : zel::ContainerTexts {
    int64_t llContainerInitPid = 0;
    uint32_t uPrivileged = 0;
};
extern ST_CONTAINER_INFO& g_stContainerInfo;  // part of the decoder's state, see decode_state.h

// Frees the record behind pPrivate. An event of an unknown type keeps it for good, with an ERROR line.
void FreeEventPrivate(ST_RAW_EVENT& stEvent);

// Frees every per-event record and the tree, and gives up the storage of all lists. Safe on a document that failed to
// decode. Lists of a document that is not given here end with it, records and all.
void FreeBufData(ST_BUF_DATA& stData);
