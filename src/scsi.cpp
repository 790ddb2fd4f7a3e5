// scsi.cpp - see include/vnlib/scsi.h
#include "vnlib/scsi.h"
