// The picture of a load over time.
#pragma once

#include <string>

#include "host/commands/load.h"
#include "host/lib/files.h"

namespace zelhost {

// A file that gets a picture at the end of a load. gnuplot draws it, in a process of its own. One thread.
// Owns the file. The picture is made by another program, which is started twice: once to see that
// it is there.
class LoadPlot {
public:
    // Before the load begins, so that a picture that cannot be drawn costs no load. Throws Failure.
    explicit LoadPlot(const std::string& path);

    // Three panels with one axis of time: rates, latencies, queues. Throws Failure.
    void draw(const LoadEnd& end, const std::string& title);

private:
    OutputFile file_;
};

}  // namespace zelhost
