/*
 * scsi.h - texts of SCSI codes
 */
#ifndef VNLIB_SCSI_H
#define VNLIB_SCSI_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
