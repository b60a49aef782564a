// What "@" in a path stands for.
#pragma once

#include <string>

namespace zel::check {

// While it lives, "@" is the folder of the plug-in in the agent that is looked at. Without one, a path that begins with
// "@/" leads to nothing, so that no library and no settings of the machine take part in the check of a document.
class ModuleFolder {
public:
    explicit ModuleFolder(std::string folder);
    ~ModuleFolder();
    ModuleFolder(const ModuleFolder&) = delete;
    ModuleFolder& operator=(const ModuleFolder&) = delete;
};

}  // namespace zel::check
