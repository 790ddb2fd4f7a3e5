// sax.cpp - see include/vnlib/sax.h
#include "vnlib/sax.h"
