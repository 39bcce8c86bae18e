#include "base/noise.h"

uint64_t noise_seed = 1;

uint64_t noise_at(uint64_t place) {
    uint64_t bits = noise_seed * 0x9e3779b97f4a7c15 + place * 0xd1342543de82ef95 + 0x9e3779b97f4a7c15;
    bits = (bits ^ bits >> 30) * 0xbf58476d1ce4e5b9;
    bits = (bits ^ bits >> 27) * 0x94d049bb133111eb;
    return bits ^ bits >> 31;
}
