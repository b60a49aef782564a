#include "host/lib/json_lines.h"

#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <vector>

#include "host/lib/message.h"
#include "host/lib/utf8.h"
#include "platform/event_ids.h"

namespace zelhost {
namespace {

using rapidjson::StringBuffer;

// One line in the making: an object, in which a text that is no UTF-8 is written byte by byte and its key kept.
// Lives for one line. The library behind it writes into a buffer that the line is taken from.
class Line {
public:
    Line() { writer_.StartObject(); }

    void key(const char* name) { writer_.Key(name); }
    void open(const char* name) {
        key(name);
        writer_.StartObject();
    }
    void close() { writer_.EndObject(); }
    void number(const char* name, int64_t value) {
        key(name);
        writer_.Int64(value);
    }
    void number(const char* name, uint64_t value) {
        key(name);
        writer_.Uint64(value);
    }
    void text(const char* name, std::string_view value) {
        key(name);
        if (is_utf8(value)) {
            writer_.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
        } else {
            // The library would write such bytes as they are, which makes no valid JSON.
            raw(latin1_json(value));
            latin1_.push_back(name);
        }
    }
    void text_or_null(const char* name, const char* value) {
        if (value != nullptr) return text(name, value);
        key(name);
        writer_.Null();
    }
    // A message that does not parse is still shown, as bytes: it is what the agent would have sent.
    void message(const char* data, uint64_t size) {
        key("message");
        if (const auto json = message_to_json(data, size)) return raw(*json);
        // Bytes of the size 0 come with a null pointer, which must not be read.
        writer_.Null();
        const auto* bytes = reinterpret_cast<const unsigned char*>(data);
        text("hex", fmt::format("{:02x}", fmt::join(bytes, bytes + (data == nullptr ? 0 : size), "")));
    }
    // "latin1" names the keys whose text was written byte by byte.
    std::string finish() {
        if (!latin1_.empty()) {
            key("latin1");
            writer_.StartArray();
            for (const char* name : latin1_) writer_.String(name);
            writer_.EndArray();
        }
        writer_.EndObject();
        return std::string(buffer_.GetString(), buffer_.GetSize()) + '\n';
    }

private:
    // The type is asked for by the writer and makes no difference to what it writes.
    void raw(const std::string& json) { writer_.RawValue(json.data(), json.size(), rapidjson::kObjectType); }

    StringBuffer buffer_;
    rapidjson::Writer<StringBuffer> writer_{buffer_};
    std::vector<const char*> latin1_;
};

}  // namespace

// The message is shown as JSON in full; "size" is that of its bytes on the bus.
// An event's texts may be null pointers.
std::string JsonLines::event(const ST_PB_EVENT& event) const {
    Line line;
    line.number("event", uint64_t{event.uEventId});
    line.number("source", uint64_t{event.uSourceEventId});
    line.text_or_null("guid", event.pszGuid);
    line.number("size", uint64_t{event.uSize});
    line.message(event.pData, event.uSize);
    return line.finish();
}

// All members of the record in its own order, pointers to texts as text or null.
std::string JsonLines::memory_check(const ST_MEM_DETECT_INFO& info) const {
    Line line;
    line.number("event", uint64_t{event_id::mem_detect});
    line.open("memory_check");
    line.number("op_time", int64_t{info.llOpTime});
    line.number("pid", uint64_t{info.uPid});
    line.number("create_time", int64_t{info.llCreateTime});
    line.text_or_null("path", info.pszPath);
    line.number("confidence", int64_t{info.nConfidence});
    line.number("container_init_pid", uint64_t{info.uContainerInitPid});
    line.number("privileged", uint64_t{info.uPrivileged});
    line.text_or_null("repository", info.pszRepository);
    line.text_or_null("mounts", info.pszMounts);
    line.text_or_null("user", info.pszUser);
    line.text_or_null("namespace", info.pszNamespace);
    line.text_or_null("image_id", info.pszImageId);
    line.text_or_null("container_id", info.pszContainerId);
    line.text_or_null("image_tag", info.pszImageTag);
    line.text_or_null("image_name", info.pszImageName);
    line.text_or_null("container_name", info.pszContainerName);
    line.text_or_null("capability", info.pszCapability);
    line.text_or_null("ports_binding", info.pszPortsBinding);
    line.close();
    return line.finish();
}

// An answer without a result has a null buffer and size 0.
std::string JsonLines::answer(int code, uint32_t context, const char* buffer, uint32_t size) const {
    Line line;
    line.number("callback", int64_t{code});
    line.number("context", uint64_t{context});
    line.number("size", uint64_t{size});
    line.message(buffer, size);
    return line.finish();
}

std::string JsonLines::report(std::string_view module, std::string_view text) const {
    Line line;
    line.text("report", module);
    line.text("text", text);
    return line.finish();
}

}  // namespace zelhost
