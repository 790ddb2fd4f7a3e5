// base32.cpp - see include/vnlib/base32.h
#include "vnlib/base32.h"
