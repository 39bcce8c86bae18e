#pragma once

// What the registers of the devices hold, without what reading them does.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What a register holds: of a command or a parameter what was last written, of a response what a read would
// give now, of a result what it would give once the response is 1. None for an offset without a register.
[[nodiscard]] std::optional<int32_t> peek_register(int32_t offset);

// The name of a register in expressions, for example "keyboard.response", "SD_card.word_to_write", "timer".
[[nodiscard]] std::string register_name(int32_t offset);

// The offset of the register of such a name, in any case of letters.
[[nodiscard]] std::optional<int32_t> find_register_name(std::string_view name);
