// Alert documents made from lists of keys, what decoding them gives, and one check for every list.
//
// A list names keys in reading order as "NAME:KIND": S for a string, N for a number, A for a number in a string. O, W
// and i behind it mark keys that are optional with a DEBUG line, with a WARN line, and in silence. The first key has
// the value kFirst, the next one a value higher by 1, and so on. Where the list belongs to a message, "=NUMBER" at the
// end of a key is its field there.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <sstream>

#include "decode/json_fields.h"
#include "decode/jsonparse.h"
#include "decode/processtreeselector.h"
#include "support/log_capture.h"

struct ProcessTreeSelectorPeer {
    // The process selected, or "none"; forgets it.
    static std::string take() {
        ProcessTreeSelector& s = ProcessTreeSelector::Instance();
        if (std::exchange(s.bSelected, uint8_t{0}) == 0) return "none";
        return "pid " + std::to_string(s.nPid) + " of " + std::to_string(s.llCreateTime) + ' ' + s.strImage;
    }
};

namespace zel_test {

constexpr size_t kFirst = 6;  // the second subject key is the type of the event: 7, a file that is deleted

using Tree = std::unique_ptr<cJSON, void (*)(cJSON*)>;
inline Tree parse(const std::string& text) { return {cJSON_Parse(text.c_str()), cJSON_Delete}; }

template <class... T>
std::string dump(const T&... values) {
    std::ostringstream out;
    ((out << values << ' '), ...);
    return out.str();
}
inline std::string joined(const std::vector<std::string>& parts, const std::string& between = ",") {
    std::string text;
    for (const std::string& part : parts)
        if (!part.empty()) text += (text.empty() ? "" : between) + part;
    return text;
}

// Lines like "E get json value error.", joined by a bar; without the one that every alert of a container writes.
inline std::string take_log() {
    std::vector<std::string> lines;
    for (const LogLine& line : LogCapture::get().take())
        if (!line.text.starts_with("jsonparse_")) lines.push_back(std::string{"EWID"[line.level], ' '} + line.text);
    return joined(lines, "|");
}

struct Key {
    std::string name, value, wrong;
    char kind, need;
    int field;
};
inline std::vector<Key> keys_of(const std::string& list) {
    std::vector<Key> keys;
    std::istringstream in(list);
    for (std::string word; in >> word;) {
        const size_t colon = word.find(':');
        const std::string number = std::to_string(kFirst + keys.size()), text = '"' + number + '"';
        const size_t equals = std::min(word.find('='), word.size());
        const char kind = word[colon + 1], need = colon + 2 < equals ? word[colon + 2] : '!';
        const bool is_number = kind == 'N';
        const int field = equals == word.size() ? 0 : std::stoi(word.substr(equals + 1));
        keys.push_back(
            {word.substr(0, colon), is_number ? number : text, is_number ? text : number, kind, need, field});
    }
    return keys;
}

enum class Flaw { missing, mistyped };
// Members of an object. The key at `bad` is missing, or all keys from there on hold another type.
inline std::string members(const std::string& list, size_t bad = SIZE_MAX, Flaw flaw = Flaw::missing) {
    std::vector<std::string> parts;
    for (const Key& key : keys_of(list)) {
        const size_t i = parts.size();
        const bool is_missing = flaw == Flaw::missing && i == bad, is_wrong = flaw == Flaw::mistyped && i >= bad;
        parts.push_back(is_missing ? "" : '"' + key.name + "\":" + (is_wrong ? key.wrong : key.value));
    }
    return joined(parts);
}
inline std::string line_about(const Key& key, Flaw flaw, zel::Words words) {
    if (key.need == 'i') return "";
    if (key.need == 'W') return "W get json value error.";
    const std::string level = key.need == 'O' ? "D " : "E ";
    if (flaw == Flaw::missing) return level + "get json value error.";
    if (key.need == 'O' || words == zel::Words::not_string) return level + key.name + " is not string.";
    return level + key.name + (key.kind == 'N' ? " is not 0x00000008." : " is not 0x00000010.");
}
// `read` decodes the members given, compares what it got with a dump of the values in list order, which is empty when
// the reading has to fail, and returns the log. `behind` is what the callers of the reader log after a failure.
using Reading = std::function<std::string(const std::string& members, const std::string& values)>;
inline void check_keys(const std::string& list, zel::Words words, const std::string& behind, const Reading& read) {
    const std::vector<Key> keys = keys_of(list);
    for (const Flaw flaw : {Flaw::missing, Flaw::mistyped}) {
        for (size_t bad = 0; bad <= keys.size(); ++bad) {
            std::vector<std::string> lines;
            std::string values;
            bool ok = true;
            for (size_t i = 0; ok && i < keys.size(); ++i) {
                const bool good = flaw == Flaw::missing ? i != bad : i < bad;
                values += good ? dump(kFirst + i) : keys[i].kind == 'N' ? "0 " : " ";
                if (!good) lines.push_back(line_about(keys[i], flaw, words));
                ok = good || keys[i].need != '!';
            }
            EXPECT_EQ(read(members(list, bad, flaw), ok ? values : ""), joined(lines, "|") + (ok ? "" : behind))
                << "key " << bad << " of " << list;
        }
    }
}

inline const std::string kRootKeys =
    "risk_level:S threat_score:N total_score:N verify_score:N verify_total_score:N count:N hash:N engine_ver:S "
    "engine_rule_ver:S";
inline const std::string kContainerKeys =
    "containerid:S repository:S mounts:S user:S namespace:S imageid:S imagetag:S containername:S Capability:S "
    "PortsBinding:S ImageName:S ContainerInitPid:N Privileged:N";
inline const std::string kRuleKeys =
    "rule_id:S mitre_id:S rule_desc:S status:S score:N version:S rule_name:S internal_id:SW risk_tag:Si confidence:Ni";
inline const std::string kSubjectKeys =
    "version:N type:N SubjectPid:N SubjectTid:N SubjectImage:S SubjectCmd:S SubjectCreateTime:N SubjectUser:S "
    "LoginName:SO SshIp:SO SubjectMd5:SO SubjectSha256:SO SubjectGuid:S OpTime:N";

// An event of type 1, or of type 3 when that is said before.
inline const std::string kProcess =
    R"("type":1,"ObjectPid":31,"ObjectTid":32,"ObjectImage":"/obj","ObjectCmd":"","ObjectCreateTime":33,)"
    R"("ObjectUser":"","ObjectGuid":"","ObjectMd5":"","ObjectSha256":"","DecodedObjectCmd":"",)"
    R"("StartAddress":"","StartModule":"","StartFunction":"")";

inline const std::string kInRule = "|E GetRuleInfoEx error.|E GetRuleInfo failed!";
inline const std::string kInEvent = "|E GetRawEventInfoEx error.|E GetRawEventInfo failed!" + kInRule;
inline const std::string kInInfo = "|E GetExtenedInfo failed!\n";

// Of two equal keys the first counts: what is given comes before the rest.
inline std::string object(const std::string& given, const std::string& rest) {
    return '{' + joined({given, rest}) + '}';
}
inline std::string event(const std::string& given, const std::string& subject = members(kSubjectKeys)) {
    return object(given, joined({subject, R"("FilePath":"f")"}));
}
inline std::string rule(const std::string& given, const std::string& events = event(""),
                        const std::string& keys = members(kRuleKeys)) {
    return object(given, joined({keys, "\"event\":[" + events + ']'}));
}
inline std::string scenario(const std::string& process_set) {
    return R"({"ScenarioInfo":{"ScenarioID":"6","LinkSet":7,"ProcessSet":[)" + process_set + "]}}";
}

struct Document {
    int type = 3;
    std::string rules = rule("");
    std::string info = R"({"msg":"6"})";  // without such a key when empty
    std::string given = "";
    std::string root = members(kRootKeys) + ',' + members(kContainerKeys) + ",\"malicious_key\":\"6\"";
    std::string guid = "\"01234567-89ab-cdef-0123-456789abcdef\"";
};

inline std::string container_values(const zel::ContainerTexts& c) {
    return dump(c.strContainerId, c.strRepository, c.strMounts, c.strUser, c.strNamespace, c.strImageId, c.strImageTag,
                c.strContainerName, c.strCapability, c.strPortsBinding, c.strImageName);
}

struct Decoded {
    explicit Decoded(const Document& d)
        : Decoded(object(d.given, joined({"\"alert_type\":" + std::to_string(d.type),
                                          d.info.empty() ? "" : "\"ExtendedInfo\":" + d.info, d.root,
                                          "\"rule\":[" + d.rules + "],\"Guid\":" + d.guid}))) {}
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
