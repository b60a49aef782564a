// The figures of a run as Prometheus reads them, in a file that a collector of text files takes up.
#pragma once

#include <optional>
#include <string>

#include "host/lib/account.h"
#include "host/lib/sink_account.h"

namespace zelhost {

// What the metrics say of the run itself.
struct RunProgress {
    double start_time = 0;  // seconds since 1970
    bool running = false;
    uint64_t lines = 0, skipped = 0, shown = 0;
    std::optional<SinkAccount> sink{};  // none without a sink
};

// In the text format. What only the log tells is left out where the log is not read.
// The text is a whole file.
std::string metrics_text(const Account& account, const RunProgress& run);

// One thread at a time.
// Owns only the path. It is written on the thread that calls.
class MetricsFile {
public:
    // Throws Failure when there is something at the path that is no regular file: a replacement would destroy it.
    explicit MetricsFile(const std::string& path);

    // A reader sees the old text or the new one, never a part. Throws Failure; the old text stays then.
    void replace(const std::string& text) const;

private:
    std::string path_;  // behind links, so that a link stays one
};

}  // namespace zelhost
