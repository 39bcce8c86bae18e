// Dialogs. Each is modal, and gone when its function returns.

#include <string>

#include <gtk/gtk.h>

#include "base/gui.h"
#include "ui/gui_gtk/text.h"
#include "ui/gui_gtk/windows.h"

namespace {

// More than anyone reads; the toolkit needs minutes for the megabytes that a source may have on one line.
constexpr size_t LONGEST_MESSAGE = 4000;

constexpr const char* TITLE = "tovik";
constexpr guint QUESTION_BORDER = 10; // pixels

// Selects the file if it exists; otherwise its folder, and its name to save under. Of a name that the
// chooser's field could not give back, since it is not UTF-8, only the folder.
void preselect(GtkFileChooser* chooser, bool save, const std::string& filename) {
    const bool is_utf8 = g_utf8_validate(filename.c_str(), -1, nullptr) != FALSE;
    if (is_utf8 && (!save || g_file_test(filename.c_str(), G_FILE_TEST_EXISTS) != FALSE)) {
        gtk_file_chooser_set_filename(chooser, filename.c_str());
        return;
    }
    gchar* const folder = g_path_get_dirname(filename.c_str());
    gtk_file_chooser_set_current_folder(chooser, folder);
    g_free(folder);
    if (save && is_utf8) {
        gchar* const name = g_path_get_basename(filename.c_str());
        gtk_file_chooser_set_current_name(chooser, name);
        g_free(name);
    }
}

// A path is one word, and may be wider than the screen. A hyphen where it is broken would look like a part of
// it.
void break_long_words(GtkMessageDialog* dialog) {
    GList* const labels =
        gtk_container_get_children(GTK_CONTAINER(gtk_message_dialog_get_message_area(dialog)));
    PangoAttrList* const attributes = pango_attr_list_new();
    pango_attr_list_insert(attributes, pango_attr_insert_hyphens_new(FALSE));
    for (const GList* item = labels; item != nullptr; item = item->next) {
        gtk_label_set_line_wrap_mode(GTK_LABEL(item->data), PANGO_WRAP_WORD_CHAR);
        gtk_label_set_attributes(GTK_LABEL(item->data), attributes);
    }
    pango_attr_list_unref(attributes);
    g_list_free(labels);
}

} // namespace

void gui_message(std::string text, bool error) {
    flush_display();
    GtkWidget* const dialog = gtk_message_dialog_new(
        nullptr, GTK_DIALOG_DESTROY_WITH_PARENT, error ? GTK_MESSAGE_ERROR : GTK_MESSAGE_INFO, GTK_BUTTONS_OK,
        "%s", shorten(show_text(text), LONGEST_MESSAGE).c_str());
    gtk_window_set_title(GTK_WINDOW(dialog), TITLE);
    break_long_words(GTK_MESSAGE_DIALOG(dialog));
    gtk_dialog_run(GTK_DIALOG(dialog));
    gtk_widget_destroy(dialog);
}

bool gui_choosefile(bool save, std::string title, std::string /*filter_name*/, std::string extension,
                    std::string& filename) {
    flush_display();
    GtkWidget* const dialog = gtk_file_chooser_dialog_new(
        title.c_str(), nullptr, save ? GTK_FILE_CHOOSER_ACTION_SAVE : GTK_FILE_CHOOSER_ACTION_OPEN,
        GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL, save ? GTK_STOCK_SAVE : GTK_STOCK_OPEN, GTK_RESPONSE_ACCEPT,
        nullptr);
    GtkFileChooser* const chooser = GTK_FILE_CHOOSER(dialog);
    gtk_file_chooser_set_do_overwrite_confirmation(chooser, TRUE);
    GtkFileFilter* const filter = gtk_file_filter_new();
    gtk_file_filter_add_pattern(filter, extension.empty() ? "*" : ("*." + extension).c_str());
    gtk_file_chooser_set_filter(chooser, filter);
    if (filename.empty()) {
        // Otherwise the toolkit may begin with the files used last, where a name alone cannot be saved.
        gchar* const folder = g_get_current_dir();
        gtk_file_chooser_set_current_folder(chooser, folder);
        g_free(folder);
    } else {
        preselect(chooser, save, filename);
    }

    bool accepted = gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_ACCEPT;
    if (gchar* const chosen = accepted ? gtk_file_chooser_get_filename(chooser) : nullptr) {
        filename = chosen;
        g_free(chosen);
    } else {
        accepted = false;
    }
    gtk_widget_destroy(dialog);
    return accepted;
}

std::string gui_gettext(std::string prompt, int max_length) {
    flush_display();
    GtkWidget* const dialog = gtk_dialog_new();
    gtk_window_set_title(GTK_WINDOW(dialog), TITLE);
    gtk_container_set_border_width(GTK_CONTAINER(dialog), QUESTION_BORDER);
    GtkWidget* const entry = gtk_entry_new();
    set_name(entry, prompt);
    gtk_entry_set_max_length(GTK_ENTRY(entry), max_length);
    gtk_entry_set_activates_default(GTK_ENTRY(entry), TRUE);
    gtk_container_add(GTK_CONTAINER(gtk_dialog_get_content_area(GTK_DIALOG(dialog))),
                      gtk_label_new(prompt.c_str()));
    gtk_container_add(GTK_CONTAINER(gtk_dialog_get_action_area(GTK_DIALOG(dialog))), entry);
    gtk_dialog_add_button(GTK_DIALOG(dialog), GTK_STOCK_OK, GTK_RESPONSE_ACCEPT);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_ACCEPT);
    gtk_widget_show_all(dialog);
    gtk_widget_grab_focus(entry);
    gtk_dialog_run(GTK_DIALOG(dialog));
    std::string text = gtk_entry_get_text(GTK_ENTRY(entry));
    gtk_widget_destroy(dialog);
    return text;
}
