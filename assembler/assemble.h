#pragma once

// Translates an assembly program into a memory image.

#include <string>

// Assembles NAME.k and what it includes into NAME.mif and NAME.labels beside it. Reports the first fault,
// with file and line, in a dialog (on standard output when there is no display); the two files then hold what
// was written so far. Returns whether the program was assembled.
bool assemble(const std::string& source_file_name);
