// The answer for programs.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "host/commands/explain.h"
#include "host/lib/local_time.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

// Texts come out of logs and hold any bytes; they are shown as people see them.
// One object on one line. The calls stand in the order of the members.
class Json {
public:
    std::string line() const { return std::string(buffer_.GetString(), buffer_.GetSize()) + "\n"; }

    // Bytes that a terminal would obey are written as escapes.
    void text(const char* key, std::string_view text) {
        const std::string shown = visible(text);
        writer_.Key(key);
        writer_.String(shown.data(), static_cast<rapidjson::SizeType>(shown.size()));
    }
    // Counts and ids alike.
    void number(const char* key, uint64_t value) {
        writer_.Key(key);
        writer_.Uint64(value);
    }
    // Null when nothing tells the time.
    void time(const char* key, int64_t at_us) {
        if (at_us != kNoTime) return text(key, local_time(at_us, true));
        writer_.Key(key);
        writer_.Null();
    }
    void flag(const char* key, bool value) {
        writer_.Key(key);
        writer_.Bool(value);
    }
    // The braces close by themselves.
    template <class Members>
    void object(Members members) {
        writer_.StartObject();
        members();
        writer_.EndObject();
    }
    // Every item is an object.
    template <class Items, class Item>
    void list(const char* key, const Items& items, Item item) {
        writer_.Key(key);
        writer_.StartArray();
        for (const auto& each : items) object([&] { item(each); });
        writer_.EndArray();
    }

private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

}  // namespace

// The keys are an interface.
std::string story_json(const Story& story) {
    Json json;
    json.object([&] {
        json.text("guid", story.guid);
        json.number("event", story.event);
        json.number("process", static_cast<uint64_t>(story.process));
        json.time("taken", story.taken_us);
        json.flag("reported", story.reported);
        json.flag("repeat", story.repeated);
        json.flag("chain_sent", story.chain_sent);
        json.number("tries", story.tries);
        json.list("steps", story.steps, [&](const Step& step) {
            json.time("time", step.at_us);
            json.text("text", step.text);
        });
        json.text("end", words_of(story.end).words);
        json.flag("loss", words_of(story.end).loss);
        json.text("why", story.why);
    });
    return json.line();
}

// Stories are counted, not listed.
std::string counts_json(const EndCounts& counts, const StoryBook& book) {
    Json json;
    json.object([&] {
        json.number("events", counts.stories);
        json.list("ends", counts.ends, [&](const EndCount& end) {
            json.text("end", words_of(end.end).words);
            json.flag("loss", words_of(end.end).loss);
            json.number("count", end.count);
            json.list("events", end.events, [&](const auto& event) {
                json.number("event", event.first);
                json.number("count", event.second);
            });
        });
        json.list("reasons", counts.reasons, [&](const EndCount* reason) {
            json.text("end", words_of(reason->end).words);
            json.number("count", reason->count);
            json.text("guid", reason->example->guid);
            json.text("why", reason->example->why);
        });
        json.number("lines", book.lines());
        json.number("unplaced", book.unplaced());
        json.text("unplaced_example", book.unplaced_example());
    });
    return json.line();
}

}  // namespace zelhost
