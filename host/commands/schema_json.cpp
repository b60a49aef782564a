#include "host/commands/schema_json.h"

#include <fmt/format.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>

#include "host/lib/failure.h"

namespace zelhost::json {

// The library escapes what has to be escaped.
std::string text(std::string_view value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    return buffer.GetString();
}

// The values are JSON already.
std::string object(const Members& members) {
    std::vector<std::string> parts;
    for (const auto& [key, value] : members) parts.push_back(text(key) + ':' + value);
    return fmt::format("{{{}}}", fmt::join(parts, ","));
}

std::string list(const std::vector<std::string>& values) { return fmt::format("[{}]", fmt::join(values, ",")); }

// Each text becomes a value of the list.
std::string texts(const std::vector<std::string>& values) {
    std::vector<std::string> quoted;
    std::ranges::transform(values, std::back_inserter(quoted), text);
    return list(quoted);
}

// Parsed and written again with indents. What is no JSON is a fault of this program.
std::string pretty(const std::string& json) {
    rapidjson::StringStream stream(json.c_str());
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    rapidjson::Reader reader;
    const auto result = reader.Parse(stream, writer);
    if (result.IsError())
        throw Failure("the schema is no JSON at byte {}, which is a fault of zelhost", result.Offset());
    return std::string(buffer.GetString(), buffer.GetSize()) + '\n';
}

}  // namespace zelhost::json
