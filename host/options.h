// What the command line of `zelhost run` asks for.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zel {

// One value in an ini file of the agent folder.
struct Setting {
    std::string file;  // zelreshdl, zeltrc or zel_pure_mode
    std::string section;
    std::string key;
    std::string value;
};

struct RunOptions {
    std::string root;          // empty: the folder that the executable stands in
    std::string input = "-";   // "-" is standard input
    std::string output = "-";  // "-" is standard output
    std::string log;           // empty: what the environment says, else standard error
    std::string log_level;     // empty: debug with `log`, else warn
    std::chrono::milliseconds idle{300};
    std::chrono::seconds max_wait{180};
    std::vector<Setting> settings;
};

}  // namespace zel
