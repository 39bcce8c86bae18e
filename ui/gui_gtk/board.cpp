// The board's visible outputs: lamps and switches in the main window, and the VGA window.

#include <algorithm>
#include <bitset>
#include <cassert>
#include <cstddef>
#include <string>

#include <gtk/gtk.h>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/ledswitchtimer.h"
#include "devices/vga.h"
#include "ui/gui_gtk/tips.h"
#include "ui/gui_gtk/windows.h"
#include "ui/screen.h"

GtkWidget* vga_draw = nullptr;

namespace {

constexpr int LAMP_SIZE = 10;
// A rectangle's outline reaches one pixel beyond the filled one.
constexpr int OUTLINE_SIZE = LAMP_SIZE + 1;
constexpr int FOCUS_SIZE = OUTLINE_SIZE + 2;
constexpr guint16 LAMP_GREY = 0x6d60;

GtkWidget* sw_draw[SWITCHES];
GtkWidget* led_red_draw[RED_LEDS];
GtkWidget* led_green_draw[GREEN_LEDS];

// All lamps have one expose handler; their numbers tell them apart: red LEDs, then green ones, then switches.
constexpr int FIRST_GREEN = RED_LEDS;
constexpr int FIRST_SWITCH = FIRST_GREEN + GREEN_LEDS;
constexpr int FIRST_SWITCH_NUMBER = 34;
static_assert(FIRST_SWITCH <= FIRST_SWITCH_NUMBER);

struct bank_t {
    int first;
    const char* kind; // of one of them, in words for whoever cannot see it
    const int32_t& bits;
};

constexpr bank_t RED = {0, "red lamp", machine.led_red};
constexpr bank_t GREEN = {FIRST_GREEN, "green lamp", machine.led_green};
constexpr bank_t SWITCH = {FIRST_SWITCH_NUMBER, "switch", machine.sw};

// What changed since the display was last flushed.
std::bitset<SWITCHES> changed_switches;
std::bitset<RED_LEDS> changed_red_leds;
std::bitset<GREEN_LEDS> changed_green_leds;

GdkPixmap* vga_pixmap = nullptr;
// On its way into the pixmap. Of the usual layout it holds the picture itself, in memory shared with a
// display server on this computer.
GdkImage* vga_image = nullptr;
GdkCursor* active_cursor = nullptr;

const bank_t& bank_of(int number) {
    return number < FIRST_GREEN ? RED : number < FIRST_SWITCH_NUMBER ? GREEN : SWITCH;
}

bool is_lit(const bank_t& bank, int i) { return (bank.bits >> i & 1) != 0; }

GdkGC* lamp_gc(GtkWidget* lamp) {
    static GdkGC* gc = nullptr;
    if (gc == nullptr) {
        gc = gdk_gc_new(gtk_widget_get_window(lamp));
        const GdkColor grey = {0, LAMP_GREY, LAMP_GREY, LAMP_GREY};
        gdk_gc_set_rgb_fg_color(gc, &grey);
    }
    return gc;
}

gboolean led_sw_expose(GtkWidget* lamp, GdkEventExpose* event, gpointer number) {
    const bank_t& bank = bank_of(GPOINTER_TO_INT(number));
    const gboolean filled = is_lit(bank, GPOINTER_TO_INT(number) - bank.first) ? TRUE : FALSE;
    GdkWindow* const window = gtk_widget_get_window(lamp);
    gdk_draw_rectangle(window, lamp_gc(lamp), filled, 1, 1, LAMP_SIZE, LAMP_SIZE);
    if (gtk_widget_has_focus(lamp) != FALSE) {
        gtk_paint_focus(gtk_widget_get_style(lamp), window, gtk_widget_get_state(lamp), &event->area, lamp,
                        nullptr, 0, 0, FOCUS_SIZE, FOCUS_SIZE);
    }
    return FALSE;
}

void describe(GtkWidget* lamp, const bank_t& bank, int i) {
    const std::string text = bank.kind + (" " + std::to_string(i)) + (is_lit(bank, i) ? " is on" : " is off");
    atk_object_set_description(gtk_widget_get_accessible(lamp), text.c_str());
}

// The name with the state of now.
gboolean query_lamp_tip(GtkWidget* lamp, gint /*x*/, gint /*y*/, gboolean /*by_keyboard*/,
                        GtkTooltip* tooltip, gpointer number) {
    const bank_t& bank = bank_of(GPOINTER_TO_INT(number));
    const bool lit = is_lit(bank, GPOINTER_TO_INT(number) - bank.first);
    const std::string name = atk_object_get_name(gtk_widget_get_accessible(lamp));
    return show_tip(lamp, tooltip, name + (lit ? ": on" : ": off"));
}

GtkWidget* new_lamp(const bank_t& bank, int i, AtkRole role) {
    GtkWidget* const lamp = gtk_drawing_area_new();
    gtk_widget_set_size_request(lamp, LAMP_SIZE, LAMP_SIZE);
    g_signal_connect(lamp, "expose_event", G_CALLBACK(led_sw_expose), GINT_TO_POINTER(bank.first + i));
    atk_object_set_role(gtk_widget_get_accessible(lamp), role);
    describe(lamp, bank, i);
    set_tip_handler(lamp, query_lamp_tip, GINT_TO_POINTER(bank.first + i));
    return lamp;
}

template <size_t count>
void flush_lamps(const bank_t& bank, std::bitset<count>& changed, GtkWidget* const (&lamps)[count]) {
    for (size_t i = 0; i < count && changed.any(); ++i) {
        if (changed[i]) {
            gtk_widget_queue_draw_area(lamps[i], 1, 1, OUTLINE_SIZE, OUTLINE_SIZE);
            describe(lamps[i], bank, static_cast<int>(i));
            refresh_tip(lamps[i]);
        }
    }
    changed.reset();
}

// The context for painting on the screen, in a colour.
GdkGC* set_gc(int color) {
    static GdkGC* gc = nullptr;
    // The text is known so.
    // clang-format off
    assert(color <= ( (1 << (5 + 5 + 5)) - 1 ));
    // clang-format on
    if (gc == nullptr) {
        gc = gdk_gc_new(gtk_widget_get_window(vga_draw));
    }
    const GdkColor rgb = {0, widen_channel(color >> 10 & 0x1f), widen_channel(color >> 5 & 0x1f),
                          widen_channel(color & 0x1f)};
    gdk_gc_set_rgb_fg_color(gc, &rgb);
    return gc;
}

bool is_true_color(const GdkImage* image) {
    return image->bits_per_pixel == 32 &&
           image->byte_order == (G_BYTE_ORDER == G_LITTLE_ENDIAN ? GDK_LSB_FIRST : GDK_MSB_FIRST) &&
           image->visual->red_mask == 0xff0000 && image->visual->green_mask == 0x00ff00 &&
           image->visual->blue_mask == 0x0000ff;
}

// Into an image of another layout: the toolkit converts.
void copy_rgb(const box_t& area, int width, int height) {
    static guchar pixels[VGA_HEIGHT][VGA_WIDTH][3];
    for (int32_t y = area.y1; y <= area.y2; ++y) {
        for (int32_t x = area.x1; x <= area.x2; ++x) {
            const uint32_t color = machine.vga_picture[y][x];
            pixels[y][x][0] = static_cast<guchar>(color >> 16);
            pixels[y][x][1] = static_cast<guchar>(color >> 8 & 0xff);
            pixels[y][x][2] = static_cast<guchar>(color & 0xff);
        }
    }
    gdk_draw_rgb_image(vga_pixmap, set_gc(0), area.x1, area.y1, width, height, GDK_RGB_DITHER_NONE,
                       pixels[area.y1][area.x1], sizeof pixels[0]);
}

uint32_t* image_row(int32_t y) {
    return reinterpret_cast<uint32_t*>(static_cast<std::byte*>(vga_image->mem) + y * vga_image->bpl);
}

void copy_area(const box_t& area) {
    const int width = area.x2 - area.x1 + 1;
    const int height = area.y2 - area.y1 + 1;
    if (is_true_color(vga_image)) {
        for (int32_t y = area.y1; y <= area.y2; ++y) {
            const uint32_t* const row = machine.vga_picture[y];
            std::copy(row + area.x1, row + area.x2 + 1, image_row(y) + area.x1);
        }
        gdk_draw_image(vga_pixmap, set_gc(0), vga_image, area.x1, area.y1, area.x1, area.y1, width, height);
    } else {
        copy_rgb(area, width, height);
    }
    gtk_widget_queue_draw_area(vga_draw, area.x1, area.y1, width, height);
}

void fill_box(const colored_box_t& fill) {
    const auto& [box, color] = fill;
    const int width = box.x2 - box.x1 + 1;
    const int height = box.y2 - box.y1 + 1;
    if (width == 1 && height == 1) {
        gdk_draw_point(vga_pixmap, set_gc(color), box.x1, box.y1);
    } else {
        gdk_draw_rectangle(vga_pixmap, set_gc(color), TRUE, box.x1, box.y1, width, height);
    }
    gtk_widget_queue_draw_area(vga_draw, box.x1, box.y1, width, height);
}

void flush_screen() {
    const screen_changes_t changes = take_screen_changes();
    if (vga_draw == nullptr) {
        return;
    }
    if (changes.copy) {
        copy_area(changes.area);
    }
    for (const colored_box_t& fill : changes.fills) {
        fill_box(fill);
    }
}

gboolean vga_expose(GtkWidget* widget, GdkEventExpose* event, gpointer /*data*/) {
    const GdkRectangle& area = event->area;
    gdk_draw_drawable(gtk_widget_get_window(widget),
                      gtk_widget_get_style(widget)->fg_gc[gtk_widget_get_state(widget)], vga_pixmap, area.x,
                      area.y, area.x, area.y, area.width, area.height);
    return FALSE;
}

} // namespace

GtkWidget* new_red_led(int i) { return led_red_draw[i] = new_lamp(RED, i, ATK_ROLE_IMAGE); }

GtkWidget* new_green_led(int i) { return led_green_draw[i] = new_lamp(GREEN, i, ATK_ROLE_IMAGE); }

GtkWidget* new_switch(int i) {
    GtkWidget* const lamp = new_lamp(SWITCH, i, ATK_ROLE_TOGGLE_BUTTON);
    connect_switch(lamp, i);
    return sw_draw[i] = lamp;
}

void build_vga_window() {
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), "VGA");
    gtk_window_set_resizable(GTK_WINDOW(window), FALSE);
    g_signal_connect(window, "destroy", G_CALLBACK(sig_destroy), &vga_draw);
    vga_draw = gtk_drawing_area_new();
    gtk_widget_set_size_request(vga_draw, VGA_WIDTH, VGA_HEIGHT);
    // Every expose covers its whole area with the pixmap: a background and a second buffer would only cost.
    gtk_widget_set_app_paintable(vga_draw, TRUE);
    gtk_widget_set_double_buffered(vga_draw, FALSE);
    connect_input(window, vga_draw);
    set_name(vga_draw, "VGA screen");
    g_signal_connect(vga_draw, "expose_event", G_CALLBACK(vga_expose), nullptr);
    active_cursor = gdk_cursor_new(GDK_STAR);
    gtk_container_add(GTK_CONTAINER(window), vga_draw);
    gtk_widget_show_all(window);
    vga_pixmap = gdk_pixmap_new(gtk_widget_get_window(vga_draw), VGA_WIDTH, VGA_HEIGHT, -1);
    vga_image = gdk_image_new(GDK_IMAGE_FASTEST, gtk_widget_get_visual(vga_draw), VGA_WIDTH, VGA_HEIGHT);
}

void flush_board() {
    flush_lamps(SWITCH, changed_switches, sw_draw);
    flush_lamps(RED, changed_red_leds, led_red_draw);
    flush_lamps(GREEN, changed_green_leds, led_green_draw);
    flush_screen();
}

// The texts of the assertions are known so.
// clang-format off
void gui_sw_draw(int i) {
    assert(i<18);
    changed_switches.set(static_cast<size_t>(i));
}

void gui_led_red_draw(int i) {
    assert(i<18);
    changed_red_leds.set(static_cast<size_t>(i));
}

void gui_led_green_draw(int i) {
    assert(i<8);
    changed_green_leds.set(static_cast<size_t>(i));
}
// clang-format on

void gui_vga_cursor(bool active) {
    if (vga_draw != nullptr) {
        gdk_window_set_cursor(gtk_widget_get_window(vga_draw), active ? active_cursor : nullptr);
    }
}
