// Keyboard and pointer over the VGA window, keys in the serial console, and clicks and keys on switches:
// host events become calls of the devices.

#include <gdk/gdkkeysyms.h>
#include <gtk/gtk.h>

#include "base/machine.h"
#include "devices/ledswitchtimer.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/serial.h"
#include "ui/gui_gtk/windows.h"

namespace {

// The character of a key; its low byte is 0 for a key without one.
guint32 keyval_to_ascii(guint keyval) {
    const guint32 character = gdk_keyval_to_unicode(keyval);
    if ((character & 0xff) != 0) {
        return character;
    }
    switch (keyval) {
    case GDK_KEY_Return:
        return '\n';
    case GDK_KEY_Tab:
        return '\t';
    case GDK_KEY_BackSpace:
        return '\b';
    case GDK_KEY_Escape:
        return 27;
    default:
        return character;
    }
}

char key_character(const GdkEventKey* event) {
    return static_cast<char>(keyval_to_ascii(event->keyval) & 0xff);
}

gboolean gui_ps2_press_handler(GtkWidget* /*widget*/, GdkEventKey* event, gpointer /*data*/) {
    if (event->keyval == GDK_KEY_m && (event->state & GDK_CONTROL_MASK) != 0) {
        io_ps2_ctrlm();
    } else {
        io_ps2_press(key_character(event));
    }
    return FALSE;
}

gboolean gui_ps2_release_handler(GtkWidget* /*widget*/, GdkEventKey* event, gpointer /*data*/) {
    io_ps2_release(key_character(event));
    return FALSE;
}

gboolean gui_serial_press_handler(GtkWidget* /*widget*/, GdkEventKey* event, gpointer /*data*/) {
    io_serial_press(key_character(event));
    return FALSE;
}

// A double click comes as three presses, the last of them made up by the toolkit.
bool is_single_press(const GdkEventButton* event) { return event->type == GDK_BUTTON_PRESS; }

gboolean gui_mouse_press_handler(GtkWidget* /*widget*/, GdkEventButton* event, gpointer /*data*/) {
    if (is_single_press(event)) {
        io_mouse_press(static_cast<int>(event->button) - 1);
    }
    return FALSE;
}

gboolean gui_mouse_release_handler(GtkWidget* /*widget*/, GdkEventButton* event, gpointer /*data*/) {
    io_mouse_release(static_cast<int>(event->button) - 1);
    return FALSE;
}

gboolean gui_mouse_motion_handler(GtkWidget* /*widget*/, GdkEventMotion* event, gpointer /*data*/) {
    io_mouse_motion(static_cast<int>(event->x), static_cast<int>(event->y));
    return FALSE;
}

gboolean sig_vga_enter(GtkWidget* /*widget*/, GdkEventFocus* /*event*/, gpointer /*data*/) {
    if (machine.mouse_active == 0) {
        io_mouse_activate();
    }
    return FALSE;
}

gboolean sig_vga_leave(GtkWidget* /*widget*/, GdkEventFocus* /*event*/, gpointer /*data*/) {
    io_mouse_deactivate();
    return FALSE;
}

gboolean gui_sw_handler(GtkWidget* /*widget*/, GdkEventButton* event, gpointer number) {
    if (is_single_press(event)) {
        io_sw_toggle(GPOINTER_TO_INT(number));
    }
    return FALSE;
}

// A key that is held down comes as many presses, but turns a switch once.
bool space_is_down = false;

bool is_space(const GdkEventKey* event) {
    return event->keyval == GDK_KEY_space || event->keyval == GDK_KEY_KP_Space;
}

gboolean sig_sw_key_press(GtkWidget* /*widget*/, GdkEventKey* event, gpointer number) {
    if (!is_space(event) || (event->state & gtk_accelerator_get_default_mod_mask()) != 0) {
        return FALSE;
    }
    if (!space_is_down) {
        io_sw_toggle(GPOINTER_TO_INT(number));
    }
    space_is_down = true;
    return TRUE;
}

gboolean sig_sw_key_release(GtkWidget* /*widget*/, GdkEventKey* event, gpointer /*data*/) {
    if (is_space(event)) {
        space_is_down = false;
    }
    return FALSE;
}

gboolean sig_sw_leave(GtkWidget* /*widget*/, GdkEventFocus* /*event*/, gpointer /*data*/) {
    space_is_down = false;
    return FALSE;
}

} // namespace

void connect_switch(GtkWidget* sw, int i) {
    gtk_widget_set_can_focus(sw, TRUE);
    gtk_widget_add_events(sw, GDK_BUTTON_PRESS_MASK | GDK_KEY_PRESS_MASK | GDK_KEY_RELEASE_MASK |
                                  GDK_FOCUS_CHANGE_MASK);
    g_signal_connect(sw, "button_press_event", G_CALLBACK(gui_sw_handler), GINT_TO_POINTER(i));
    g_signal_connect(sw, "key_press_event", G_CALLBACK(sig_sw_key_press), GINT_TO_POINTER(i));
    g_signal_connect(sw, "key_release_event", G_CALLBACK(sig_sw_key_release), nullptr);
    g_signal_connect(sw, "focus_out_event", G_CALLBACK(sig_sw_leave), nullptr);
}

void connect_input(GtkWidget* vga_window, GtkWidget* area) {
    constexpr gint pointer = GDK_POINTER_MOTION_MASK | GDK_BUTTON_PRESS_MASK | GDK_BUTTON_RELEASE_MASK;
    gtk_widget_add_events(vga_window,
                          pointer | GDK_KEY_PRESS_MASK | GDK_KEY_RELEASE_MASK | GDK_FOCUS_CHANGE_MASK);
    // What the area gets goes on to the window. If only the window asked for it, a press would move the
    // pointer from the area to the window, and the toolkit would report the first motion after it as that
    // move.
    gtk_widget_add_events(area, pointer);
    g_signal_connect(vga_window, "key_press_event", G_CALLBACK(gui_ps2_press_handler), nullptr);
    g_signal_connect(vga_window, "key_release_event", G_CALLBACK(gui_ps2_release_handler), nullptr);
    g_signal_connect(vga_window, "button_press_event", G_CALLBACK(gui_mouse_press_handler), nullptr);
    g_signal_connect(vga_window, "button_release_event", G_CALLBACK(gui_mouse_release_handler), nullptr);
    g_signal_connect(vga_window, "motion_notify_event", G_CALLBACK(gui_mouse_motion_handler), nullptr);
    g_signal_connect(vga_window, "focus_in_event", G_CALLBACK(sig_vga_enter), nullptr);
    g_signal_connect(vga_window, "focus_out_event", G_CALLBACK(sig_vga_leave), nullptr);
}

void connect_serial_keys(GtkWidget* console) {
    gtk_widget_add_events(console, GDK_KEY_PRESS_MASK);
    g_signal_connect(console, "key_press_event", G_CALLBACK(gui_serial_press_handler), nullptr);
}
