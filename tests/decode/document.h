// Alert documents made from lists of keys, what decoding them gives, and one check for every list.
//
// A list names keys in reading order as "NAME:KIND": S for a string, N for a number, A for a number in a string. O, W
// and i behind it mark keys that are optional with a DEBUG line, with a WARN line, and in silence. The values count
// from 6, which makes an event's type 7.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <sstream>

#include "decode/json_fields.h"
#include "decode/jsonparse.h"
#include "support/log_capture.h"

namespace zel_test {

using Tree = std::unique_ptr<cJSON, void (*)(cJSON*)>;
inline Tree parse(const std::string& text) { return {cJSON_Parse(text.c_str()), cJSON_Delete}; }

template <class... T>
std::string dump(const T&... values) {
    std::ostringstream out;
    ((out << values << ' '), ...);
    return out.str();
}

// Lines like "E get json value error.", joined by a bar; without the one that every alert of a container writes.
inline std::string take_log() {
    std::string text;
    for (const LogLine& line : LogCapture::get().take())
        if (!line.text.starts_with("jsonparse_"))
            text += (text.empty() ? "" : "|") + std::string(1, "EWID"[line.level]) + ' ' + line.text;
    return text;
}

struct Key {
    std::string name, value, wrong;
    char kind, need;
};
inline std::vector<Key> keys_of(const std::string& list) {
    std::vector<Key> keys;
    std::istringstream in(list);
    for (std::string word; in >> word;) {
        const size_t colon = word.find(':');
        const std::string number = std::to_string(keys.size() + 6), text = '"' + number + '"';
        keys.push_back({word.substr(0, colon), number, text, word[colon + 1], (word + '!')[colon + 2]});
        if (keys.back().kind != 'N') std::swap(keys.back().value, keys.back().wrong);
    }
    return keys;
}
// Members of an object. Keys from `bad` on hold another type; without `mistyped` the key at `bad` alone is left out.
inline std::string members(const std::string& list, size_t bad = SIZE_MAX, bool mistyped = false) {
    std::string text;
    for (size_t i = 0; const Key& key : keys_of(list)) {
        const std::string member = '"' + key.name + "\":" + (i >= bad && mistyped ? key.wrong : key.value);
        if (i++ != bad || mistyped) text += (text.empty() ? "" : ",") + member;
    }
    return text;
}
// The line about a key that is missing or holds another type.
inline std::string line_about(const Key& key, bool mistyped, zel::Words words) {
    if (key.need == 'i' || key.need == 'W') return key.need == 'W' ? "W get json value error." : "";
    const std::string level = key.need == 'O' ? "D " : "E ";
    if (!mistyped) return level + "get json value error.";
    if (key.need == 'O' || words == zel::Words::not_string) return level + key.name + " is not string.";
    return level + key.name + (key.kind == 'N' ? " is not 0x00000008." : " is not 0x00000010.");
}
// `read` decodes the members given, compares what it got with a dump of the values in list order, which is empty when
// the reading has to fail, and returns the log.
using Reading = std::function<std::string(const std::string& members, const std::string& values)>;
inline void check_keys(int row, const std::string& list, zel::Words words, const std::string& behind,
                       const Reading& read) {
    const std::vector<Key> keys = keys_of(list);
    for (size_t variant = 0; variant < 2 * keys.size() + 1; ++variant) {
        const size_t bad = variant / 2;
        const bool mistyped = variant % 2 != 0;
        bool ok = true;
        std::string log, values;
        for (size_t i = 0; ok && i < keys.size(); ++i) {
            const bool good = mistyped ? i < bad : i != bad;
            values += good ? dump(i + 6) : keys[i].kind == 'N' ? "0 " : " ";
            const std::string line = good ? "" : line_about(keys[i], mistyped, words);
            log += (log.empty() || line.empty() ? "" : "|") + line;
            ok = good || keys[i].need != '!';
        }
        EXPECT_EQ(read(members(list, bad, mistyped), ok ? values : ""), log + (ok ? "" : behind))
            << row << " key " << bad;
    }
}

// clang-format off
inline const std::string kRootKeys = "risk_level:S threat_score:N total_score:N verify_score:N verify_total_score:N count:N hash:N engine_ver:S engine_rule_ver:S";
inline const std::string kContainerKeys = "containerid:S repository:S mounts:S user:S namespace:S imageid:S imagetag:S containername:S Capability:S PortsBinding:S ImageName:S ContainerInitPid:N Privileged:N";
inline const std::string kRuleKeys = "rule_id:S mitre_id:S rule_desc:S status:S score:N version:S rule_name:S internal_id:SW risk_tag:Si confidence:Ni";
inline const std::string kSubjectKeys = "version:N type:N SubjectPid:N SubjectTid:N SubjectImage:S SubjectCmd:S SubjectCreateTime:N SubjectUser:S LoginName:SO SshIp:SO SubjectMd5:SO SubjectSha256:SO SubjectGuid:S OpTime:N";
// clang-format on
inline const std::string kInRule = "|E GetRuleInfoEx error.|E GetRuleInfo failed!";
inline const std::string kInEvent = "|E GetRawEventInfoEx error.|E GetRawEventInfo failed!" + kInRule;
inline const std::string kInInfo = "|E GetExtenedInfo failed!\n";

// Of two equal keys the first counts: what is given comes before the rest.
inline std::string object(const std::string& given, const std::string& rest) {
    return '{' + given + (given.empty() ? "" : ",") + rest + '}';
}
inline std::string event(const std::string& given, const std::string& subject = members(kSubjectKeys)) {
    return object(given, subject + R"(,"FilePath":"f")");
}
inline std::string rule(const std::string& given, const std::string& events = event(""),
                        const std::string& keys = members(kRuleKeys)) {
    return object(given, keys + ",\"event\":[" + events + ']');
}
inline std::string scenario(const std::string& set) {
    return R"({"ScenarioInfo":{"ScenarioID":"6","LinkSet":7,"ProcessSet":[)" + set + "]}}";
}

struct Document {
    std::string type = "3";
    std::string rules = rule("");
    std::string info = R"({"msg":"6"})";
    std::string root = members(kRootKeys) + ',' + members(kContainerKeys) + ",\"malicious_key\":\"6\"";
    std::string guid = "\"01234567-89ab-cdef-0123-456789abcdef\"";
};

struct Decoded {
    explicit Decoded(const Document& d)
        : Decoded("{\"alert_type\":" + d.type + (d.info.empty() ? "" : ",\"ExtendedInfo\":" + d.info) + ',' + d.root +
                  ",\"rule\":[" + d.rules + "],\"Guid\":" + d.guid + '}') {}
    explicit Decoded(const std::string& text) {
        node.pData.reset(strdup(text.c_str()));
        ok = CEventHandle::GetJsonInfo(&node, data);
        log = take_log();
    }
    Decoded(const Decoded&) = delete;
    ~Decoded() { FreeBufData(data); }

    ST_QUEQE_NODE node;
    ST_BUF_DATA data;
    bool ok;
    std::string log;
};

}  // namespace zel_test
