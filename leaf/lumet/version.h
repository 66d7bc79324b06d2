#pragma once

#include <string_view>

constexpr std::string_view kLumetVersion = "1.3.1";
