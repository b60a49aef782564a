// How severe an alert is, as people write it.
#pragma once

#include "host/lib/color.h"

namespace zelhost {

// One row for each VORN_RISK_LEVEL, in its order; the position is the value.
// The name is what lines and options show; the tint is its colour in every command.
struct Severity {
    const char* name;
    Tint tint;
};
inline constexpr Severity kSeverities[] = {
    {"-", Tint::faint},   {"verbose", Tint::faint}, {"low", Tint::plain},
    {"mid", Tint::place}, {"high", Tint::warning},  {"critical", Tint::error},
};

}  // namespace zelhost
