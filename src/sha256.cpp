// sha256.cpp - see include/vnlib/sha256.h
#include "vnlib/sha256.h"
