#pragma once

// The commands behind the control window's buttons.

// Asks for the source and shows its name on the file button. Throws host_failure_t, after a
// dialog, when a chosen name does not end in ".k".
void debug_assemble_choose();

// Assembles, or loads the image of, the source named on the file button; asks for it first when there is
// none, and throws what that throws.
void debug_assemble();
void debug_load();

// Stops the run after one more instruction; or reads the entries for steps, breakpoint and watchpoint,
// rewrites them as they were understood, and starts a run unless the machine has halted.
void debug_runstop();

// Opens or closes the capture device or the microphone's stream, as the "Camera" or "Mic" box says.
void debug_camera();
void debug_microphone();
