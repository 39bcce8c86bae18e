#include "ui/gui_batch/stream.h"

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"

void begin_stream(stream_t& file) {
    if (file.descriptor < 0) {
        return;
    }
    if (is_standard_output(file.name)) {
        // Another place in the same file would write over the trace and the report.
        dup2(STDOUT_FILENO, file.descriptor);
    } else if (ftruncate(file.descriptor, 0) != 0 && errno != EINVAL) {
        // What is no regular file has no old content, and refuses.
        file.error = errno;
    }
}

void append_to_stream(stream_t& file, std::string_view text) {
    if (file.descriptor >= 0) {
        file.waiting += text;
    }
}

void flush_stream(stream_t& file) {
    if (file.descriptor >= 0 && file.error == 0) {
        file.error = write_all(file.descriptor, file.waiting);
    }
    file.waiting.clear();
}

bool has_beginning(const stream_t& file) {
    struct stat facts {};
    return file.descriptor >= 0 && !is_standard_output(file.name) && fstat(file.descriptor, &facts) == 0 &&
           S_ISREG(facts.st_mode);
}

void rewrite_beginning(stream_t& file, std::string_view text) {
    flush_stream(file);
    if (file.error == 0) {
        file.error = write_at(file.descriptor, text, 0);
    }
}

bool close_stream(stream_t& file) {
    flush_stream(file);
    if (file.descriptor >= 0 && close(std::exchange(file.descriptor, -1)) != 0 && file.error == 0) {
        file.error = errno;
    }
    if (file.error != 0) {
        std::cerr << "tovik-run: " << cant_write_text(file.name, file.error) << std::endl;
    }
    return file.error == 0;
}

bool is_standard_output(const std::string& name) {
    std::error_code no_output;
    return std::filesystem::equivalent(name, "/dev/stdout", no_output);
}
