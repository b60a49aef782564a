// Why a setting has its value, in words.
#pragma once

#include <string>

#include "check/zelcheck_host.h"
#include "common/setting.h"

namespace zel::check {

// Empty for a file that can be opened.
std::string why_unreadable(const std::string& path);

zelcheck_origin origin_of(const SettingSource& source);

// Empty when the number in force stands in the file, `path`, as it is.
std::string reason_of(const Setting& row, const SettingSource& source, const std::string& path);

}  // namespace zel::check
