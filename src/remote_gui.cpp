// remote_gui.cpp - see include/vnlib/remote_gui.h
#include "vnlib/remote_gui.h"
