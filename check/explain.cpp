#include "check/explain.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <tuple>

#include "check/misspelling.h"
#include "check/observation.h"
#include "check/places.h"
#include "check/syntax.h"
#include "check/zelcheck_host.h"
#include "common/queue_nodes.h"
#include "decode/alert_types.h"

namespace zel::check {
namespace {

// --- words ---

const char* type_words(int type) {
    switch (type & 0xFF) {
        case cJSON_String: return "a string";
        case cJSON_Number: return "a number";
        case cJSON_Object: return "an object";
        case cJSON_Array: return "a list";
        case cJSON_NULL: return "null";
        default: return "a boolean";
    }
}

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

// The name of a member; of an element its value has none.
std::string name_of(const cJSON* node) { return node->string == nullptr ? "the value" : quoted(node->string); }

std::string byte_words(unsigned char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    return std::string("0x") + kDigits[byte >> 4] + kDigits[byte & 15];
}

// --- what is wrong ---

// Explains one document. It is used once: run() moves the result out.
class Explainer {
public:
    Explainer(std::string_view text, const Observation& seen, Way way) : text_(text), seen_(seen), way_(way) {}

    Explanation run(std::string_view process_end) {
        if (seen_.tree == nullptr) {
            result_.refusal = syntax();
            return std::move(result_);
        }
        const bool whole = way_ != Way::not_decoded;  // otherwise the decoder has stopped before it looked at all
        if (whole) collect_unread();
        if (whole) collect_escaped();
        match_texts();
        // All nodes that a finding may name are known by now, so the text is walked only once. Numbers stored as 0 are
        // needed only when the process would end: a file time of 0 can be the cause.
        locate(process_end.empty() ? std::vector<const cJSON*>() : seen_.zeros);
        explain_refusal(process_end);
        warn_of_the_end();
        for (const Stored& number : seen_.doubtful_numbers) warn_of_number(number);
        for (const cJSON* node : unread_) warn_of_unread(node);
        for (const cJSON* node : escaped_) warn_of_cut_text(node);
        // A refused tag is refused for the alert and again for its rule.
        const auto key = [](const Finding& finding) { return std::tie(finding.offset, finding.reason); };
        std::ranges::sort(result_.warnings, {}, key);
        const auto doubled = std::ranges::unique(result_.warnings, {}, key);
        result_.warnings.erase(doubled.begin(), doubled.end());
        return std::move(result_);
    }

private:
    // --- places ---

    // Looks up the places of all nodes that a finding may point at, and those of `more`.
    void locate(const std::vector<const cJSON*>& more) {
        std::vector<const cJSON*> nodes = more;
        for (const Refusal& refusal : seen_.refusals) nodes.push_back(refusal.node);
        for (const Stored& number : seen_.doubtful_numbers) nodes.push_back(number.value);
        nodes.insert(nodes.end(), unread_.begin(), unread_.end());
        nodes.insert(nodes.end(), escaped_.begin(), escaped_.end());
        for (const auto& [refused, node] : text_nodes_) nodes.push_back(node);
        places_ = find_places(text_, seen_.tree.get(), nodes);
    }

    // A finding at the place of the node. Without a place it is about the whole document.
    Finding at(const cJSON* node, std::string reason) const {
        const auto found = places_.find(node);
        if (found == places_.end()) return {std::move(reason), "", 0, 0};
        const Place& place = found->second;
        return {std::move(reason), place.path, place.offset, place.size};
    }

    // The value as it stands in the document, with its quotes and escapes. Empty when its place is not known.
    std::string_view literal(const cJSON* node) const {
        const auto found = places_.find(node);
        return found == places_.end() ? "" : text_.substr(found->second.offset, found->second.size);
    }

    void warn(Finding finding) { result_.warnings.push_back(std::move(finding)); }

    // --- syntax and the end ---

    Finding syntax() const {
        const SyntaxError error = find_syntax_error(text_, seen_.stopped_at);
        return {error.reason, "", error.offset, error.size};
    }

    // The parser stops behind the outermost value, and at the first NUL byte in any case. It accepts the document then,
    // so nothing else tells a person that the rest is lost.
    void warn_of_the_end() {
        const size_t nul = text_.find('\0');
        const std::string_view read = text_.substr(0, nul);
        const auto* const rest = std::ranges::find_if(read.substr(std::min(seen_.stopped_at, read.size())),
                                                      [](char byte) { return static_cast<unsigned char>(byte) > ' '; });
        if (rest != read.end()) {
            const auto offset = static_cast<size_t>(rest - read.begin());
            warn({"the text behind the document's last bracket is not read", "", offset, read.size() - offset});
        } else if (nul != std::string_view::npos) {
            warn({"a NUL byte ends the document; what follows is not read", "", nul, 1});
        }
    }

    // --- refusals ---

    // What is wrong in a post-operation costs only the post-operation.
    static bool is_tolerated(const Finding& finding) { return strcasestr(finding.path.c_str(), "PostOpr") != nullptr; }

    // A missing key comes with a key that looks like it and that nothing has read. That is often the same key with a
    // wrong letter.
    Finding refusal_of(const Refusal& refusal) const {
        switch (refusal.kind) {
            case Refusal::Kind::missing: {
                std::string reason = cJSON_IsObject(refusal.node) ? "the key " + quoted(refusal.key) + " is missing"
                                                                  : std::string(type_words(refusal.node->type)) +
                                                                        " stands here, an object with the key " +
                                                                        quoted(refusal.key) + " is needed";
                const char* const near = nearest_key(refusal.node, refusal.key, seen_.read);
                if (near != nullptr) reason += "; " + quoted(near) + " looks like it";
                return at(refusal.node, std::move(reason));
            }
            case Refusal::Kind::mistyped:
                return at(refusal.node, name_of(refusal.node) + " is " + type_words(refusal.node->type) + ", " +
                                            type_words(refusal.type) + " is needed");
            case Refusal::Kind::unknown_number: break;
        }
        const std::string number(literal(refusal.node));
        if (refusal.key == "alert_type")
            return at(refusal.node,
                      "there is no alert type " + number + ", types are 1 to " + std::to_string(alert_type::highest));
        return at(refusal.node, "the agent takes no event of type " + number + ", so the alert is lost");
    }

    // The first refusal that counts is the cause, because decoding stops there. A text that the builder refused and the
    // end of the process come later on the road, so each of them takes the place of what was found before.
    void explain_refusal(std::string_view process_end) {
        std::optional<Finding> cause;
        for (const Refusal& refusal : seen_.refusals) {
            Finding finding = refusal_of(refusal);
            if (is_tolerated(finding)) {
                finding.reason += "; the post-operation is left out";
                warn(std::move(finding));
            } else if (!cause.has_value()) {
                cause = std::move(finding);
            }
        }
        for (const RefusedText& refused : seen_.refused_texts) {
            const cJSON* const node = node_of(refused);
            if (costs_alert(refused))
                cause = bad_text(refused, node);
            else
                warn(lost_element(refused, node));
        }
        if (way_ == Way::process_ended) cause = end_of_process(process_end);
        if (way_ == Way::not_decoded || way_ == Way::not_built || way_ == Way::process_ended)
            result_.refusal = cause.has_value() ? *cause : Finding{ZELCHECK_UNEXPLAINED, "", 0, 0};
    }

    // --- texts ---

    // The last refused text of an alert that was not built has cost the alert. The others have cost a list its rest.
    bool costs_alert(const RefusedText& refused) const {
        return way_ == Way::not_built && &refused == &seen_.refused_texts.back();
    }

    // A builder knows a text, not its node, and the same text may stand at several places. The places of all of them
    // are looked up, for that tells which one was built.
    void match_texts() {
        for (const RefusedText& refused : seen_.refused_texts)
            for (const cJSON* value : seen_.read_in_order)
                if (costs_alert(refused))
                    note_if_same(refused, value, value);
                else if (cJSON_IsArray(value))
                    for (const cJSON* item = value->child; item != nullptr; item = item->next)
                        note_if_same(refused, item, value);
    }

    // The GUID is cut before it is checked. The values of "risk_level" and "status" are left out, because a message has
    // them as numbers. A list "Name" is left out, because a post-operation chooses processes by it.
    void note_if_same(const RefusedText& refused, const cJSON* node, const cJSON* named) {
        if (!cJSON_IsString(node) || named->string == nullptr) return;
        const auto is = [named](const char* name) { return strcasecmp(named->string, name) == 0; };
        if (is("risk_level") || is("status") || (is("Name") && cJSON_IsArray(named))) return;
        const std::string_view value = node->valuestring;
        const bool same = is("Guid") ? value.substr(0, kGuidSize) == refused.text : value == refused.text;
        if (same) text_nodes_.emplace_back(&refused, node);
    }

    // The first place of the text that belongs to what was built; the first of all when none does.
    const cJSON* node_of(const RefusedText& refused) const {
        const cJSON* first = nullptr;
        for (const auto& [text, node] : text_nodes_) {
            if (text != &refused) continue;
            const auto place = places_.find(node);
            if (place != places_.end() && is_built(place->second.path)) return node;
            if (first == nullptr) first = node;
        }
        return first;
    }

    // A text without a node is taken for one of an earlier document: the decoder's scratch state can hold a rule's name
    // and description from a document that was refused. The finding points at the bad byte and not at the whole text.
    // An escape can stand for several bytes, so the byte's place is counted in the literal.
    Finding bad_text(const RefusedText& refused, const cJSON* node) const {
        if (node == nullptr)
            return {"a text that an earlier refused document left holds bytes that no message may carry", "", 0, 0};
        const auto byte = static_cast<unsigned char>(refused.text[refused.bad]);
        Finding finding =
            at(node, (node->string != nullptr ? name_of(node) : "the text") + " holds the byte " + byte_words(byte) +
                         ", which " + (byte < 0x80 ? "no message may carry" : "begins no whole character of UTF-8"));
        const std::string_view whole = literal(node);
        const size_t begin = byte_in_literal(whole, refused.bad);
        finding.offset += begin;
        finding.size = unit_size(whole, begin);
        return finding;
    }

    Finding lost_element(const RefusedText& refused, const cJSON* node) const {
        Finding finding = bad_text(refused, node);
        finding.reason += "; it and the elements behind it are lost";
        return finding;
    }

    // --- the end of the process ---

    static bool is_file_time(const cJSON* node) {
        return node->string != nullptr &&
               (strcasecmp(node->string, "PostTime") == 0 || strcasecmp(node->string, "PreTime") == 0);
    }

    // Rules with the status "Trigger" are gone before anything is built, and the processes of a scenario are not built.
    // Without regard to the case of keys, as the decoder reads them.
    bool is_built(const std::string& path) const {
        if (strcasestr(path.c_str(), "ProcessSet") != nullptr) return false;
        if (strncasecmp(path.c_str(), "rule[", 5) != 0) return true;
        const cJSON* const rules = cJSON_GetObjectItem(seen_.tree.get(), "rule");
        const cJSON* const rule = cJSON_GetArrayItem(rules, static_cast<int>(strtol(path.c_str() + 5, nullptr, 10)));
        const char* const status = cJSON_GetStringValue(cJSON_GetObjectItem(rule, "status"));
        return status == nullptr || strcmp(status, "Trigger") != 0;
    }

    // The cause is a file time of 0 in an event that would have been built. When there is none, the finding has no
    // place.
    Finding end_of_process(std::string_view process_end) const {
        const std::string ends = "the agent's process would end here: " + std::string(process_end);
        for (const cJSON* node : seen_.zeros) {
            if (!is_file_time(node)) continue;
            Finding finding = at(node, name_of(node) + " is 0, and " + ends);
            if (is_built(finding.path)) return finding;
        }
        return {ends, "", 0, 0};
    }

    // --- warnings ---

    // Members that nothing read, of objects in which the decoder looked for keys. It did not look into an unread
    // object, so what such an object holds is not named member by member.
    void collect_unread() {
        for (const cJSON* object : seen_.objects)
            for (const cJSON* child = object->child; child != nullptr; child = child->next)
                if (!seen_.read.contains(child)) {
                    unread_.push_back(child);
                    owners_.emplace(child, object);
                }
    }

    // cJSON finds the first member of a name whatever its case. So an unread member either has a name that nobody looks
    // for, or it stands behind another one of the same name.
    void warn_of_unread(const cJSON* node) {
        const cJSON* const first = cJSON_GetObjectItem(owners_.at(node), node->string);
        if (first == node || !seen_.read.contains(first))
            warn(at(node, "nothing reads " + quoted(node->string)));
        else if (strcmp(first->string, node->string) == 0)
            warn(at(node, quoted(node->string) + " stands twice; the agent reads the first one"));
        else
            warn(at(node, quoted(node->string) + " is the same key as " + quoted(first->string) +
                              " before it; the agent reads the first one"));
    }

    // Texts that may hold an escape for a NUL. Hardly any document has an escape by number at all.
    void collect_escaped() {
        if (text_.find("\\u") == std::string_view::npos) return;
        std::ranges::copy_if(seen_.read_in_order, std::back_inserter(escaped_), cJSON_IsString);
    }

    void warn_of_cut_text(const cJSON* node) {
        const std::string_view whole = literal(node);
        const size_t end = end_of_text(whole);
        if (end == whole.size()) return;
        Finding finding = at(node, name_of(node) + " ends at this escape for the agent");
        finding.offset += end;
        finding.size = kEscapeSize;
        warn(std::move(finding));
    }

    // Whole numbers are compared as text, because above 2^53 different numbers can be the same double. Other numbers
    // are compared as doubles. A text that is no whole number always gets the warning.
    void warn_of_number(const Stored& number) {
        const cJSON& value = *number.value;
        const std::string stored =
            number.is_signed ? std::to_string(static_cast<int64_t>(number.bits)) : std::to_string(number.bits);
        const bool is_text = value.type == cJSON_String;
        const std::string_view text = is_text ? value.valuestring : literal(&value);
        const bool is_whole = !text.empty() && text.find_first_not_of("0123456789-") == std::string_view::npos;
        const double as_double = number.is_signed ? static_cast<double>(static_cast<int64_t>(number.bits))
                                                  : static_cast<double>(number.bits);
        const bool same = is_whole ? without_zeros(text) == stored : !is_text && value.valuedouble == as_double;
        if (same) return;
        const std::string given = is_text ? quoted(text) : std::string(text);
        warn(at(&value, name_of(&value) + " is " + given + ", and the agent reads " + stored));
    }

    // "007" and "-0" as a number prints them.
    static std::string without_zeros(std::string_view digits) {
        const bool negative = digits.starts_with('-');
        digits.remove_prefix(negative ? 1 : 0);
        digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
        if (digits.empty()) return "0";
        return (negative ? "-" : "") + std::string(digits);
    }

    // Borrowed from the caller until run() returns, like `seen_`.
    std::string_view text_;
    const Observation& seen_;
    Way way_;
    std::vector<const cJSON*> unread_;                                     // members that nothing looked for
    std::vector<const cJSON*> escaped_;                                    // texts that may hold an escape for a NUL
    std::map<const cJSON*, const cJSON*> owners_;                          // the objects of the unread members
    std::vector<std::pair<const RefusedText*, const cJSON*>> text_nodes_;  // where a refused text may stand
    Places places_;
    Explanation result_;
};

}  // namespace

Explanation explain(std::string_view text, const Observation& seen, Way way, std::string_view process_end) {
    return Explainer(text, seen, way).run(process_end);
}

}  // namespace zel::check
