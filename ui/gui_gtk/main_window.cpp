// The control window: buttons, entries, labels, and the table of lamps and switches.

#include <cstdlib>
#include <string>

#include <gdk/gdkkeysyms.h>
#include <gtk/gtk.h>

#include "assembler/source.h"
#include "base/gui.h"
#include "base/machine.h"
#include "core/debug.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/ledswitchtimer.h"
#include "devices/sdram.h"
#include "devices/vga.h"
#include "ui/gui_gtk/text.h"
#include "ui/gui_gtk/tips.h"
#include "ui/gui_gtk/windows.h"

namespace {

constexpr int ENTRY_WIDTH_CHARACTERS = 4;
constexpr guint BOARD_PADDING = 10;

// A label that is set often and shown when the window is looked at.
struct shown_label_t {
    GtkWidget* widget;
    std::string text;
    bool changed;
};

shown_label_t status_label;
shown_label_t time_label;
shown_label_t pc_text;
shown_label_t hex74_text;
shown_label_t hex30_text;
shown_label_t lcd_text;

GtkWidget* assemble_file_button;
GtkWidget* runstop_button;
GtkWidget* steps_text;
GtkWidget* breakpoint_text;
GtkWidget* watchpoint_text;
GtkWidget* camera_button;
GtkWidget* microphone_button;

// The bytes of the file's name, which the button may have to show in another way.
std::string assemble_file;

void set_label(shown_label_t& label, std::string text) {
    label.text = std::move(text);
    label.changed = true;
}

void flush_label(shown_label_t& label, std::string (*shown)(std::string_view)) {
    if (label.changed) {
        label.changed = false;
        const std::string text = shown(label.text);
        if (text != gtk_label_get_text(GTK_LABEL(label.widget))) {
            gtk_label_set_text(GTK_LABEL(label.widget), text.c_str());
            refresh_tip(label.widget);
        }
    }
}

GtkWidget* new_shown_label(shown_label_t& label, const char* name, const char* text = "") {
    label.widget = gtk_label_new(text);
    set_name(label.widget, name);
    return label.widget;
}

GtkWidget* new_entry(const char* name, const char* tip) {
    GtkWidget* const entry = gtk_entry_new();
    gtk_entry_set_width_chars(GTK_ENTRY(entry), ENTRY_WIDTH_CHARACTERS);
    set_name(entry, name);
    set_tip(entry, tip);
    return entry;
}

GtkWidget* new_label(const char* text, const char* tip) {
    GtkWidget* const label = gtk_label_new(text);
    set_tip(label, tip);
    return label;
}

// Nothing may be thrown through the toolkit. Reset looks at the serial line, which can fail for good.
void run_command(gpointer command) {
    try {
        reinterpret_cast<void (*)()>(command)();
    } catch (const host_failure_t&) {
        std::exit(1);
    }
}

void connect_command(GtkWidget* button, void (*command)()) {
    // The toolkit passes the button and the user data, which commands do not take.
    g_signal_connect_swapped(button, "clicked", G_CALLBACK(run_command), reinterpret_cast<gpointer>(command));
}

GtkWidget* add_button(GtkWidget* row, const char* label, gboolean expand, void (*command)()) {
    GtkWidget* const button = gtk_button_new_with_label(label);
    gtk_box_pack_start(GTK_BOX(row), button, expand, TRUE, 0);
    connect_command(button, command);
    return button;
}

GtkWidget* add_check_button(GtkWidget* row, const char* label, void (*command)()) {
    GtkWidget* const button = gtk_check_button_new_with_label(label);
    gtk_box_pack_start(GTK_BOX(row), button, FALSE, FALSE, 0);
    connect_command(button, command);
    return button;
}

// To set the box counts as a click for the toolkit, but it is no command of the user's.
void set_check_button(GtkWidget* button, bool active) {
    g_signal_handlers_block_matched(button, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr,
                                    reinterpret_cast<gpointer>(run_command), nullptr);
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(button), active ? TRUE : FALSE);
    g_signal_handlers_unblock_matched(button, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr,
                                      reinterpret_cast<gpointer>(run_command), nullptr);
}

// A name that is too long for the button is whole in the tip; a shorter one explains itself.
gboolean query_file_tip(GtkWidget* button, gint /*x*/, gint /*y*/, gboolean /*by_keyboard*/,
                        GtkTooltip* tooltip, gpointer /*data*/) {
    GtkLabel* const label = GTK_LABEL(gtk_bin_get_child(GTK_BIN(button)));
    if (gtk_grab_get_current() != nullptr ||
        pango_layout_is_ellipsized(gtk_label_get_layout(label)) == FALSE) {
        return FALSE;
    }
    return show_tip(button, tooltip, gtk_label_get_text(label));
}

GtkWidget* assemble_row() {
    GtkWidget* const row = gtk_hbox_new(FALSE, 0);
    add_button(row, "Assemble", FALSE, debug_assemble);
    assemble_file_button = add_button(row, "", TRUE, debug_assemble_choose);
    set_tip_handler(assemble_file_button, query_file_tip);
    gui_assemble_file_set("Choose assembly file");
    // Its name is what it shows, soon the name of a file.
    atk_object_set_description(gtk_widget_get_accessible(assemble_file_button), "Choose assembly file");
    return row;
}

GtkWidget* command_row() {
    GtkWidget* const row = gtk_hbox_new(FALSE, 0);
    add_button(row, "Load", TRUE, debug_load);
    runstop_button = add_button(row, "Run ", TRUE, debug_runstop);
    add_button(row, "Reset", TRUE, reset_machine);
    set_tip(add_button(row, "Save speaker", TRUE, save_speaker),
            "Saves what the speaker has played, and forgets it.");
    set_tip(add_button(row, "Save SDRAM", TRUE, save_sdram), "Saves the whole SDRAM in a file.");
    set_tip(add_button(row, "Save VGA", TRUE, save_vga), "Saves the whole video memory in a file.");
    return row;
}

// What is too long for the label is whole in the tip.
gboolean query_pc_tip(GtkWidget* label, gint /*x*/, gint /*y*/, gboolean /*by_keyboard*/, GtkTooltip* tooltip,
                      gpointer /*data*/) {
    const std::string pc = gtk_label_get_text(GTK_LABEL(label));
    return show_tip(label, tooltip,
                    (pc.empty() ? "PC" : pc) + ": the address of the next instruction of a stopped program.");
}

GtkWidget* new_pc_label() {
    GtkWidget* const label = new_shown_label(pc_text, "PC");
    gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
    set_tip_handler(label, query_pc_tip);
    return label;
}

GtkWidget* run_row() {
    constexpr const char* steps = "Run stops after this number of instructions; empty: no limit.";
    constexpr const char* breakpoint = "Run stops before the instruction at this address; empty: none.";
    constexpr const char* watchpoint =
        "Run stops after an instruction that writes to this address; empty: none.";
    GtkWidget* const row = gtk_hbox_new(TRUE, 0);
    GtkBox* const box = GTK_BOX(row);
    steps_text = new_entry("Steps", steps);
    breakpoint_text = new_entry("Break", breakpoint);
    watchpoint_text = new_entry("Watch", watchpoint);
    gtk_box_pack_start(box, new_label("Steps", steps), FALSE, FALSE, 0);
    gtk_box_pack_start(box, steps_text, TRUE, TRUE, 0);
    gtk_box_pack_start(box, new_label("   Break", breakpoint), TRUE, TRUE, 0);
    gtk_box_pack_start(box, breakpoint_text, TRUE, TRUE, 0);
    gtk_box_pack_start(box, new_label("   Watch", watchpoint), TRUE, TRUE, 0);
    gtk_box_pack_start(box, watchpoint_text, TRUE, TRUE, 0);
    camera_button = add_check_button(row, "Camera", debug_camera);
    set_tip(camera_button, "Checked: pictures come from the camera; otherwise from files.");
    microphone_button = add_check_button(row, "Mic", debug_microphone);
    set_tip(microphone_button, "Checked: sound comes from the microphone; otherwise from files.");
    gtk_box_pack_end(box, new_shown_label(time_label, "Time"), TRUE, TRUE, 0);
    set_tip(time_label.widget, "The seconds of the board's time since Reset or Load.");
    gtk_box_pack_end(box, new_shown_label(status_label, "Status"), TRUE, TRUE, 0);
    gtk_box_pack_start(box, new_pc_label(), TRUE, TRUE, 0);
    return row;
}

// Some monospace fonts join letters into ligatures, which would break the columns.
void use_monospace_font(GtkWidget* label) {
    PangoFontDescription* const font = pango_font_description_from_string("courier");
    gtk_widget_modify_font(label, font);
    pango_font_description_free(font);
    PangoAttrList* const attributes = pango_attr_list_new();
    pango_attr_list_insert(attributes, pango_attr_font_features_new("liga=0"));
    gtk_label_set_attributes(GTK_LABEL(label), attributes);
    pango_attr_list_unref(attributes);
}

GtkWidget* display_row() {
    GtkWidget* const row = gtk_hbox_new(FALSE, 0);
    const auto add = [row](const char* text, GtkWidget* display, const char* tip) {
        set_tip(display, tip);
        for (GtkWidget* const widget : {new_label(text, tip), display}) {
            gtk_box_pack_start(GTK_BOX(row), widget, FALSE, TRUE, BOARD_PADDING);
        }
    };
    add("HEX7-HEX4", new_shown_label(hex74_text, "HEX7-HEX4 digits"), "The left four hexadecimal digits.");
    add("HEX3-HEX0", new_shown_label(hex30_text, "HEX3-HEX0 digits"), "The right four hexadecimal digits.");
    add("LCD", new_shown_label(lcd_text, "LCD text", "\n"), "The text display: two lines of 16 characters.");
    use_monospace_font(lcd_text.widget);
    return row;
}

// Over the lamps, which are drawn at the left of their cells.
GtkWidget* new_column_label(const std::string& text) {
    GtkWidget* const label = gtk_label_new(text.c_str());
    gtk_misc_set_alignment(GTK_MISC(label), 0, 0.5);
    return label;
}

GtkWidget* lamp_table() {
    constexpr guint rows = 4;
    constexpr guint columns = 17; // and grows by what is attached
    GtkWidget* const table = gtk_table_new(rows, columns, FALSE);
    const auto attach = [table](GtkWidget* widget, guint column, guint row) {
        gtk_table_attach_defaults(GTK_TABLE(table), widget, column, column + 1, row, row + 1);
    };
    attach(gtk_label_new("LED_GREEN"), 0, 1);
    attach(gtk_label_new("LED_RED"), 0, 2);
    attach(gtk_label_new("SW"), 0, 3);
    for (int i = 0; i < SWITCHES; ++i) {
        const auto column = static_cast<guint>(SWITCHES - i);
        const std::string number = std::to_string(i);
        attach(new_column_label(number + "      "), column, 0);
        if (i < GREEN_LEDS) {
            GtkWidget* const led = new_green_led(i);
            set_name(led, "LED_GREEN " + number);
            attach(led, column, 1);
        }
        GtkWidget* const led = new_red_led(i);
        set_name(led, "LED_RED " + number);
        attach(led, column, 2);
        GtkWidget* const sw = new_switch(i);
        set_name(sw, "SW " + number);
        attach(sw, column, 3);
    }
    return table;
}

// Control+Q ends the program; the other modifiers do not matter.
gboolean sig_debug_key(GtkWidget* /*widget*/, GdkEventKey* event, gpointer /*data*/) {
    if (event->keyval == GDK_KEY_q && (event->state & GDK_CONTROL_MASK) != 0) {
        std::exit(0);
    }
    return FALSE;
}

std::string entry_text(GtkWidget* entry) { return gtk_entry_get_text(GTK_ENTRY(entry)); }

void set_entry_text(GtkWidget* entry, const std::string& text) {
    gtk_entry_set_text(GTK_ENTRY(entry), text.c_str());
}

} // namespace

void set_name(GtkWidget* widget, const std::string& name) {
    atk_object_set_name(gtk_widget_get_accessible(widget), name.c_str());
}

void build_main_window() {
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), "tovik");
    gtk_window_set_resizable(GTK_WINDOW(window), FALSE);
    g_signal_connect(window, "destroy", G_CALLBACK(sig_destroy), nullptr);
    g_signal_connect(window, "key_press_event", G_CALLBACK(sig_debug_key), nullptr);
    GtkWidget* const rows = gtk_vbox_new(FALSE, 0);
    for (GtkWidget* const row : {assemble_row(), command_row(), run_row(), display_row(), lamp_table()}) {
        gtk_container_add(GTK_CONTAINER(rows), row);
    }
    gtk_container_add(GTK_CONTAINER(window), rows);
    gtk_widget_show_all(window);
}

void choose_initial_file(int argc, char** argv) {
    if (argc < 2) {
        return;
    }
    std::string name = argv[1];
    if (!pathname_is_absolute(name)) {
        const char* const folder = std::getenv("PWD");
        name = folder == nullptr ? "" : folder + ("/" + name);
    }
    if (name.ends_with(".k")) {
        gui_assemble_file_set(name);
    }
}

void flush_labels() {
    for (shown_label_t* const label : {&status_label, &time_label, &pc_text, &hex74_text, &hex30_text}) {
        flush_label(*label, show_text);
    }
    flush_label(lcd_text, show_bytes);
}

std::string gui_assemble_file_get() { return assemble_file; }

void gui_assemble_file_set(std::string text) {
    gtk_button_set_label(GTK_BUTTON(assemble_file_button), show_text(text).c_str());
    // Of a long path the end, in the room that the window has.
    GtkWidget* const label = gtk_bin_get_child(GTK_BIN(assemble_file_button));
    gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_START);
    assemble_file = std::move(text);
}

void gui_runstop_set(std::string text) { gtk_button_set_label(GTK_BUTTON(runstop_button), text.c_str()); }

void gui_status_set(std::string text) { set_label(status_label, std::move(text)); }

void gui_pc_set(std::string text) { set_label(pc_text, std::move(text)); }

void gui_time_set(std::string text) { set_label(time_label, std::move(text)); }

void gui_lcd_set(std::string text) { set_label(lcd_text, std::move(text)); }

void gui_hex74_set(std::string text) { set_label(hex74_text, std::move(text)); }

void gui_hex30_set(std::string text) { set_label(hex30_text, std::move(text)); }

std::string gui_steps_get() { return entry_text(steps_text); }

void gui_steps_set(std::string text) { set_entry_text(steps_text, text); }

std::string gui_breakpoint_get() { return entry_text(breakpoint_text); }

void gui_breakpoint_set(std::string text) { set_entry_text(breakpoint_text, text); }

std::string gui_watchpoint_get() { return entry_text(watchpoint_text); }

void gui_watchpoint_set(std::string text) { set_entry_text(watchpoint_text, text); }

bool gui_camera_get() { return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(camera_button)) == 1; }

void gui_camera_set(bool on) { set_check_button(camera_button, on); }

bool gui_mic_get() { return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(microphone_button)) == 1; }

void gui_mic_set(bool on) { set_check_button(microphone_button, on); }
