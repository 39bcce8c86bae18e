#pragma once

#include <cstdint>

// What a client of the relay answers to its challenge, in wrapping arithmetic. It keeps programs that are no
// simulators out; it is no secret.
int32_t challenge_response(int32_t challenge);
