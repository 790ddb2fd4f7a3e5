// bits.cpp - see include/vnlib/bits.h
#include "vnlib/bits.h"
