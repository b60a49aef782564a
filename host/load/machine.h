// What else the machine does. A measure that depends on speed means little without it.
#pragma once

namespace zelhost {

// Over the last minute; 0 when the system does not tell.
double load_average();
// Processor time of all programs since the machine started, in seconds; 0 when the system does not tell.
double machine_busy_seconds();

}  // namespace zelhost
