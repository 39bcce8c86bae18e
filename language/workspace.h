#pragma once

// The documents, the files of the workspace, and which program each of them belongs to.

#include <string>
#include <vector>

#include "language/server.h"

void open_document(server_t& server, const std::string& path, document_t document);
void close_document(server_t& server, const std::string& path);

// The text of a file, open or not, has changed, or the file has come or gone.
void text_changed(server_t& server, const std::string& path);

// Looks for the sources of all folders.
void scan_folders(server_t& server);

// Translates those programs of open documents that have changed. Returns the main files of those translated.
std::vector<std::string> translate_changed(server_t& server);

// The main file of a file's program: one that no other includes, and that includes it, directly or not; of
// several the one that was opened last. The file itself where there is none.
std::string main_of(const server_t& server, const std::string& path);

// The main files of all programs of the workspace that have the file.
std::vector<std::string> mains_of(const server_t& server, const std::string& path);

// The program of a file, which need not be open.
const project_t& program_of(server_t& server, const std::string& path);

// The program of a main file, translated now.
project_t translate_program(const server_t& server, const std::string& main);

// A file as it is now, with its path.
struct view_t {
    std::string path;
    text_t text;
};

// Throws request_error_t when it is neither open nor readable.
view_t view_of(const server_t& server, const std::string& path);

// All files of a program, each once.
struct file_view_t {
    const std::string& path;
    const text_t& text;
};
std::vector<file_view_t> views_of(const project_t& program);
