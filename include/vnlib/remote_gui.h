/*
 * remote_gui.h - TCP connections carried over a PDU transport
 */
#ifndef VNLIB_REMOTE_GUI_H
#define VNLIB_REMOTE_GUI_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
