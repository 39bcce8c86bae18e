#pragma once

// What separates the words of every text that tovik reads: sources, images, scripts.

#include <string_view>

constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";
