#pragma once

// The file of --events: what the board shows, sends and plays, one JSON object a line.

#include <cstdint>
#include <optional>

#include "ui/gui_batch/stream.h"

// The run begins, with the board as it is. Without a file nothing is told, and nothing costs anything.
// `keep_sound`: the recording of the speaker is for somebody else, too. `display_events`: only the first ones
// of displays and lamps are told.
void begin_events(stream_t file, bool keep_sound, std::optional<uint64_t> display_events);

// The lamps or displays may have changed.
void note_lamps();

// At a look at the window: writes what is certain by now. Returns false when the file takes no more.
bool write_events();

// The run is over. Returns whether all could be written; if not, standard error says so.
[[nodiscard]] bool end_events();
