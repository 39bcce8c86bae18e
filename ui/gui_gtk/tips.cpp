#include "ui/gui_gtk/tips.h"

#include <string_view>

namespace {

// Whose handler was asked last.
GtkWidget* asked = nullptr;

// The toolkit asks also when a dialog keeps the control from being used, and shows the tip in front of it.
gboolean query_text(GtkWidget* widget, gint /*x*/, gint /*y*/, gboolean /*by_keyboard*/, GtkTooltip* tooltip,
                    gpointer text) {
    if (gtk_grab_get_current() != nullptr) {
        return FALSE;
    }
    return show_tip(widget, tooltip, static_cast<const char*>(text));
}

// The toolkit tells the name of the window that it shows tips in, but not the window.
bool is_tip_on_screen() {
    GList* const windows = gtk_window_list_toplevels();
    const GList* item = windows;
    while (item != nullptr &&
           (gtk_widget_get_name(GTK_WIDGET(item->data)) != std::string_view("gtk-tooltip") ||
            gtk_widget_get_visible(GTK_WIDGET(item->data)) == FALSE)) {
        item = item->next;
    }
    g_list_free(windows);
    return item != nullptr;
}

} // namespace

// The toolkit's own function for a text would also make it the description that a screen reader tells.
void set_tip(GtkWidget* widget, const char* text) {
    set_tip_handler(widget, query_text, const_cast<char*>(text));
}

void set_tip_handler(GtkWidget* widget, tip_handler_t handler, gpointer data) {
    g_signal_connect(widget, "query-tooltip", G_CALLBACK(handler), data);
    gtk_widget_set_has_tooltip(widget, TRUE);
}

gboolean show_tip(GtkWidget* widget, GtkTooltip* tooltip, const std::string& text) {
    asked = widget;
    gtk_tooltip_set_text(tooltip, text.c_str());
    return TRUE;
}

void refresh_tip(GtkWidget* widget) {
    if (widget == asked && is_tip_on_screen()) {
        gtk_widget_trigger_tooltip_query(widget);
    }
}
