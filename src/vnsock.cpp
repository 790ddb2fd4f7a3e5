// vnsock.cpp - see include/vnlib/vnsock.h
#include "vnlib/vnsock.h"
