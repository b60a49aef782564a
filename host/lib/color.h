// Colours of text for people. Text for programs is never coloured.
#pragma once

#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace zelhost {

enum class ColorMode { automatic, always, never };

// What a piece of text means; each meaning has one colour in all commands.
// The place in the enumeration is the row of the table of codes.
enum class Tint { plain, error, warning, good, place, faint, bold };

// Paints text for one stream. Any thread.
class Paint {
public:
    // `descriptor` is the stream that the text goes to. Automatic means colours on a terminal, unless NO_COLOR is set
    // to any text or TERM is "dumb".
    Paint(ColorMode mode, int descriptor);

    bool colored() const { return colored_; }
    // The text between the codes of its tint, or the text alone.
    std::string operator()(Tint tint, std::string_view text) const;

private:
    bool colored_;
};

// Adds --color auto|always|never to a command. `mode` must live as long as the parser.
void add_color_option(CLI::App& app, ColorMode& mode);

}  // namespace zelhost
