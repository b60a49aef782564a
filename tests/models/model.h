// Components against plain models. A model plays a sequence of steps on the component and on a few lines of plain code
// that keep what the component promises, and compares the two after each step. The sequences are random, from a seed.
#pragma once

#include <rapidcheck.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace models {

// One kind of step. Each number of a step lies below its limit; a limit of 0 means that the step has no such number.
struct Act {
    const char* name;
    unsigned weight;  // how often it comes, beside the others
    std::array<uint32_t, 3> below{};
    // Words for the numbers in a failure; without it they are shown as they stand.
    std::string (*shown)(const std::array<uint32_t, 3>& numbers) = nullptr;
};

struct Step {
    size_t act;  // in the model's table
    std::array<uint32_t, 3> numbers;
    const Act* kind;

    uint32_t operator[](size_t number) const { return numbers[number]; }
};

struct Steps {
    std::vector<Step> list;
};
// One line for each step; RapidCheck finds it by its name.
void showValue(const Steps& steps, std::ostream& out);

// The longest sequence is `length` steps. `play` starts with a new component and ends with RC_ASSERT or RC_FAIL when
// the component does not do what the model says.
struct Model {
    const char* name;
    std::vector<Act> acts;
    int length;
    void (*play)(const Steps& steps);
};

const Model& repeat_filter();
const Model& hot_cache();
const Model& eliminator();
const Model& rule_brake();
const Model& work_queue();

}  // namespace models
