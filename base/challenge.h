#pragma once

// What the relay of the virtual serial cable asks its clients. It keeps programs that are no simulators out;
// it is no secret.

#include "base/arithmetic.h"

// What a client answers.
constexpr int32_t challenge_response(int32_t challenge) {
    constexpr int32_t SHARED_CONSTANT = 10714194;
    return wrap_add(wrap_mult(challenge, challenge), SHARED_CONSTANT);
}
