#include "host/commands/graph_drawing.h"

#include <fmt/format.h>
#include <gvc.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

#include "host/lib/chain_text.h"
#include "host/lib/failure.h"
#include "host/lib/own_process.h"

namespace zelhost {
namespace {

// Lengths in characters, so that a box is no wider than a column of text.
// A name, a further line of a vertex, and a line of the title.
constexpr size_t kNameLength = 44;
constexpr size_t kLineLength = 52;
constexpr size_t kTitleLength = 110;
// Edges beyond those of a tree, up to which edges are curves.
constexpr size_t kMostCrossing = 40;
// Up to so many vertices each shows all its lines; of more, only processes do.
constexpr size_t kFewVertices = 100;
// Samples in one row of the legend.
constexpr size_t kLegendRow = 6;

// How a family looks: one row each, in the order of the enumeration. Text is dark on a light ground in all of them, and
// the shape alone tells them apart as well.
// All values are words of the library, or colours.
struct FamilyLook {
    const char* word;    // a class in SVG
    const char* legend;  // what the legend calls it
    const char* shape;
    const char* style;
    const char* margin;  // around the text, in inches; a shape with a lid needs more
    const char* fill;
    const char* line;
};
constexpr const char* kMargin = "0.12,0.05";
constexpr FamilyLook kLooks[] = {
    {"process", "process", "box", "filled", kMargin, "#dbe9fb", "#1f4e8c"},
    {"file", "file", "note", "filled", kMargin, "#fdf3d0", "#8a6a00"},
    {"network", "network", "ellipse", "filled", kMargin, "#d9f2e3", "#1c6b43"},
    {"dns", "DNS name", "hexagon", "filled", kMargin, "#d5f1f3", "#146a72"},
    {"registry", "registry", "folder", "filled", kMargin, "#f3e3d3", "#85501c"},
    {"account", "account", "octagon", "filled", kMargin, "#eadff7", "#5d3a91"},
    {"service", "service", "component", "filled", kMargin, "#e6e9c8", "#5e6412"},
    {"task", "scheduled task", "tab", "filled", kMargin, "#fbe0ef", "#8d2f66"},
    {"module", "module", "box3d", "filled", "0.14,0.09", "#e0e4ea", "#46525f"},
    {"pipe", "pipe, descriptor", "cylinder", "filled", "0.12,0.12", "#d6ecfa", "#1d6488"},
    {"thread", "thread, API call", "box", "filled,diagonals", kMargin, "#f0e0d8", "#7d4630"},
    {"wmi", "WMI", "house", "filled", kMargin, "#e3e0fb", "#443c9c"},
    {"container", "container", "box", "filled,rounded", kMargin, "#dcefdc", "#356b2a"},
    {"unknown", "not in the chain", "box", "filled,dashed", kMargin, "#f4f4f4", "#6a6a6a"},
    {"rest", "more of the chain", "box", "filled", kMargin, "#ececec", "#3f3f3f"},
};

constexpr const char* kMarkLine = "#b3001b";
constexpr const char* kPlainLine = "#5a6270";

// What a rule says changes the frame of a vertex or the line of an edge.
struct MarkLook {
    const char* word;  // a class in SVG
    const char* legend;
    const char* width;  // of a frame
};
// By the number of the mark.
constexpr MarkLook kMarks[] = {
    {"", "", "1"},
    {"named", "named by a rule", "1.8"},
    {"hit", "a rule's highlight", "3.6"},
};

// Both tables are complete, so that every vertex has a look.
// The reference leads into a table of constants.
const FamilyLook& look_of(const ChainVertex& vertex) { return kLooks[static_cast<size_t>(vertex.kind->family)]; }
const MarkLook& look_of(Mark mark) { return kMarks[static_cast<size_t>(mark)]; }

// The library keeps its messages to itself but for this text; it is drawn on one thread.
// A function and not a variable, so that the text is there when the library first speaks.
std::string& library_says() {
    static std::string text;
    return text;
}
// The first messages say what is wrong. Later ones follow from it.
int note_message(char* text) {
    if (library_says().size() < 300) library_says() += text;
    return 0;
}

// The library asks for texts that it may change, and changes none.
// Its functions are written in C and take no constants.
char* text_of(const char* text) { return const_cast<char*>(text); }
char* text_of(const std::string& text) { return const_cast<char*>(text.c_str()); }

// The library frees with functions of its own.
// Graph and context are owned by pointers that end them so.
struct CloseGraph {
    void operator()(Agraph_t* graph) const { agclose(graph); }
};

struct FreeContext {
    void operator()(GVC_t* context) const { gvFreeContext(context); }
};

// Text of a label. The library looks for escapes with a backslash even there, and for entities once more after they are
// resolved, so that both are written twice.
// All texts of a chain go through here, since they were written by an attacker.
std::string label_text(std::string_view text) {
    std::string escaped;
    // The text is escaped for HTML first, because labels are written in a kind of HTML.
    for (const char byte : html_text(text)) {
        escaped += byte;
        if (byte == '\\') escaped += byte;
    }
    return escaped;
}

// A further line below what there is.
// In small letters.
std::string small(std::string_view text) {
    return fmt::format("<BR/><FONT POINT-SIZE=\"9\">{}</FONT>", label_text(text));
}

// The name in bold; a path keeps its end, a command line its beginning.
// `with_lines` is false in a large chain, where only processes keep their lines.
std::string vertex_label(const ChainVertex& vertex, bool with_lines) {
    std::string label = "<B>" + label_text(cut_middle(vertex.name, kNameLength)) + "</B>";
    if (!with_lines) return label;
    for (const std::string& line : vertex.lines) label += small(cut_end(line, kLineLength));
    return label;
}

// "3 creates", "3-314 creates ×312"; the numbers tell the order in time.
// A folded edge stands for several.
std::string edge_label(const ChainEdge& edge) {
    if (edge.count == 1) return fmt::format("{} {}", edge.first, edge.word);
    return fmt::format("{}-{} {} ×{}", edge.first, edge.last, edge.word, edge.count);
}

// Severity and name, and below them when, which alert and where. The blank line at the end keeps the picture away.
// All lines are aligned to the left.
std::string title_label(const Chain& chain) {
    std::string label = fmt::format("<FONT POINT-SIZE=\"17\"><B>{} · {}</B></FONT>", label_text(chain.severity),
                                    label_text(cut_end(chain.title, kTitleLength)));
    for (const std::string& line : chain.subtitle)
        label += fmt::format("<BR ALIGN=\"LEFT\"/>{}", label_text(cut_end(line, kTitleLength)));
    if (!chain.note.empty()) label += fmt::format("<BR ALIGN=\"LEFT\"/><I>{}</I>", label_text(chain.note));
    return label + "<BR ALIGN=\"LEFT\"/> ";
}

// The graph of the library, made of a chain and drawn once. Borrows the chain.
// Made and used on one thread, since the library keeps global state.
class Drawing {
public:
    // The legend comes last: what is made last stands on top.
    explicit Drawing(const Chain& chain) : chain_(chain), is_small_(chain.vertices.size() <= kFewVertices) {
        // The library's messages are collected from here on.
        library_says().clear();
        agseterrf(note_message);
        graph_.reset(agopen(text_of("chain"), Agdirected, nullptr));
        if (!graph_) throw std::bad_alloc();
        set_defaults();
        // Vertices first: edges refer to them.
        for (size_t i = 0; i < chain.vertices.size(); ++i) add_vertex(i);
        for (size_t i = 0; i < chain.edges.size(); ++i) add_edge(i);
        add_legend();
    }

    // As it is, without places.
    // The text is written into memory, because the library knows files alone.
    std::string dot() {
        char* text = nullptr;
        size_t size = 0;
        FILE* const file = open_memstream(&text, &size);
        if (file == nullptr) throw std::bad_alloc();
        const bool written = agwrite(graph_.get(), file) == 0;
        const bool closed = fclose(file) == 0;
        // Freed also when an exception leaves this function.
        const std::unique_ptr<char, void (*)(void*)> owner(text, free);
        if (!written || !closed) throw Failure("cannot write DOT: {}", reason());
        return {text, size};
    }

    // Once in a process: the plug-in that measures texts keeps pointers into a context that has been freed.
    // `format` is a name that the library knows.
    std::string render(const char* format) {
        const std::unique_ptr<GVC_t, FreeContext> context(gvContext());
        if (!context || gvLayout(context.get(), graph_.get(), "dot") != 0) throw Failure("no layout: {}", reason());
        // A picture of dots is limited after its size is known.
        if (std::string_view(format) == "png") GD_drawing(graph_.get())->dpi = dots_per_inch();
        char* data = nullptr;
        unsigned size = 0;
        const bool drawn = gvRenderData(context.get(), graph_.get(), format, &data, &size) == 0 && data != nullptr;
        std::string picture;
        // The library's buffer is copied and given back at once.
        if (drawn) picture.assign(data, size);
        gvFreeRenderData(data);
        gvFreeLayout(context.get(), graph_.get());
        if (!drawn) throw Failure("no {}: {}", format, reason());
        return picture;
    }

private:
    // Of a picture of dots, once it is laid out; 0 where the format's own will do. To write so many dots takes seconds.
    // In points, of which 72 make an inch.
    double dots_per_inch() const {
        constexpr double kPointsPerInch = 72;
        constexpr double kUsual = 96;
        constexpr double kMostDots = 12e6;
        constexpr double kLongestSide = 32'000;  // of what the library can draw
        // The size is known in points, and a margin is added.
        const double width = GD_bb(graph_.get()).UR.x + kPointsPerInch;
        const double height = GD_bb(graph_.get()).UR.y + kPointsPerInch;
        const double dots = std::min(std::sqrt(kMostDots / (width * height)), kLongestSide / std::max(width, height));
        return dots * kPointsPerInch < kUsual ? dots * kPointsPerInch : 0;
    }

    // In one line, for a failure.
    // The library has told its reason while it worked.
    static std::string reason() {
        std::string text = library_says();
        while (text.ends_with('\n')) text.pop_back();
        return text.empty() ? "libgvc does not say why; are its plug-ins installed?" : text;
    }

    // From left to right, since texts are wide and leaves are many. The fonts are as wide as each other, so that a text
    // fits its box on another machine, too.
    // Defaults of all vertices and edges. What differs is set at each of them.
    void set_defaults() {
        static constexpr const char* kGraph[][2] = {
            {"rankdir", "LR"},        {"labelloc", "t"},
            {"labeljust", "l"},       {"fontname", "DejaVu Sans,Verdana,sans-serif"},
            {"fontsize", "11"},       {"nodesep", "0.16"},
            {"ranksep", "0.35"},      {"bgcolor", "white"},
            {"pad", "0.3"},           {"charset", "UTF-8"},
            {"fontcolor", "#1a1d21"}, {"outputorder", "edgesfirst"},
        };
        static constexpr const char* kNode[][2] = {
            {"shape", "box"},   {"style", "filled"}, {"fontname", "DejaVu Sans,Verdana,sans-serif"},
            {"fontsize", "11"}, {"height", "0.3"},   {"fontcolor", "#1a1d21"},
        };
        static constexpr const char* kEdge[][2] = {
            {"fontname", "DejaVu Sans,Verdana,sans-serif"},
            {"fontsize", "9"},
            {"arrowsize", "0.7"},
            {"fontcolor", "#3a414b"},
        };
        for (const auto& [name, value] : kGraph) agattr(graph_.get(), AGRAPH, text_of(name), text_of(value));
        for (const auto& [name, value] : kNode) agattr(graph_.get(), AGNODE, text_of(name), text_of(value));
        for (const auto& [name, value] : kEdge) agattr(graph_.get(), AGEDGE, text_of(name), text_of(value));
        // A large chain stands closer together.
        if (!is_small_) set(graph_.get(), "nodesep", "0.09");
        if (chain_.edges.size() > chain_.vertices.size() + kMostCrossing) hurry();
        set_label(graph_.get(), title_label(chain_));
    }

    // Where very many edges cross, the best places and curves around all vertices would take minutes to find.
    // These limits are words of the library. They bound how long it looks for the best order.
    void hurry() {
        set(graph_.get(), "nslimit", "0.5");
        set(graph_.get(), "nslimit1", "1");
        set(graph_.get(), "mclimit", "0.1");
        set(graph_.get(), "splines", "line");
    }

    // Every text that is not this program's own goes through label_text first.
    // The library keeps a copy of the text under a count, which is given back.
    void set_label(void* object, const std::string& label) {
        char* const kept = agstrdup_html(agraphof(object), text_of(label));
        if (kept == nullptr) throw std::bad_alloc();
        agsafeset(object, text_of("label"), kept, text_of(""));
        agstrfree(agraphof(object), kept);
    }

    // For values of this program alone: the library would look for escapes in a text.
    static void set(void* object, const char* name, const std::string& value) {
        agsafeset(object, text_of(name), text_of(value), text_of(""));
    }

    // What the legend and the chain have in common. The id lets a page find the vertex.
    // Throws std::bad_alloc when the library has no memory.
    Agnode_t* add_node(Agraph_t* graph, const std::string& name, const FamilyLook& look, Mark mark) {
        Agnode_t* const node = agnode(graph, text_of(name), 1);
        if (node == nullptr) throw std::bad_alloc();
        set(node, "id", name);
        set(node, "class", fmt::format("{}{}{}", look.word, mark == Mark::none ? "" : " ", look_of(mark).word));
        set(node, "shape", look.shape);
        set(node, "style", look.style);
        set(node, "margin", look.margin);
        set(node, "fillcolor", look.fill);
        set(node, "color", mark == Mark::none ? look.line : kMarkLine);
        set(node, "penwidth", look_of(mark).width);
        return node;
    }

    // The name tells edges apart that join the same two.
    // Throws std::bad_alloc when the library has no memory.
    Agedge_t* add_edge_between(Agnode_t* from, Agnode_t* to, const std::string& name) {
        Agedge_t* const edge = agedge(graph_.get(), from, to, text_of(name), 1);
        if (edge == nullptr) throw std::bad_alloc();
        return edge;
    }

    // The number in the name is the place in the chain.
    void add_vertex(size_t i) {
        const ChainVertex& vertex = chain_.vertices[i];
        Agnode_t* const node = add_node(graph_.get(), fmt::format("v{}", i), look_of(vertex), vertex.mark);
        set_label(node, vertex_label(vertex, is_small_ || vertex.kind->family == Family::process));
        // A second line would go through the text of a shape with a lid.
        if (!vertex.folded.empty() && look_of(vertex).margin == kMargin) set(node, "peripheries", "2");
    }

    // What a rule names is red, like its vertices, and a little wider for those who do not see red.
    // The arrow points from who acted to what was acted upon.
    void add_edge(size_t i) {
        const ChainEdge& edge = chain_.edges[i];
        const std::string name = fmt::format("e{}", i);
        const auto end = [&](size_t vertex) { return agnode(graph_.get(), text_of(fmt::format("v{}", vertex)), 0); };
        Agedge_t* const drawn = add_edge_between(end(edge.from), end(edge.to), name);
        set(drawn, "id", name);
        set(drawn, "class", look_of(edge.mark).word);
        set(drawn, "label", edge_label(edge));
        set(drawn, "color", edge.mark == Mark::none ? kPlainLine : kMarkLine);
        set(drawn, "penwidth", edge.mark == Mark::none ? "1" : "1.4");
    }

    // A frame with one vertex for each look that the chain has, in rows: what no edge joins would stand in one column.
    // The samples have no edges of the chain and take no part in its order.
    void add_legend() {
        Agraph_t* const frame = agsubg(graph_.get(), text_of("cluster_legend"), 1);
        if (frame == nullptr) throw std::bad_alloc();
        set_label(frame, "<B>Legend</B>");
        set(frame, "class", "legend");
        set(frame, "color", "#b8bec7");
        set(frame, "style", "rounded");
        // Only what the picture holds is explained.
        bool seen[std::size(kLooks)] = {};
        bool seen_mark[std::size(kMarks)] = {};
        for (const ChainVertex& vertex : chain_.vertices) {
            seen[static_cast<size_t>(vertex.kind->family)] = true;
            seen_mark[static_cast<size_t>(vertex.mark)] = true;
        }
        std::vector<Agnode_t*> samples;
        const auto add = [&](const FamilyLook& look, Mark mark, const char* text) {
            samples.push_back(add_node(frame, fmt::format("legend{}", samples.size()), look, mark));
            set_label(samples.back(), label_text(text));
        };
        for (size_t i = 0; i < std::size(kLooks); ++i)
            if (seen[i]) add(kLooks[i], Mark::none, kLooks[i].legend);
        for (const Mark mark : {Mark::named, Mark::hit})
            if (seen_mark[static_cast<size_t>(mark)]) add(kLooks[0], mark, look_of(mark).legend);
        // Samples of one row are joined by edges that cannot be seen. So they stand side by side.
        for (size_t i = 1; i < samples.size(); ++i)
            if (i % kLegendRow != 0)
                set(add_edge_between(samples[i - 1], samples[i], fmt::format("legend{}", i)), "style", "invis");
    }

    // The chain is only read.
    const Chain& chain_;
    // Whether all vertices show all their lines.
    const bool is_small_;
    std::unique_ptr<Agraph_t, CloseGraph> graph_;
};

}  // namespace

std::string_view mark_word(Mark mark) { return look_of(mark).word; }

// DOT needs no layout, and so none of the plug-ins that the child is for.
std::string draw_chain(const Chain& chain, Picture picture) {
    if (picture == Picture::dot) return Drawing(chain).dot();
    return in_own_process("draw the chain",
                          [&] { return Drawing(chain).render(picture == Picture::png ? "png" : "svg"); });
}

}  // namespace zelhost
