// Work in a process of its own.
#pragma once

#include <functional>
#include <string>

namespace zelhost {

// What the work returns in a child of this process. For work of a library that is given what an attacker wrote: when it
// crashes or does not come to an end, only the result is lost, and what it does not free ends with it. Throws Failure
// with the text of what the work threw, or when the child did not end by itself within a minute. Call it while the
// process has one thread.
// `what` completes the sentence "cannot ...". `work` runs in the child alone, and its changes are
// not seen here.
std::string in_own_process(const char* what, const std::function<std::string()>& work);

}  // namespace zelhost
