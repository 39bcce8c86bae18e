#include "base/challenge.h"

#include "base/arithmetic.h"

namespace {

constexpr int32_t SHARED_CONSTANT = 10714194; // known to the relay too

} // namespace

int32_t challenge_response(int32_t challenge) {
    return wrap_add(wrap_mult(challenge, challenge), SHARED_CONSTANT);
}
