// sha1.cpp - see include/vnlib/sha1.h
#include "vnlib/sha1.h"
