// The memory window: ten words to a line, those written since the last refresh in red.
//
// The text has 208,080 characters. A refresh changes the fields of the words that differ; only when they are
// many is the whole text made anew.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <gtk/gtk.h>

#include "core/engine.h"
#include "core/machine.h"
#include "ui/gui.h"
#include "ui/gui_gtk/text.h"
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
    gtk_container_add(GTK_CONTAINER(window), new_scrolled(view, WINDOW_WIDTH, WINDOW_HEIGHT));
    gtk_widget_show_all(window);
}
