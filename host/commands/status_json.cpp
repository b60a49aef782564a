// The status for programs.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <span>

#include "host/commands/status.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

// A writer with a name for each thing that the status holds.
// One object on one line. A key is followed by exactly one value.
class Json {
public:
    std::string line() const { return std::string(buffer_.GetString(), buffer_.GetSize()) + "\n"; }

    Json& key(const char* name) {
        writer_.Key(name);
        return *this;
    }
    // Paths and texts of files may hold any bytes.
    void text(std::string_view text) {
        const std::string shown = visible(text);
        writer_.String(shown.data(), static_cast<rapidjson::SizeType>(shown.size()));
    }
    void text_or_null(const char* given) {
        if (given == nullptr)
            writer_.Null();
        else
            text(given);
    }
    void flag(bool value) { writer_.Bool(value); }
    void number(uint64_t value) { writer_.Uint64(value); }
    void null() { writer_.Null(); }
    // The braces close by themselves.
    template <class Members>
    void object(Members members) {
        writer_.StartObject();
        members();
        writer_.EndObject();
    }
    template <class Items, class Item>
    void list(const Items& items, Item item) {
        writer_.StartArray();
        for (const auto& each : items) item(each);
        writer_.EndArray();
    }

private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

// The level and the text, as the log has them.
void put_lines(Json& json, std::span<const zelcheck_line> lines) {
    json.list(lines, [&](const zelcheck_line& line) { json.text(std::string(level_name(line)) + " " + line.text); });
}

// Without the plug-in nothing logs, so there is a reason and no line.
void put_failure(Json& json, const Status& status) {
    const AgentLibrary* const obstacle = status.obstacle();
    // All lines that a start would log. Those from the failure on lead to its end.
    const std::span lines(status.folder.lines, status.folder.line_count);
    if (status.starts()) return json.null();
    json.object([&] {
        json.key("reason").text(obstacle != nullptr ? obstacle->reason : lines[status.folder.failure].text);
        json.key("log");
        put_lines(json, obstacle != nullptr ? lines.first(0) : lines.subspan(status.folder.failure));
    });
}

// The keys tell the value, where it is from, and which limits it has.
void put_setting(Json& json, const zelcheck_setting& setting) {
    constexpr const char* kOrigins[] = {"file", "default", "missing"};
    json.object([&] {
        json.key("file").text(setting.file);
        json.key("section").text(setting.section);
        json.key("key").text(setting.key);
        json.key("value").number(setting.value);
        json.key("from").text(kOrigins[setting.origin]);
        json.key("reason").text(setting.reason);
        json.key("text").text_or_null(setting.text);
        json.key("default").number(setting.otherwise);
        json.key("lowest").number(setting.lowest);
        json.key("highest").number(setting.highest);
        json.key("base").number(static_cast<uint64_t>(setting.base));
    });
}

// A library with all functions that the plug-in looks up in it.
void put_library(Json& json, const zelcheck_library& library) {
    json.object([&] {
        json.key("title").text(library.title);
        json.key("path").text(library.path);
        json.key("required").flag(library.required != 0);
        json.key("used").flag(library.used != 0);
        json.key("complete").flag(library.complete != 0);
        json.key("reason").text_or_null(library.reason);
        json.key("use").text(library.use);
        json.key("functions").list(std::span(library.functions, library.function_count), [&](const auto& function) {
            json.object([&] {
                json.key("name").text(function.name);
                json.key("found").flag(function.found != 0);
            });
        });
    });
}

}  // namespace

// The same two keys as in the other form, so that a program need not tell the forms apart.
std::string status_json(const std::string& root, const std::string& reason) {
    Json json;
    json.object([&] {
        json.key("starts").flag(false);
        json.key("root").text(root);
        json.key("failure").object([&] {
            json.key("reason").text(reason);
            json.key("log").list(std::span<const char*>(), [&](const char* line) { json.text(line); });
        });
    });
    return json.line();
}

// The order of the members is that in which a person would ask.
std::string status_json(const Status& status) {
    const zelcheck_folder& folder = status.folder;
    Json json;
    json.object([&] {
        json.key("starts").flag(status.starts());
        json.key("root").text(status.root);
        json.key("failure");
        put_failure(json, status);
        json.key("pure_mode").flag(folder.pure_mode != 0);
        json.key("mode_reason").text(folder.mode_reason);
        json.key("tracing").flag(folder.tracing != 0);
        json.key("subscription").list(std::span(folder.subscription, folder.subscription_count), [&](uint32_t id) {
            json.number(id);
        });
        json.key("report_version").text(folder.report_version);
        json.key("report_version_from").text(folder.version_from_file != 0 ? "file" : "built in");
        json.key("report_agent_id").text(folder.report_agent_id);
        json.key("settings").list(std::span(folder.settings, folder.setting_count), [&](const auto& setting) {
            put_setting(json, setting);
        });
        json.key("agent_libraries").list(status.agent_libraries, [&](const auto& library) {
            put_library(json, library.row());
        });
        json.key("libraries").list(std::span(folder.libraries, folder.library_count), [&](const auto& library) {
            put_library(json, library);
        });
        json.key("flags").list(std::span(folder.flags, folder.flag_count), [&](const zelcheck_flag& flag) {
            json.object([&] {
                json.key("path").text(flag.path);
                json.key("present").flag(flag.present != 0);
                json.key("effect").text(flag.effect);
            });
        });
        json.key("environment").list(status.environment, [&](const Variable& variable) {
            json.object([&] {
                json.key("name").text(variable.name);
                json.key("value").text_or_null(variable.value);
                json.key("effect").text(variable.effect);
            });
        });
        json.key("log");
        put_lines(json, std::span(folder.lines, status.obstacle() != nullptr ? 0 : folder.line_count));
        json.key("only_a_start_shows").list(kOnlyAStartShows, [&](const char* what) { json.text(what); });
    });
    return json.line();
}

}  // namespace zelhost
