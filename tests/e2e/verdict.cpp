// Answers each line of standard input, an alert document, with a line: why the agent refuses it, or nothing.
#include <iostream>
#include <string>

#include "check/zelcheck_host.h"

int main() {
    zelcheck* checker = nullptr;
    if (zelcheck_open(0, &checker) != 0) return 1;
    for (std::string line; std::getline(std::cin, line);) {
        const zelcheck_result* result = nullptr;
        if (zelcheck_document(checker, 1536, line.data(), line.size(), &result) != 0) return 1;
        const bool refused = result->verdict == ZELCHECK_REFUSED;
        std::cout << (refused ? result->refusal->reason : "") << std::endl;
    }
    zelcheck_close(checker);
}
