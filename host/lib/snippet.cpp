#include "host/lib/snippet.h"

#include <algorithm>
#include <vector>

#include "host/lib/visible.h"

namespace zelhost {
namespace {

// Columns of a cut, and how many of them stand before the place at most. With indentation and dots it fits 80 columns.
constexpr size_t kColumns = 66;
constexpr size_t kBefore = 30;
constexpr std::string_view kDots = "...";

// Near the place alone: the line may have 200 MB. No cell has more bytes than columns, but for characters without
// width; the few that fall out then are cut off.
// A character has at most four bytes, so four times as many bytes as columns are enough on either
// side.
std::vector<Cell> cells_around(std::string_view line, size_t at) {
    std::vector<Cell> cells;
    const size_t end = std::min(line.size(), at + 4 * kColumns);
    size_t next = character_begin(line, at > 4 * kColumns ? at - 4 * kColumns : 0);
    while (next < end) next = cells.emplace_back(cell_at(line, next)).end;
    return cells;
}

// Where a cut may begin without tearing a word.
bool begins_word(const std::vector<Cell>& cells, size_t index) {
    return index == 0 || std::string_view(" ,{[").find(cells[index - 1].text) != std::string_view::npos;
}

}  // namespace

Snippet cut_around(std::string_view line, size_t at, size_t size) {
    // A place in the middle of a character is moved to its beginning.
    at = character_begin(line, std::min(at, line.size()));
    const std::vector<Cell> cells = cells_around(line, at);
    const auto found = std::ranges::find_if(cells, [at](const Cell& cell) { return cell.begin >= at; });
    const auto place = static_cast<size_t>(found - cells.begin());

    // To the right as far as there is room beside what stands before, then to the left what is left over.
    size_t columns = 0;
    size_t first = place;
    size_t last = place;  // one behind
    // Adds characters in front as long as the width allows.
    const auto grow_left = [&](size_t limit) {
        while (first > 0 && columns + cells[first - 1].columns <= limit) columns += cells[--first].columns;
    };
    grow_left(kBefore);
    while (last < cells.size() && columns + cells[last].columns <= kColumns) columns += cells[last++].columns;
    if (last == cells.size()) grow_left(kColumns);
    size_t begin = first;
    // A cut in the middle of a word is moved to the next beginning of one.
    while (begin < place && !begins_word(cells, begin)) ++begin;
    if (begin < place) first = begin;

    Snippet snippet;
    if (first < cells.size() && cells[first].begin > 0) snippet.text = kDots;
    snippet.marks = std::string(snippet.text.size(), ' ');
    for (size_t i = first; i < last; ++i) {
        snippet.text += cells[i].text;
        const bool marked = i >= place && (i == place || cells[i].begin < at + size);
        // Marks reach as far as the marked bytes do.
        if (i <= place || marked) snippet.marks += std::string(cells[i].columns, marked ? '~' : ' ');
    }
    if (last > 0 && cells[last - 1].end < line.size()) snippet.text += kDots;
    // The first mark is the caret.
    const size_t caret = std::min(snippet.marks.find('~'), snippet.marks.size());
    snippet.marks.replace(caret, 1, "^");
    return snippet;
}

}  // namespace zelhost
