// Alert documents for a comparison: good ones, and what becomes of them when something is dropped, misspelt, mistyped,
// cut or overwritten.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace zelhost {

// One thread. The same seed and the same files give the same documents.
class VerdictDocuments {
public:
    // The documents of a folder are what all others are made of. Throws Failure when there is none.
    VerdictDocuments(const std::string& folder, uint32_t seed);

    // The next document. Any bytes.
    std::string next();
    // A good document, which no other repeats.
    std::string good();

private:
    uint32_t below(uint32_t limit) { return std::uniform_int_distribution(0u, limit - 1)(random_); }

    std::string mutated(const std::string& seed);
    void overwrite(std::string& text);

    std::mt19937 random_;
    std::vector<std::string> seeds_;
    uint64_t number_ = 0;
};

}  // namespace zelhost
