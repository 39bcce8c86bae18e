#pragma once

// What a front end offers to the core and the devices: the only door between them and the windows. Each
// program links one implementation.

#include <string>

// Whether window events (or scripted input) wait to be handled.
bool gui_events_pending();

// Handles one event; blocks until there is one if none waits. May end the process.
void gui_handle_event();

// Shows a text to the user and returns when it has been acknowledged. `error` chooses the kind of dialog.
void gui_message(std::string text, bool error);

void gui_runstop_set(std::string text);
void gui_status_set(std::string text);
void gui_pc_set(std::string text);
void gui_time_set(std::string text);

void gui_hex74_set(std::string text);
void gui_hex30_set(std::string text);

// Ask for a repaint of switch (0 to 17), red LED (0 to 17) or green LED (0 to 7) number i.
void gui_sw_draw(int i);
void gui_led_red_draw(int i);
void gui_led_green_draw(int i);
