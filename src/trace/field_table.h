// Tables that move records into messages. A table is a tuple of fields; a field names a member of a record and the
// field of a message that gets its value. The tables are constexpr, so the compiler turns the reading of one into
// straight code.
//
// Texts are moved, not copied: the record is read for the last time. What is left in it is valid and unspecified.
#pragma once

#include <source_location>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "trace/text_check.h"

namespace zel {

// A text of the record, checked or not.
template <class Message, class Record>
struct TextField {
    using RecordType = Record;

    std::string* (Message::*target)();  // makes the field and gives its text
    std::string Record::* source;
    bool checked;
    std::source_location place;  // of the table's line, for the lines of a refused text

    bool passes(const Record& record) const { return !checked || CheckDsStr(record.*source, place); }
    void move(Record& record, Message& message) const {
        // An empty text is what the field holds already, and taking the field would allocate.
        if (!(record.*source).empty()) *(message.*target)() = std::move(record.*source);
    }
};

// A number of the record, converted to the type that the message has for it.
template <class Message, class Wire, class Record, class Number>
struct NumberField {
    using RecordType = Record;

    void (Message::*set)(Wire);
    Number Record::* source;

    bool passes(const Record&) const { return true; }
    void move(const Record& record, Message& message) const {
        // Unsigned members hold what was a signed number in the document, so that -1 is -1 again in a wider field.
        (message.*set)(static_cast<Wire>(static_cast<std::make_signed_t<Number>>(record.*source)));
    }
};

// A text that is checked.
template <class Message, class Record>
constexpr TextField<Message, Record> text(std::string* (Message::*target)(), std::string Record::* source,
                                          std::source_location place = std::source_location::current()) {
    return {target, source, true, place};
}

// A text that goes in as it is.
template <class Message, class Record>
constexpr TextField<Message, Record> unchecked_text(std::string* (Message::*target)(), std::string Record::* source) {
    return {target, source, false, {}};
}

// A number, with its sign where the field is wider and with its low bits where it is narrower.
template <class Message, class Wire, class Record, class Number>
constexpr NumberField<Message, Wire, Record, Number> number(void (Message::*set)(Wire), Number Record::* source) {
    return {set, source};
}

// Checks all texts in the table's order, then sets all fields of a message that has none of them set. Nothing is set
// or moved when a text is refused.
template <class Message, class Record, class... Fields>
bool fill(Message& message, Record& record, const std::tuple<Fields...>& table) {
    return std::apply(
        [&](const Fields&... fields) {
            if (!(fields.passes(record) && ...)) return false;
            (fields.move(record, message), ...);
            return true;
        },
        table);
}

}  // namespace zel
