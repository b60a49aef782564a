// The account as people read it. One printer serves the summary of a run and the long runs.
#pragma once

#include <string>

#include "host/lib/account.h"

namespace zelhost {

// Where a session ended. After a stop under load the log does not name every trace that was discarded, so what is short
// in the account of traces counts as waiting; after a quiet end it shows as a difference.
enum class End { quiet, under_load };

// A line for each kind of event, with what became of it, then what was given out and the traces.
std::string account_text(const Account& account, End end);
// The plug-in's own statistics, and where the host's count differs from them.
// Empty values are left out. `account` must hold reports, or a line says that there are none.
std::string statistics_text(const Account& account);
// What should be nothing: objects that are left, and wrong calls. Empty when all is well.
std::string leftover_text(const Account& account);

}  // namespace zelhost
