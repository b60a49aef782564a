#include "host/lib/utf8.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace zelhost {

using rapidjson::StringBuffer;
using rapidjson::UTF8;

// RapidJSON's own check works on one character at a time.
bool is_utf8(std::string_view text) {
    struct Nowhere {
        void Put(char) {}
    } nowhere;
    rapidjson::MemoryStream stream(text.data(), text.size());
    while (stream.Tell() < text.size())
        if (!UTF8<>::Validate(stream, nowhere)) return false;
    return true;
}

std::string latin1_json(std::string_view bytes) {
    StringBuffer wide;
    for (const char byte : bytes) UTF8<>::Encode(wide, static_cast<unsigned char>(byte));
    StringBuffer json;
    rapidjson::Writer<StringBuffer, UTF8<>, rapidjson::ASCII<>> writer(json);
    writer.String(wide.GetString(), static_cast<rapidjson::SizeType>(wide.GetSize()));
    return json.GetString();
}

}  // namespace zelhost
