// The decoder of alert documents. Its functions keep scratch state between documents and run on the alarm worker alone.
#pragma once

#include <cjson/cJSON.h>

#include <string>
#include <vector>

#include "common/queue_nodes.h"
#include "decode/json_object.h"
#include "decode/records.h"

// Nodes are borrowed and a null node is an assertion failure that names the argument. A function that takes a
// JsonObject can be given the node itself; inside, the index of an object's members is built once and handed on.
//
// A bool result is false after an ERROR line that names what is wrong. Lists keep what was decoded before a failure.
class CEventHandle {
public:
    // Decodes the node's text and writes the document's GUID to the node, also when the decoding failed. False with log
    // lines that name what is wrong; what was decoded until then stays in `stData` for FreeBufData.
    static bool GetJsonInfo(ST_QUEQE_NODE* pNode, ST_BUF_DATA& stData);

    // The document: all of it but "Guid". Hands the scratch state over to `stData` only when everything has passed.
    static bool GetJsonInfoEx(const zel::JsonObject& pjRoot, ST_BUF_DATA& stData);
    static bool GetRuleInfo(const zel::JsonObject& pjRoot, std::vector<ST_RULE>& vecRule);
    static bool GetRuleInfoEx(const cJSON* pjRule, std::vector<ST_RULE>& vecRule);
    static void GetRuleTagsInfo(const zel::JsonObject& pjRule, std::vector<std::string>& vecTags);
    static bool GetRawEventInfo(const zel::JsonObject& pjRuleArray, std::vector<ST_RAW_EVENT>& vecEvent);
    // An array of event objects, of a rule or a process set. Ends with SelectLastEventProcess.
    static bool GetRawEventInfoEx(const cJSON* pjRawEvent, std::vector<ST_RAW_EVENT>& vecEvent);
    // False, without a line, if there is no such key.
    static bool GetHighlightInfo(const zel::JsonObject& pjRawEventArray, std::vector<std::string>& vecText,
                                 const char* key);
    static bool GetExtenedInfo(const zel::JsonObject& pjRoot, ST_BUF_DATA& stData);

    // The scenario: `pjRoot` is "ExtendedInfo". The link set is not part of it: nothing calls GetLinkSet.
    static bool GetScenarioInfo(const zel::JsonObject& pjRoot, ST_BUF_DATA& stData);
    static bool GetProcessSet(const zel::JsonObject& pjScenarioInfo, std::vector<ST_RAW_EVENT>& vecProcessSet);
    static bool GetLinkSet(const zel::JsonObject& pjScenarioInfo, std::vector<ST_LINK_SET>& vecLinkSet);

    // "PostOpr" of an event. What is wrong in it never fails the event.
    static void GetPostOprInfo(const zel::JsonObject& pjRawEventArray, ST_RAW_EVENT& stEvent);
    static void SetMemCheckPostOprEvent(const zel::JsonObject& pjPostOprArray, ST_RAW_EVENT& stEvent);
    static void SetSelectProTreePostOprEvent(const zel::JsonObject& pjPostOprArray, ST_RAW_EVENT& stEvent);

    // Event decoders: read the keys of an event's object from the event's own JSON object and give the event a new
    // record, or none when a required key failed.
    using EventDecoder = bool(const zel::JsonObject& pjRawEventArray, ST_RAW_EVENT& stEvent);

    // Runs the decoder of the event's uType.
    static EventDecoder GetEventPrivateInfo;

    static EventDecoder GetProcessCreateInfo, GetProcessTerminateInfo, GetRemoteThreadCreateInfo, GetImageLoadInfo;
    static EventDecoder GetFileCreateInfo, GetFileDeleteInfo, GetFileRenameInfo, GetFileTimeChange, GetFileModify;
    static EventDecoder GetRegOptInfo, GetRegSetValueInfo, GetNetworkConnectInfo, GetDNSInfo, GetTaskCreateInfo;
    static EventDecoder GetWmiFilterCreateInfo, GetWmiConsumerCreateInfo, GetWmiBindingCreateInfo;
    static EventDecoder GetAccountCreateInfo, GetAccountLogonInfo;
    static EventDecoder GetServiceCreateInfo, GetServiceDeleteInfo, GetServiceUpdateInfo;
    static EventDecoder GetPortListenInfo, GetFileOpenInfo, GetSymbolLinkInfo;
    static EventDecoder GetNamedPipeCreateInfo, GetNamedPipeConnectInfo;
    static EventDecoder GetSyscallSocketInfo, GetSyscallPtraceInfo, GetSyscallUserfaultfdInfo;
    static EventDecoder GetSyscallCorePatternInfo, GetSyscallConnectInfo, GetFdInfo;
    // Not reached by GetEventPrivateInfo.
    static EventDecoder GetProcessTamperingInfo, GetDllInjectInfo, GetReflectiveInjectInfo, GetInjectReportInfo;

private:
    // For rules and process sets alike: a missing key and a bad event have the same lines in both.
    static bool events_under(const zel::JsonObject& object, const zel::Key& key, std::vector<ST_RAW_EVENT>& events);
};

// Selects the process of the list's last event, unless something was selected before in the life of the process: what
// the event created if it is a process with an image, otherwise the subject.
void SelectLastEventProcess(std::vector<ST_RAW_EVENT>& vecEvent);

namespace zel {

// Appends the strings of an array; other elements are passed over. A value that is no array, nor an object, has none.
void append_texts(const cJSON& array, std::vector<std::string>& texts);

}  // namespace zel
