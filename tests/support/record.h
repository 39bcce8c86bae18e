#pragma once

// A copy of the machine record, without the SDRAM array, for comparing what two engines made of one start.

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "core/machine.h"

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
    std::deque<ps2_event_t> ps2_events_;
    std::vector<bool> ps2_pressed_;
    std::deque<int32_t> speaker_samples_;
    std::deque<int32_t> microphone_samples_;
};
