#include "base/messages.h"

#include <iostream>

#include "base/gui.h"

bool graphical_display = false;

void show_error(const std::string& text) {
    if (graphical_display) {
        gui_message(text, true);
    } else {
        std::cout << text << std::endl;
    }
}
