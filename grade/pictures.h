#pragma once

// Pictures of the screen, compared as people compare them.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "grade/task.h"

// 640x480 points, 0xRRGGBB, row by row; or none.
using picture_t = std::vector<uint32_t>;

// One that somebody else keeps.
using points_t = std::span<const uint32_t>;

// The picture on the screen now, where the board has it.
points_t picture_of_screen();

// Reads a PNG file of 640x480 points. Throws tovik_error.
picture_t read_png(const std::string& file_name);

struct comparison_t {
    double equal;     // the share of the region's points
    picture_t marked; // the region's points that differ in red, the others of the first picture faint; none
                      // of equal ones
};

// A point is equal when each picture has there, or as near as the rule allows, a point like the other's:
// then a thin line that is missing is not taken for one that has moved.
comparison_t compare(points_t seen, points_t expected, const picture_rule_t& rule);
