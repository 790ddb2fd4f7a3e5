// md5.cpp - see include/vnlib/md5.h
#include "vnlib/md5.h"
