// Dialogs. Each is modal, and gone when its function returns.

#include <string>

#include <gtk/gtk.h>

#include "ui/gui.h"
#include "ui/gui_gtk/text.h"

namespace {

// Selects the file if it exists; otherwise its folder, and its name to save under.
void preselect(GtkFileChooser* chooser, bool save, const std::string& filename) {
    if (!save || g_file_test(filename.c_str(), G_FILE_TEST_EXISTS) != FALSE) {
        gtk_file_chooser_set_filename(chooser, filename.c_str());
        return;
    }
    gchar* const folder = g_path_get_dirname(filename.c_str());
    gchar* const name = g_filename_display_basename(filename.c_str());
    gtk_file_chooser_set_current_folder(chooser, folder);
    gtk_file_chooser_set_current_name(chooser, name);
    g_free(name);
    g_free(folder);
}

} // namespace

void gui_message(std::string text, bool error) {
    GtkWidget* const dialog = gtk_message_dialog_new(nullptr, GTK_DIALOG_DESTROY_WITH_PARENT,
                                                     error ? GTK_MESSAGE_ERROR : GTK_MESSAGE_INFO,
                                                     GTK_BUTTONS_OK, "%s", show_text(text).c_str());
    gtk_dialog_run(GTK_DIALOG(dialog));
    gtk_widget_destroy(dialog);
}

bool gui_choosefile(bool save, std::string title, std::string /*filter_name*/, std::string extension,
                    std::string& filename) {
    GtkWidget* const dialog = gtk_file_chooser_dialog_new(
        title.c_str(), nullptr, save ? GTK_FILE_CHOOSER_ACTION_SAVE : GTK_FILE_CHOOSER_ACTION_OPEN,
        GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL, save ? GTK_STOCK_SAVE : GTK_STOCK_OPEN, GTK_RESPONSE_ACCEPT,
        nullptr);
    GtkFileChooser* const chooser = GTK_FILE_CHOOSER(dialog);
    gtk_file_chooser_set_do_overwrite_confirmation(chooser, TRUE);
    GtkFileFilter* const filter = gtk_file_filter_new();
    gtk_file_filter_add_pattern(filter, extension.empty() ? "*" : ("*." + extension).c_str());
    gtk_file_chooser_set_filter(chooser, filter);
    if (!filename.empty()) {
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
