#include "base/machine.h"

machine_t machine;
simulator_t simulator;
touched_t touched;
