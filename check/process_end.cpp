// Takes the place of common/checks.cpp in this library.
#include "check/process_end.h"

#include <string>

#include "common/checks.h"

namespace zel {

void assertion_failed(const char* text, std::source_location) {
    throw check::ProcessEnd(std::string("Assertion `") + text + "' failed");
}

void arithmetic_overflow(const char* operation) {
    throw check::ProcessEnd(std::string("signed ") + operation + " overflows");
}

}  // namespace zel
