#pragma once

// What the files of the windows share: the handles of what may be closed, how each window is built, and how
// what was drawn since the last look reaches the screen.

#include <string>

#include <gtk/gtk.h>

// Null once their window is closed.
extern GtkTextBuffer* memory_buffer;
extern GtkTextBuffer* serial_buffer;
extern GtkWidget* vga_draw;

// The "destroy" handler of every window. The user data names what was closed: null for the main window, which
// ends the process with status 0, or the address of one of the handles above, which becomes null.
void sig_destroy(GtkWidget* widget, gpointer handle);

void build_memory_window();
void build_vga_window();
void build_main_window();

// Shows the file that the first argument names on the file button, if it ends in ".k".
void choose_initial_file(int argc, char** argv);

// Gives a widget the name by which it is found from outside: by tests, and by whoever cannot see the window.
void set_name(GtkWidget* widget, const std::string& name);

// A lamp or switch of the board, with its signals connected.
GtkWidget* new_green_led(int i);
GtkWidget* new_red_led(int i);
GtkWidget* new_switch(int i);

// Connects the keyboard and the pointer to the VGA window and the drawing area that fills it.
void connect_input(GtkWidget* vga_window, GtkWidget* area);

// Connects the keyboard to the serial console.
void connect_serial_keys(GtkWidget* console);

// Connects the pointer and the keyboard to a switch.
void connect_switch(GtkWidget* sw, int i);

// Hand what changed since the last call to the toolkit: all of it, or the part that a file shows.
void flush_display();
void flush_labels();
void flush_board();
void flush_serial_console();

// Whether the serial console was last handed over so long ago that it costs a running program little.
bool serial_console_is_due();
