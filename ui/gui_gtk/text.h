#pragma once

// Bytes on their way into the toolkit, which shows only valid UTF-8 and nothing after a NUL; and views of
// text.

#include <string>
#include <string_view>

#include <gtk/gtk.h>

// Each byte as the Latin-1 character of that number; NUL as character 127.
std::string show_bytes(std::string_view bytes);

// Valid UTF-8 as it is, any other byte as the Latin-1 character of that number; NUL as character 127.
std::string show_text(std::string_view text);

// A text of UTF-8 of more bytes than that keeps its beginning and its end, without cutting a character.
std::string shorten(const std::string& text, size_t most);

// Every NUL replaced by character 127.
std::string replace_null(std::string text);

// A text view in the fixed-width font of memory and console that the user can't write in, with the name
// that a screen reader tells, and a scrolled window of that size, in pixels, around one.
GtkWidget* new_text_view(const char* name);
GtkWidget* new_scrolled(GtkWidget* view, int width, int height);
