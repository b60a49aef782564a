// Alert documents in files: one in the whole file, or one a line, bare or as the payload of a line of a script.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/lib/line_reader.h"
#include "platform/event_ids.h"

namespace zelhost {

// A place in a file, as an editor counts.
// The view is valid as long as the document that it is of.
struct FilePlace {
    uint64_t line;          // from 1
    uint64_t offset;        // of the byte in the file
    std::string_view text;  // the line, without its end
    size_t at;              // the byte in the line; one behind the last byte where the document ends
    uint64_t column() const { return at + 1; }
};

// A document and where it comes from. The views are valid until the next document is asked for.
// It owns nothing. `starts` holds offsets into `lines`.
struct Document {
    uint64_t number;                 // in its file, from 1
    uint32_t event_id;               // 1536 or 1538
    std::string_view text;           // what the decoder gets
    std::string_view lines;          // of the file, in which it stands
    std::span<const size_t> starts;  // of each of them but the first
    uint64_t first_line;             // the number of the first of them
    uint64_t lines_offset;           // of their first byte in the file
    size_t begin;                    // of the document in them, or of the literal whose value it is
    bool is_literal;

    // Of a byte of the text.
    FilePlace place(uint64_t offset) const;
    // How many bytes of the file the bytes of the text take from there on, at most to the end of their line.
    size_t width(uint64_t offset, uint64_t size) const;

private:
    size_t in_lines(uint64_t offset) const;
    size_t line_end(size_t at) const;
};

// The documents of one file, in their order. Borrows the stop signal. One thread.
//
// A file is one document when its first line opens an object or a list that it does not close, and the next line can go
// on with it. Otherwise each line is one. Lines without anything and lines that begin with # are passed over; so are,
// in a file of lines, those lines of a script that carry no alert document.
class Documents {
public:
    // "-" is standard input. Throws Failure when the file cannot be opened.
    Documents(const std::string& path, const StopSignal& stop) : reader_(path, LineReader::Mode::to_the_end, stop) {}

    // False at the end of the file, or when a signal came. Throws Failure when the file cannot be read.
    bool next(Document& document);

    // How much of a regular file has been read, in per cent; negative for anything else.
    int percent() const { return reader_.percent(); }

private:
    // A line of the file with its place.
    struct Line {
        std::string_view text;
        uint64_t number;
        uint64_t offset;
    };

    bool next_line(Line& line);
    bool begin(Document& document);
    void read_on(const Line& line);
    Document document_in(std::string_view lines, const Line& first) const;
    bool take(const Line& line, Document& document);

    LineReader reader_;
    // False until the first document was asked for.
    bool begun_ = false;
    std::optional<Line> pending_;  // read already and not taken
    Line first_{};                 // of a document that goes over lines; its text lies in `held_`
    std::string held_;
    std::vector<size_t> starts_;  // of the lines in it, but the first
    std::string value_;           // of a literal
    // Of the next line, in bytes from the beginning of the file.
    uint64_t offset_ = 0;
    // Documents that were given out.
    uint64_t count_ = 0;
};

}  // namespace zelhost
