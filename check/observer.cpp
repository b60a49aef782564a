// The observer of this library: keeps what decoder and builders say until the document is explained.
#include "decode/observer.h"

#include <cmath>
#include <cstring>
#include <utility>

#include "check/observation.h"

namespace zel {

namespace check {
namespace {

constexpr double kTwoTo53 = 9007199254740992.0;

// Whether the number may differ from what its text says. Below 2^53 a double is exact.
bool is_doubtful(const cJSON& value, double stored) {
    return value.type != cJSON_Number || value.valuedouble != stored || std::fabs(stored) >= kTwoTo53;
}

void note_number(const cJSON* value, bool is_signed, uint64_t bits, double stored) {
    Observation& seen = observation();
    if (bits == 0) seen.zeros.push_back(value);
    if (is_doubtful(*value, stored)) seen.doubtful_numbers.push_back({value, is_signed, bits});
}

}  // namespace

// The lists point into the tree, so they are emptied with it.
void Observation::clear() {
    tree.reset();
    parsed = false;
    decoded = false;
    stopped_at = 0;
    objects.clear();
    seen_objects.clear();
    read.clear();
    read_in_order.clear();
    refusals.clear();
    doubtful_numbers.clear();
    zeros.clear();
    refused_texts.clear();
}

Observation& observation() {
    static Observation seen;
    return seen;
}

}  // namespace check

namespace observe {

using check::observation;
using check::Refusal;

cJSON* parse(const char* text) {
    check::Observation& seen = observation();
    const char* end = text;
    seen.tree.reset(cJSON_ParseWithOpts(text, &end, 0));
    seen.parsed = true;
    seen.stopped_at = static_cast<size_t>(end - text);
    return seen.tree.get();
}

// The observer is the owner: a document is explained when the decoder is done with it.
void done_with(cJSON*) {}

// Many keys of one object are looked up in a row. So the comparison with the last object saves most questions to the
// set.
void looked_up(const cJSON* object, const cJSON* value) {
    check::Observation& seen = observation();
    if (cJSON_IsObject(object) && (seen.objects.empty() || seen.objects.back() != object) &&
        seen.seen_objects.insert(object))
        seen.objects.push_back(object);
    if (value != nullptr && seen.read.insert(value)) seen.read_in_order.push_back(value);
}

void missing(const cJSON* object, const char* key) {
    observation().refusals.push_back({Refusal::Kind::missing, object, key});
}

void mistyped(const cJSON* value, int type) {
    observation().refusals.push_back({Refusal::Kind::mistyped, value, {}, type});
}

void unknown_number(const cJSON* object, const char* key) {
    observation().refusals.push_back({Refusal::Kind::unknown_number, cJSON_GetObjectItem(object, key), key});
}

void stored(const cJSON* value, int64_t number) {
    check::note_number(value, true, static_cast<uint64_t>(number), static_cast<double>(number));
}

// The bits of a negative number are what the builder makes a negative number of again.
void stored(const cJSON* value, uint64_t number) {
    const bool negative = value->type == cJSON_Number && value->valuedouble < 0;
    check::note_number(value, negative, number,
                       negative ? static_cast<double>(static_cast<int64_t>(number)) : static_cast<double>(number));
}

void refused_text(const char* text, size_t size, size_t bad) {
    observation().refused_texts.push_back({std::string(text, size), bad});
}

void decoded() { observation().decoded = true; }

}  // namespace observe
}  // namespace zel
