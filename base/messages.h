#pragma once

// Messages of the system's own, to whoever uses it.

#include <string>

// Whether the process has someone to show dialogs to; otherwise messages go to standard output.
extern bool graphical_display;

// Shows an error that is not the simulated program's: in a dialog, or on standard output when there is no
// display.
void show_error(const std::string& text);
