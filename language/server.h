#pragma once

// The language server: messages in, messages out. It has no input, output, threads or clocks of its own; what
// it reads of files comes through functions that the program around it gives.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "assembler/analyse.h"
#include "language/text.h"

using nlohmann::json;

// The names of the sources, ".k", in a folder and in those below it.
using list_files_t = std::function<std::vector<std::string>(const std::string& folder)>;

struct document_t {
    std::string uri; // as the client writes it
    text_t text;
    int64_t version = 0;
    uint64_t opened = 0; // when, among the others
    std::string main{};  // the path of its program's main file
};

struct project_t {
    analysis_t analysis;
    std::vector<std::string> paths; // by the index of the file in the source map, like the texts
    std::vector<text_t> texts;
    std::vector<uint32_t> contents; // of each statement the first from there on that makes words, or NOTHING
    bool part = false;              // a piece of a program that the workspace does not have
};

enum class stage_e : uint8_t { STARTED, RUNNING, SHUT_DOWN };

// What the client says that it can do.
struct client_t {
    encoding_e encoding = encoding_e::UTF16;
    bool snippets = false;
    bool markdown = false;
    bool nested_symbols = false;
    bool watches = false; // tells of changes on the disk when it is asked to
};

struct server_t {
    read_file_t read; // texts of files that are not open
    list_files_t list;
    std::string version{}; // of tovik
    stage_e stage = stage_e::STARTED;
    std::optional<int> exit_status{}; // once the process is to end
    client_t client{};
    std::vector<std::string> folders{};            // paths of the workspace's folders
    std::map<std::string, document_t> documents{}; // open ones by path
    // What each file that has been looked at includes, by paths.
    std::map<std::string, std::vector<std::string>> includes{};
    std::map<std::string, project_t> programs{}; // those of the open documents, by their main files' paths
    std::map<std::string, project_t> visitors{}; // at most one, of a file that is not open
    // Diagnostics that the client has and that are not none; null for those of open files, which it gets
    // again at each change.
    std::map<std::string, json> published{};
    std::map<std::string, std::string> owners{}; // by path: the main file of the program that they came from
    uint64_t opened = 0;
};

// Takes one message of the client and returns those for it in the order in which they are to be sent.
std::vector<json> answer(server_t& server, const json& message);

// The same on texts. One that is not JSON is answered too.
std::vector<std::string> answer_text(server_t& server, std::string_view message);
