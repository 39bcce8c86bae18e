// The memory window: ten words to a line, those written since the last refresh in red.
//
// The text has 208,080 characters. A refresh changes the fields of the words that differ; only when they are
// many is the whole text made anew.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <gtk/gtk.h>

#include "base/gui.h"
#include "base/machine.h"
#include "core/engine.h"
#include "ui/gui_gtk/text.h"
#include "ui/gui_gtk/tips.h"
#include "ui/gui_gtk/windows.h"

GtkTextBuffer* memory_buffer = nullptr;

namespace {

constexpr int32_t WORDS_PER_LINE = 10;
constexpr int32_t ADDRESS_WIDTH = 5;
constexpr int32_t FIELD_WIDTH = 11;

// Beyond so many changed fields setting the whole text is faster.
constexpr size_t MOST_CHANGES = 500;

constexpr int WINDOW_WIDTH = 1040;
constexpr int WINDOW_HEIGHT = 400;
constexpr int MARGIN = 4;

GtkTextTag* red = nullptr;

// What the text shows now.
int32_t shown_memory[MEMORY_SIZE];
bool shown = false;

// The column of a word's field: after the address, a space, and a space before each field.
constexpr int32_t column_of(int32_t address) {
    return ADDRESS_WIDTH + 1 + address % WORDS_PER_LINE * (FIELD_WIDTH + 1) + 1;
}

void append_right_aligned(std::string& text, int32_t value, int width) {
    char digits[FIELD_WIDTH + 1];
    std::snprintf(digits, sizeof digits, "%*d", width, value);
    text += digits;
}

std::string whole_text() {
    std::string text;
    for (int32_t address = 0; address < MEMORY_SIZE; ++address) {
        if (address % WORDS_PER_LINE == 0) {
            if (address != 0) {
                text += '\n';
            }
            append_right_aligned(text, address, ADDRESS_WIDTH);
            text += ' ';
        }
        text += ' ';
        append_right_aligned(text, machine.memory[address], FIELD_WIDTH);
    }
    return text;
}

struct field_t {
    GtkTextIter start;
    GtkTextIter end;
};

field_t field_of(int32_t address) {
    field_t field;
    const int32_t line = address / WORDS_PER_LINE;
    const int32_t column = column_of(address);
    gtk_text_buffer_get_iter_at_line_offset(memory_buffer, &field.start, line, column);
    field.end = field.start;
    gtk_text_iter_forward_chars(&field.end, FIELD_WIDTH);
    return field;
}

void rewrite_field(int32_t address) {
    std::string text;
    append_right_aligned(text, machine.memory[address], FIELD_WIDTH);
    field_t field = field_of(address);
    gtk_text_buffer_delete(memory_buffer, &field.start, &field.end);
    gtk_text_buffer_insert(memory_buffer, &field.start, text.data(), static_cast<gint>(text.size()));
}

std::vector<int32_t> take_modified() {
    std::vector<int32_t> addresses;
    for (int32_t address = 0; address < MEMORY_SIZE; ++address) {
        if (machine.modified[address]) {
            machine.modified[address] = false;
            addresses.push_back(address);
        }
    }
    if (!addresses.empty()) {
        forget_proofs();
    }
    return addresses;
}

// Only a marked word can differ, but memory is also cleared without marking: all are compared.
std::vector<int32_t> changed_words() {
    std::vector<int32_t> addresses;
    for (int32_t address = 0; address < MEMORY_SIZE; ++address) {
        if (machine.memory[address] != shown_memory[address]) {
            addresses.push_back(address);
        }
    }
    return addresses;
}

// What the pointer may be over: the address of a line, or a word with the spaces before it.
struct cell_t {
    int32_t line;
    int32_t column; // -1 is the address
};

cell_t cell_at(GtkTextView* view, int x, int y) {
    GtkTextIter iter;
    gtk_text_view_get_iter_at_position(view, &iter, nullptr, x, y);
    const gint offset = gtk_text_iter_get_line_offset(&iter) - ADDRESS_WIDTH - 1;
    return {gtk_text_iter_get_line(&iter), offset < 0 ? -1 : offset / (FIELD_WIDTH + 1)};
}

// Where a cell is, in the coordinates of the buffer.
GdkRectangle area_of(GtkTextView* view, const cell_t& cell) {
    const bool is_word = cell.column >= 0;
    GtkTextIter iter;
    GdkRectangle start;
    GdkRectangle end;
    gtk_text_buffer_get_iter_at_line_offset(gtk_text_view_get_buffer(view), &iter, cell.line,
                                            is_word ? column_of(cell.column) - 1 : 0);
    gtk_text_view_get_iter_location(view, &iter, &start);
    gtk_text_iter_forward_chars(&iter, is_word ? FIELD_WIDTH + 1 : ADDRESS_WIDTH + 1);
    gtk_text_view_get_iter_location(view, &iter, &end);
    return {start.x, start.y, end.x - start.x, start.height};
}

bool is_inside(const GdkRectangle& area, int x, int y) {
    return x >= area.x && x < area.x + area.width && y >= area.y && y < area.y + area.height;
}

gboolean query_memory_tip(GtkWidget* widget, gint x, gint y, gboolean by_keyboard, GtkTooltip* tooltip,
                          gpointer /*data*/) {
    std::string text = "columns: the address of the line + 0 to 9\nred: written since the last stop";
    if (by_keyboard != FALSE) { // there is no place then
        return show_tip(widget, tooltip, text);
    }
    GtkTextView* const view = GTK_TEXT_VIEW(widget);
    gtk_text_view_window_to_buffer_coords(view, GTK_TEXT_WINDOW_WIDGET, x, y, &x, &y);
    const cell_t cell = cell_at(view, x, y);
    GdkRectangle area = area_of(view, cell);
    if (!is_inside(area, x, y)) {
        return FALSE;
    }
    if (cell.column >= 0) {
        const int32_t first = cell.line * WORDS_PER_LINE;
        text = "address " + std::to_string(first + cell.column) + ": line " + std::to_string(first) +
               ", column " + std::to_string(cell.column) + "\n" + text;
    }
    gtk_text_view_buffer_to_window_coords(view, GTK_TEXT_WINDOW_WIDGET, area.x, area.y, &area.x, &area.y);
    gtk_tooltip_set_tip_area(tooltip, &area);
    return show_tip(widget, tooltip, text);
}

} // namespace

void print_memory() {
    if (memory_buffer == nullptr) {
        return;
    }
    if (red == nullptr) {
        red = gtk_text_buffer_create_tag(memory_buffer, nullptr, "foreground", "red", nullptr);
    }
    const std::vector<int32_t> modified = take_modified();
    const std::vector<int32_t> changed = changed_words();
    if (!shown || changed.size() > MOST_CHANGES) {
        const std::string text = whole_text();
        gtk_text_buffer_set_text(memory_buffer, text.data(), static_cast<gint>(text.size()));
        shown = true;
    } else {
        field_t all;
        gtk_text_buffer_get_bounds(memory_buffer, &all.start, &all.end);
        gtk_text_buffer_remove_tag(memory_buffer, red, &all.start, &all.end);
        std::ranges::for_each(changed, rewrite_field);
    }
    for (const int32_t address : modified) {
        const field_t field = field_of(address);
        gtk_text_buffer_apply_tag(memory_buffer, red, &field.start, &field.end);
    }
    std::ranges::copy(machine.memory, shown_memory);
}

void build_memory_window() {
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), "K24 memory");
    g_signal_connect(window, "destroy", G_CALLBACK(sig_destroy), &memory_buffer);
    // The view stands in the scrolled window itself: through a viewport its 24,600 pixels would come near to
    // the greatest height that a window can have.
    GtkWidget* const view = new_text_view("Memory");
    memory_buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(view));
    gtk_text_buffer_set_text(memory_buffer, "", 0);
    // Without a cursor the keys that would move it scroll at once.
    gtk_text_view_set_cursor_visible(GTK_TEXT_VIEW(view), FALSE);
    gtk_text_view_set_left_margin(GTK_TEXT_VIEW(view), MARGIN);
    gtk_text_view_set_right_margin(GTK_TEXT_VIEW(view), MARGIN);
    set_tip_handler(view, query_memory_tip);
    gtk_container_add(GTK_CONTAINER(window), new_scrolled(view, WINDOW_WIDTH, WINDOW_HEIGHT));
    gtk_widget_show_all(window);
}
