#pragma once

// A copy of the machine record for comparing what two engines made of one start: all but the video memory and
// the camera's frame, megabytes that few programs change, and of the SDRAM its first page, where random
// programs mostly write.

#include <cstddef>
#include <deque>
#include <queue>
#include <string>
#include <vector>

#include "base/machine.h"

class record_t {
  public:
    // Copies the machine and the simulator's controls.
    void take();

    // Makes the machine and the controls what they were when this was taken; all 0 when it never was.
    void put_back() const;

    // Where the machine or the controls first differ from this; empty when they do not.
    [[nodiscard]] std::string difference() const;

  private:
    std::vector<std::vector<std::byte>> stretches_;
    std::deque<ps2_event_t> ps2_events_;
    std::vector<bool> ps2_pressed_;
    std::deque<sample_run_t> speaker_samples_;
    std::deque<int32_t> microphone_samples_;
    std::queue<uint8_t> serial_queue_;
};
