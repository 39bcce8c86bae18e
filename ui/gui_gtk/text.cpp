#include "ui/gui_gtk/text.h"

#include <algorithm>

#include "ui/gui_gtk/windows.h"

namespace {

constexpr char NULL_SHOWN_AS = 127;

void append_latin1(std::string& shown, char byte) {
    const auto code = static_cast<unsigned char>(byte);
    if (code < 0x80) {
        shown += byte;
    } else {
        shown += static_cast<char>(0xc0 | code >> 6);
        shown += static_cast<char>(0x80 | (code & 0x3f));
    }
}

} // namespace

std::string replace_null(std::string text) {
    std::ranges::replace(text, '\0', NULL_SHOWN_AS);
    return text;
}

std::string show_bytes(std::string_view bytes) {
    std::string shown;
    for (const char byte : replace_null(std::string(bytes))) {
        append_latin1(shown, byte);
    }
    return shown;
}

std::string show_text(std::string_view text) {
    const std::string bytes = replace_null(std::string(text));
    std::string shown;
    const char* rest = bytes.data();
    const char* const end = bytes.data() + bytes.size();
    while (rest != end) {
        const char* valid_end = rest;
        g_utf8_validate(rest, end - rest, &valid_end);
        shown.append(rest, valid_end);
        rest = valid_end;
        if (rest != end) {
            append_latin1(shown, *rest++);
        }
    }
    return shown;
}

std::string shorten(const std::string& text, size_t most) {
    const auto is_inside_character = [&text](size_t at) {
        return (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80;
    };
    if (text.size() <= most) {
        return text;
    }
    size_t beginning = most / 2;
    size_t end = text.size() - most / 2;
    while (is_inside_character(beginning)) {
        --beginning;
    }
    while (is_inside_character(end)) {
        ++end;
    }
    return text.substr(0, beginning) + "\n[...]\n" + text.substr(end);
}

GtkWidget* new_text_view(const char* name) {
    GtkWidget* const view = gtk_text_view_new();
    set_name(view, name);
    gtk_text_view_set_editable(GTK_TEXT_VIEW(view), FALSE);
    PangoFontDescription* const font = pango_font_description_from_string("courier,10");
    gtk_widget_modify_font(view, font);
    pango_font_description_free(font);
    return view;
}

GtkWidget* new_scrolled(GtkWidget* view, int width, int height) {
    GtkWidget* const scrolled = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_widget_set_size_request(scrolled, width, height);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_AUTOMATIC, GTK_POLICY_AUTOMATIC);
    gtk_container_add(GTK_CONTAINER(scrolled), view);
    return scrolled;
}
