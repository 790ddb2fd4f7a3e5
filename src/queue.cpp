// queue.cpp - see include/vnlib/queue.h
#include "vnlib/queue.h"
