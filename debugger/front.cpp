#include "debugger/front.h"

front_t front;
