// The desktop front end. There is no window yet, so there is nothing to show and no event can come: the
// desktop program says so and ends before it runs a program.

#include <cstdlib>
#include <iostream>

#include "ui/gui.h"

bool gui_events_pending() { return false; }

void gui_handle_event() { std::exit(1); }

void gui_message(std::string text, bool /*error*/) { std::cout << text << std::endl; }

void gui_runstop_set(std::string /*text*/) {}
void gui_status_set(std::string /*text*/) {}
void gui_pc_set(std::string /*text*/) {}
void gui_time_set(std::string /*text*/) {}
void gui_hex74_set(std::string /*text*/) {}
void gui_hex30_set(std::string /*text*/) {}
void gui_sw_draw(int /*i*/) {}
void gui_led_red_draw(int /*i*/) {}
void gui_led_green_draw(int /*i*/) {}
void gui_lcd_set(std::string /*text*/) {}
void gui_vga_cursor(bool /*active*/) {}
void print_memory() {}
bool gui_choosefile(bool, std::string, std::string, std::string, std::string&) { return false; }
