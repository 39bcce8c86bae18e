#pragma once

// The exit statuses of tovik-grade.

constexpr int EXIT_GRADED = 0;     // all, whatever their points
constexpr int EXIT_NOT_GRADED = 2; // wrong usage, a wrong task, or the machine was in the way
