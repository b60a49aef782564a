// The report call-backs. They run on a thread of the manager and never throw.
#pragma once

#include <cstdint>
#include <string>

// The plug-in's figures as the JSON member "BP_ZELRESHDL":{...}, without enclosing braces. Throws std::bad_alloc.
std::string getZelreshdlDataInfo();

// Writes the report and sets all figures to zero: 1. Writes nothing and keeps the figures when `size` does not exceed
// the text's length, or without a buffer: 0.
int zelreshdlBpFunc(char* buffer, uint32_t size);

// Keeps the trace costs of the period with the worst single trace for the next report. The arguments are not used;
// always 1.
int zeltrcBpFunc(char* buffer, uint32_t size);
