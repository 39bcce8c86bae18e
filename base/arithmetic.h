#pragma once

// The processor's arithmetic on 32-bit two's-complement words. Everything wraps; nothing here is undefined
// for any operands that the comments allow. Inline, because the interpreter's inner loop is made of these.

#include <cstdint>

constexpr int32_t wrap_add(int32_t left, int32_t right) {
    return static_cast<int32_t>(static_cast<uint32_t>(left) + static_cast<uint32_t>(right));
}

constexpr int32_t wrap_sub(int32_t left, int32_t right) {
    return static_cast<int32_t>(static_cast<uint32_t>(left) - static_cast<uint32_t>(right));
}

// The low 32 bits of the product.
constexpr int32_t wrap_mult(int32_t left, int32_t right) {
    return static_cast<int32_t>(static_cast<uint32_t>(left) * static_cast<uint32_t>(right));
}

// |value|, which for -2147483648 is 2147483648.
constexpr uint32_t magnitude(int32_t value) {
    const uint32_t bits = static_cast<uint32_t>(value);
    return value < 0 ? 0U - bits : bits;
}

// Truncates toward zero; -2147483648 / -1 wraps to -2147483648. The divisor must not be 0.
constexpr int32_t wrap_div(int32_t dividend, int32_t divisor) {
    const uint32_t quotient = magnitude(dividend) / magnitude(divisor);
    const bool negative = (dividend < 0) != (divisor < 0);
    return static_cast<int32_t>(negative ? 0U - quotient : quotient);
}

// The amount must be 0 to 31.
constexpr int32_t shift_left(int32_t value, int32_t amount) {
    return static_cast<int32_t>(static_cast<uint32_t>(value) << amount);
}

// Zeros enter at the top. The amount must be 0 to 31.
constexpr int32_t shift_right(int32_t value, int32_t amount) {
    return static_cast<int32_t>(static_cast<uint32_t>(value) >> amount);
}
