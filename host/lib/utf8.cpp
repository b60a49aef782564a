#include "host/lib/utf8.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace zelhost {

using rapidjson::StringBuffer;
using rapidjson::UTF8;

size_t utf8_prefix(std::string_view text) {
    struct Nowhere {
        void Put(char) {}
    } nowhere;
    rapidjson::MemoryStream stream(text.data(), text.size());
    for (;;) {
        const size_t begin = stream.Tell();
        if (begin >= text.size()) return text.size();
        // Behind its end the stream gives zeros, which no character goes on with.
        if (!UTF8<>::Validate(stream, nowhere)) return begin;
    }
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
