// The report callbacks. The manager calls them on a thread of its own, one at a time or several at once. No exception
// leaves them.
#pragma once

#include <cstdint>
#include <string>

#include "platform/zel_bp.h"

// The plug-in's figures as the JSON member "BP_ZELRESHDL":{...}, without enclosing braces: the manager joins the
// members of all modules. Throws std::bad_alloc.
std::string getZelreshdlDataInfo();

// Writes the report, sets all figures to zero and answers 1. When the text with its terminator does not fit into
// `size`, or without a buffer, it writes nothing, keeps the figures and answers 0.
int zelreshdlBpFunc(char* buffer, uint32_t size);

// Keeps the trace costs of the period with the slowest single trace for the next report. The arguments are not used.
// Always 1.
int zeltrcBpFunc(char* buffer, uint32_t size);

// The names under which the manager knows the callbacks, in the order in which they are registered.
struct ReportRow {
    const char* module;
    zel_report_cb_t callback;
};
inline constexpr ReportRow kReports[] = {{"zelreshdl", &zelreshdlBpFunc}, {"zeltrc", &zeltrcBpFunc}};
