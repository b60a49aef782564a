#include "common/checks.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "common/log.h"

namespace zel {

void assertion_failed(const char* text, std::source_location where) {
    fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name,
            base_name(where.file_name()), static_cast<unsigned>(where.line()), where.function_name(), text);
    abort();
}

void arithmetic_overflow(const char* operation) {
    fprintf(stderr, "zelreshdl: signed %s overflows\n", operation);
    abort();
}

}  // namespace zel
