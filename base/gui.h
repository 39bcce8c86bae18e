#pragma once

// What a front end offers to the core and the devices: the only door between them and the windows. Each
// program links one implementation of the gui_* functions; the picture of the screen (vga_*) is the same for
// all.

#include <cstdint>
#include <string>

// Builds the windows, from the program's arguments. Only a front end with windows has it; called first.
void gui_setup(int argc, char** argv);

// Whether window events (or scripted input) wait to be handled.
bool gui_events_pending();

// Handles one event; blocks until there is one if none waits. May end the process.
void gui_handle_event();

// Shows a text to the user and returns when it has been acknowledged. `error` chooses the kind of dialog.
void gui_message(std::string text, bool error);

// Asks the user for a file to save (or to open). Only names that match "*.EXTENSION" are offered, all when
// the extension is empty. A `filename` that is not empty is preselected. Returns false, with `filename` as it
// was, when the user cancels.
bool gui_choosefile(bool save, std::string title, std::string filter_name, std::string extension,
                    std::string& filename);

// Asks the user for a text of at most so many characters, below a prompt. However the dialog is closed, what
// has been typed by then is the answer.
std::string gui_gettext(std::string prompt, int max_length);

// The control window. The texts of the entries are what the user typed.
std::string gui_assemble_file_get();
void gui_assemble_file_set(std::string text);
std::string gui_steps_get();
void gui_steps_set(std::string text);
std::string gui_breakpoint_get();
void gui_breakpoint_set(std::string text);
std::string gui_watchpoint_get();
void gui_watchpoint_set(std::string text);
void gui_runstop_set(std::string text);
void gui_status_set(std::string text);
void gui_pc_set(std::string text);
void gui_time_set(std::string text);

// The "Camera" and "Mic" boxes. Setting one only shows the state; it is no command.
bool gui_camera_get();
void gui_camera_set(bool on);
bool gui_mic_get();
void gui_mic_set(bool on);

// The serial console: opens it if it is not open, and shows a byte (but no carriage return) if it is.
void gui_serial_setup();
void gui_serial_append(char c);

// The program looks for a byte of the console's and there is none: a console that can wait for its user may
// give one, with io_serial_press.
void gui_serial_input();

void gui_hex74_set(std::string text);
void gui_hex30_set(std::string text);
void gui_lcd_set(std::string text);

// Ask for a repaint of switch (0 to 17), red LED (0 to 17) or green LED (0 to 7) number i.
void gui_sw_draw(int i);
void gui_led_red_draw(int i);
void gui_led_green_draw(int i);

// Shows the whole memory, and which words were written since it was last shown; those are then no longer
// marked as modified. Does nothing while there is no memory window.
void print_memory();

// Shows over the screen whether the mouse is active.
void gui_vga_cursor(bool active);

// Repaints a rectangle of the screen from the video memory; its coordinates wrap around at 1024. Arguments
// must be below 1024. A y_size of 0 asks for a repaint without looking for changes.
void vga_refresh(unsigned x_start, unsigned y_start, unsigned x_size, unsigned y_size);

// Paints a rectangle, both corners inclusive and on the screen, in a colour.
void vga_box(int32_t x1, int32_t y1, int32_t x2, int32_t y2, uint16_t color);

// Whoever copies the record has painted what waits to be, and whoever puts it back has all of it shown.
void vga_settle();
void vga_repaint();
