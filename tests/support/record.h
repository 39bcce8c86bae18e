#pragma once

// A copy of the machine record for comparing what two engines made of one start: all but the video memory and
// the camera's frame, megabytes that few programs change, and of the SDRAM its first page, where random
// programs mostly write.

#include <cstddef>
#include <deque>
#include <queue>
#include <string>
#include <tuple>
#include <vector>

#include "base/machine.h"

using containers_t = std::tuple<std::deque<ps2_event_t>, std::vector<bool>, std::deque<sample_run_t>,
                                std::deque<int32_t>, std::queue<uint8_t>>;

class record_t {
  public:
    // Copies the machine and the simulator's controls.
    void take();

    // Makes the machine and the controls what they were when this was taken.
    void put_back() const;

    // Where the machine or the controls first differ from this; empty when they do not.
    [[nodiscard]] std::string difference() const;

  private:
    std::vector<std::vector<std::byte>> stretches_;
    containers_t containers_;
};

// Fills the same part of the machine, and the controls, with one byte, and empties its containers.
void fill_record(int byte);
