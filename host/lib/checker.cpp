#include "host/lib/checker.h"

#include <stdlib.h>

#include <new>

#include "host/lib/failure.h"

namespace zelhost {

// Where the agent has its id from, a checker has a stand-in: a missing id would be an error line for each document, and
// is none of the document's faults.
Checker::Checker(int32_t log_level) {
    // A value that is set already stays.
    setenv("agentid", "check", 0);
    if (zelcheck_open(log_level, &checker_) != 0) throw Failure("no memory for a checker");
}

Checker::~Checker() { zelcheck_close(checker_); }

// An error here can only be want of memory: a bad document is a result.
const zelcheck_result& Checker::check(uint32_t event_id, std::string_view document) {
    const zelcheck_result* result = nullptr;
    if (zelcheck_document(checker_, event_id, document.data(), document.size(), &result) != 0) throw std::bad_alloc();
    return *result;
}

}  // namespace zelhost
