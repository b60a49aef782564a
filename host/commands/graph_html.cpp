#include "host/commands/graph_html.h"

#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <initializer_list>
#include <random>
#include <utility>

#include "host/commands/graph_drawing.h"
#include "host/commands/graph_page.h"
#include "host/lib/chain_text.h"

namespace zelhost {
namespace {

// The page is to stay below 2 MB; picture, style and script need their part of it.
// In bytes. Two megabytes are what the header promises.
constexpr size_t kMostBytes = 1'950'000;

// How much is told of each vertex and edge. The first row that fits is taken.
// One step of how much the page tells. Later steps tell less.
struct Detail {
    size_t value;    // characters of a value; none without values
    size_t members;  // names of those that a vertex stands for
};
constexpr Detail kDetails[] = {{4000, 20'000}, {800, 4000}, {200, 800}, {80, 100}, {0, 20}};

// What the page's script reads, as JSON. All names of members are this program's own; texts of the chain are values
// only. Borrows the chain and the detail.
// The whole object is made by the constructor.
class Data {
public:
    Data(const Chain& chain, const Detail& detail) : chain_(chain), detail_(detail) {
        writer_.StartObject();
        writer_.Key("vertices");
        writer_.StartArray();
        for (size_t i = 0; i < chain.vertices.size(); ++i) add_vertex(i);
        writer_.EndArray();
        writer_.Key("edges");
        writer_.StartArray();
        for (size_t i = 0; i < chain.edges.size(); ++i) add_edge(i);
        writer_.EndArray();
        writer_.EndObject();
    }

    // No character in it can end the element that holds it or begin another.
    // The data stand in an element of the page, as text.
    std::string text() const {
        std::string escaped;
        for (const char byte : std::string_view(buffer_.GetString(), buffer_.GetSize())) switch (byte) {
                case '<': escaped += "\\u003c"; break;
                case '>': escaped += "\\u003e"; break;
                case '&': escaped += "\\u0026"; break;
                default: escaped += byte;
            }
        return escaped;
    }

private:
    // All strings go through the writer, which escapes what JSON needs.
    void string(std::string_view text) { writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size())); }
    void member(const char* key, std::string_view text) {
        writer_.Key(key);
        string(text);
    }

    // The ids are those of the picture.
    // All that the page's script knows of one vertex.
    void add_vertex(size_t i) {
        const ChainVertex& vertex = chain_.vertices[i];
        writer_.StartObject();
        member("id", fmt::format("v{}", i));
        member("kind", vertex.folded.empty() ? vertex.kind->word : vertex.kind->plural);
        member("mark", mark_word(vertex.mark));
        // A name keeps its beginning and its end.
        member("name", cut_middle(vertex.name, longest_name()));
        writer_.Key("lines");
        writer_.StartArray();
        for (const std::string& line : vertex.lines) string(cut_end(line, longest_name()));
        writer_.EndArray();
        writer_.Key("members");
        writer_.StartArray();
        // A vertex that stands for several may stand for thousands.
        const size_t shown = std::min(vertex.folded.size(), detail_.members);
        for (size_t m = 0; m < shown; ++m) string(cut_middle(vertex.folded[m], 160));
        if (shown < vertex.folded.size()) string(fmt::format("… and {} more", vertex.folded.size() - shown));
        writer_.EndArray();
        add_facts(vertex.source);
        writer_.EndObject();
    }

    // An edge that stands for several has the fields of the first.
    // `from` and `to` are ids of vertices, so that the script can find them in the picture.
    void add_edge(size_t i) {
        const ChainEdge& edge = chain_.edges[i];
        writer_.StartObject();
        member("id", fmt::format("e{}", i));
        member("from", fmt::format("v{}", edge.from));
        member("to", fmt::format("v{}", edge.to));
        member("word", edge.word);
        member("mark", mark_word(edge.mark));
        member("order", edge.count == 1 ? fmt::format("{}", edge.first)
                                        : fmt::format("{} to {}, {} times", edge.first, edge.last, edge.count));
        add_facts(edge.source);
        writer_.EndObject();
    }

    // Pairs, not an object: the order of the schema is kept, and no name can be taken for a member of the script.
    // Null stands for a vertex that the trace does not hold.
    void add_facts(const google::protobuf::Message* source) {
        writer_.Key("facts");
        writer_.StartArray();
        if (source != nullptr && detail_.value > 0)
            for (const auto& [name, value] : facts_of(*source)) {
                writer_.StartArray();
                string(name);
                string(cut_end(value, detail_.value));
                writer_.EndArray();
            }
        writer_.EndArray();
    }

    // A name is worth more than a value.
    // In characters.
    size_t longest_name() const { return std::max<size_t>(detail_.value, 80); }

    const Chain& chain_;
    // Borrowed from the caller, which tries one detail after the other.
    const Detail& detail_;
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

// Without what stands before the element, which has no place within a page.
// The picture is part of the page and no file of its own.
std::string picture_of(const Chain& chain) {
    std::string picture = draw_chain(chain, Picture::svg);
    picture.erase(0, std::min(picture.find("<svg"), picture.size()));
    return picture;
}

// Nobody who wrote a text of the chain can know it, so that only this page's own script runs.
// A word of 128 random bits.
std::string new_nonce() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
}

// Puts each value in the place of its name. What a value holds is not looked at again.
// A name that has no value leaves nothing.
std::string fill_page(std::string_view page,
                      std::initializer_list<std::pair<std::string_view, std::string_view>> values) {
    std::string filled;
    while (!page.empty()) {
        const size_t open = std::min(page.find("{{"), page.size());
        filled += page.substr(0, open);
        page.remove_prefix(open);
        if (page.empty()) break;
        const size_t close = page.find("}}");
        const std::string_view name = page.substr(2, close - 2);
        const auto* const found =
            std::ranges::find(values, name, &std::pair<std::string_view, std::string_view>::first);
        if (found != values.end()) filled += found->second;
        page.remove_prefix(close + 2);
    }
    return filled;
}

}  // namespace

// The picture is drawn once; only the data get shorter until the page is small enough.
std::string chain_page(const Chain& chain) {
    const std::string picture = picture_of(chain);
    const std::string nonce = new_nonce();
    // A list below the title.
    std::string subtitle;
    for (const std::string& line : chain.subtitle) subtitle += "<li>" + html_text(cut_end(line, 300)) + "</li>";
    if (!chain.note.empty()) subtitle += "<li>" + html_text(chain.note) + "</li>";
    std::string page;
    // The page of the first detail that fits is the result. If none fits, it is that with the
    // least.
    for (const Detail& detail : kDetails) {
        page = fill_page(graph_page::kHtml, {{"nonce", nonce},
                                             {"title", html_text(cut_end(chain.title, 300))},
                                             {"severity", html_text(chain.severity)},
                                             {"subtitle", subtitle},
                                             {"style", graph_page::kStyle},
                                             {"picture", picture},
                                             {"data", Data(chain, detail).text()},
                                             {"script", graph_page::kScript}});
        if (page.size() <= kMostBytes) break;
    }
    return page;
}

}  // namespace zelhost
