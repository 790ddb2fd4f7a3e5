// crc32c.cpp - see include/vnlib/crc32c.h
#include "vnlib/crc32c.h"
