// base64.cpp - see include/vnlib/base64.h
#include "vnlib/base64.h"
