#pragma once

// What a control says when the pointer rests on it. A text that can change is made when it is shown.

#include <string>

#include <gtk/gtk.h>

// Gives a control a text that stays; the text must, too.
void set_tip(GtkWidget* widget, const char* text);

// Gives a control a handler of "query-tooltip", which ends with show_tip.
using tip_handler_t = gboolean (*)(GtkWidget* widget, gint x, gint y, gboolean by_keyboard,
                                   GtkTooltip* tooltip, gpointer data);
void set_tip_handler(GtkWidget* widget, tip_handler_t handler, gpointer data = nullptr);
gboolean show_tip(GtkWidget* widget, GtkTooltip* tooltip, const std::string& text);

// After a change of what the handler tells: asks it again if its text is on the screen.
void refresh_tip(GtkWidget* widget);
