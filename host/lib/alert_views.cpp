#include "host/lib/alert_views.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <utility>

#include "host/lib/message.h"
#include "host/lib/subject.h"
#include "host/lib/utf8.h"
#include "host/lib/visible.h"
#include "platform/event_ids.h"

namespace zelhost {
namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

// A rough figure: the objects of a view, its place in the list and its place in the index.
constexpr uint64_t kViewBytes = 512;  // beside its texts

// What subject and id say.
struct Parts {
    bool chain = false;
    std::string agent, guid;
};

// The subject ends in KIND.AGENT, and the id begins with KIND.GUID. Nothing for what has another form.
std::optional<Parts> parts_of(const StreamMessage& message) {
    const std::string_view subject = message.subject, id = message.id;
    // The dots of subject and id separate tokens, and tokens hold no dot.
    const size_t agent = subject.rfind('.'), guid = id.find('.');
    if (agent == std::string_view::npos || guid == std::string_view::npos) return {};
    const size_t kind = subject.rfind('.', agent - 1);
    const std::string_view event = subject.substr(kind + 1, agent - kind - 1);
    // Only reports and chains make a view. Other messages are counted and dropped.
    const bool chain = event == std::to_string(event_id::finished_trace);
    if (!chain && event != std::to_string(event_id::first_report)) return {};
    const auto agent_text = text_of_token(subject.substr(agent + 1));
    const auto guid_text = text_of_token(id.substr(guid + 1, id.find('.', guid + 1) - guid - 1));
    if (!agent_text || !guid_text) return {};
    return Parts{chain, *agent_text, *guid_text};
}

// An id comes from another machine and may hold any bytes.
void write_text(Writer& out, const char* key, const std::string& value) {
    out.Key(key);
    const std::string written = is_utf8(value) ? value : visible(value);
    out.String(written.data(), static_cast<rapidjson::SizeType>(written.size()));
}

}  // namespace

std::string view_line(const AlertView& view) {
    rapidjson::StringBuffer buffer;
    Writer out(buffer);
    out.StartObject();
    write_text(out, "agent", view.agent);
    write_text(out, "guid", view.guid);
    write_text(out, "source", view.source);
    out.Key("ids");
    out.StartArray();
    for (const std::string& id : view.ids) out.String(id.data(), static_cast<rapidjson::SizeType>(id.size()));
    out.EndArray();
    out.Key("report");
    view.report ? out.RawValue(view.report->data(), view.report->size(), rapidjson::kObjectType) : out.Null();
    out.Key("chains");
    out.StartArray();
    for (const std::string& chain : view.chains) out.RawValue(chain.data(), chain.size(), rapidjson::kObjectType);
    out.EndArray();
    out.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + '\n';
}

// A message without a GUID, as a batch of repeated hits, is a view by itself. One that does not parse is null.
const AlertView* AlertViews::add(const StreamMessage& message) {
    const std::optional<Parts> parts = parts_of(message);
    // The form was written by another program, so nothing is taken for granted.
    if (!parts) {
        ++counts_.others;
        return nullptr;
    }
    ++counts_.messages;
    counts_.agents.insert(parts->agent);
    // A GUID of one agent may come from another as well. The zero byte stands in neither part.
    const std::string key = parts->agent + '\0' + (parts->guid.empty() ? message.id : parts->guid);
    auto found = by_alert_.find(key);
    if (found == by_alert_.end()) {
        views_.push_back({parts->agent, parts->guid, message.source, {}, {}, {}});
        found = by_alert_.emplace(key, std::prev(views_.end())).first;
        bytes_ += kViewBytes;
    }
    AlertView& view = *found->second;
    // A server gives a message again when it is not sure that it was taken.
    if (std::ranges::count(view.ids, message.id) > 0) {
        ++counts_.twice;
        return nullptr;
    }
    // The message is kept as text that is ready to be shown.
    const std::string json = message_to_json(message.payload.data(), message.payload.size()).value_or("null");
    bytes_ += json.size() + message.id.size();
    view.ids.push_back(message.id);
    parts->chain ? view.chains.push_back(json) : void(view.report = json);
    // Moving the element keeps all iterators valid. The oldest view stays in front.
    views_.splice(views_.end(), views_, found->second);
    return &view;
}

std::optional<AlertView> AlertViews::forget(bool any) {
    if (views_.empty() || (!any && bytes_ <= limit_bytes_)) return {};
    AlertView view = std::move(views_.front());
    views_.pop_front();
    // The key is made as it was when the view was added.
    by_alert_.erase(view.agent + '\0' + (view.guid.empty() ? view.ids.front() : view.guid));
    bytes_ -= kViewBytes + (view.report ? view.report->size() : 0);
    // The room is given back in the same pieces in which it was taken.
    for (const std::string& chain : view.chains) bytes_ -= chain.size();
    for (const std::string& id : view.ids) bytes_ -= id.size();
    count(view, counts_);
    return view;
}

void AlertViews::count(const AlertView& view, Counts& counts) const {
    ++(view.report && !view.chains.empty() ? counts.joined : view.report ? counts.reports : counts.chains);
}

AlertViews::Counts AlertViews::counts() const {
    Counts counts = counts_;
    for (const AlertView& view : views_) count(view, counts);
    return counts;
}

}  // namespace zelhost
