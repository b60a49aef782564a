// An alert document that tests change key by key, and what decoding it gives.
#pragma once

#include <cjson/cJSON.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "decode/jsonparse.h"
#include "support/log_capture.h"

namespace zel_test {

// A JSON value whose members are named by paths like "rule.0.event.0.type".
class Json {
public:
    explicit Json(const std::string& text) : root_(cJSON_Parse(text.c_str())) {}

    // Adds or replaces; null takes the member away.
    Json& set(const std::string& path, const char* json) {
        const size_t dot = path.rfind('.');
        cJSON* parent = dot == std::string::npos ? root_.get() : at(path.substr(0, dot));
        const std::string name = path.substr(dot == std::string::npos ? 0 : dot + 1);
        cJSON_DeleteItemFromObjectCaseSensitive(parent, name.c_str());
        if (json != nullptr) cJSON_AddItemToObject(parent, name.c_str(), cJSON_CreateRaw(json));
        return *this;
    }
    std::string text() const {
        const std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(root_.get()), cJSON_free);
        return printed.get();
    }
    cJSON* node() const { return root_.get(); }

private:
    cJSON* at(const std::string& path) {
        cJSON* node = root_.get();
        for (size_t from = 0; from < path.size();) {
            const size_t end = std::min(path.find('.', from), path.size());
            const std::string step = path.substr(from, end - from);
            node = isdigit(static_cast<unsigned char>(step[0])) ? cJSON_GetArrayItem(node, std::stoi(step))
                                                                : cJSON_GetObjectItem(node, step.c_str());
            from = end + 1;
        }
        return node;
    }

    std::unique_ptr<cJSON, void (*)(cJSON*)> root_{nullptr, cJSON_Delete};
};

inline std::string join_log(const std::vector<LogLine>& lines) {
    std::string text;
    for (const LogLine& line : lines) text += (text.empty() ? "" : "|") + std::string(1, "EWID"[line.level]) + ' ' + line.text;
    return text;
}
// Lines like "E get json value error.", joined by a bar.
inline std::string warnings() { return join_log(LogCapture::get().take_up_to(ZEL_LOG_WARN)); }

struct Decoded {
    explicit Decoded(const std::string& text) {
        LogCapture::get().take();
        node.pData = strdup(text.c_str());
        ok = CEventHandle::GetJsonInfo(&node, data);
        const std::vector<LogLine> lines = LogCapture::get().take();
        all = join_log(lines);
        for (const LogLine& line : lines)
            if (line.level <= ZEL_LOG_WARN) log += (log.empty() ? "" : "|") + join_log({line});
    }
    ~Decoded() {
        FreeBufData(data);
        FreeNodeData(&node);
    }
    std::string guid() const { return {node.szGuid, strnlen(node.szGuid, sizeof node.szGuid)}; }

    ST_QUEQE_NODE node;
    ST_BUF_DATA data;
    bool ok;
    std::string log;  // ERROR and WARN lines
    std::string all;
};

inline const std::string kEvent = R"({"version":1,"type":7,"SubjectPid":21,"SubjectTid":22,"SubjectImage":"/bin/sh",
    "SubjectCmd":"sh -c","SubjectCreateTime":23,"SubjectUser":"root","LoginName":"ln","SshIp":"ip","SubjectMd5":"md5",
    "SubjectSha256":"sha","SubjectGuid":"sg","OpTime":100,"Highlight":["a","b"],"SubHighLight":["c"],"FilePath":"/tmp/x"})";
inline const std::string kRule = R"({"rule_id":"r1","mitre_id":"T1","rule_desc":"desc","status":"Alert","score":5,
    "version":"v1","rule_name":"name","internal_id":"i1","tags":["t1","t2"],"risk_tag":"rt","confidence":10,"event":[)" +
                                kEvent + "]}";
// All keys of all alert types.
inline Json document(const char* alert_type = "3") {
    Json json(R"({"alert_type":3,"risk_level":"high","threat_score":11,"total_score":12,"verify_score":13,
        "verify_total_score":14,"count":15,"hash":16,"engine_ver":"ev","engine_rule_ver":"erv","containerid":"cid",
        "repository":"repo","mounts":"mnt","user":"usr","namespace":"ns","imageid":"iid","imagetag":"tag",
        "containername":"cn","Capability":"cap","PortsBinding":"pb","ImageName":"in","ContainerInitPid":-17,
        "Privileged":18,"malicious_key":"mk","rule":[)" +
              kRule + R"(],"ExtendedInfo":{"msg":"m","ScenarioInfo":{"ScenarioID":"sid","ProcessSet":[]}},
        "Guid":"01234567-89ab-cdef-0123-456789abcdef"})");
    json.set("alert_type", alert_type);
    return json;
}

}  // namespace zel_test
