/*
 * tellog.h - the live log stream over TCP
 */
#ifndef VNLIB_TELLOG_H
#define VNLIB_TELLOG_H

#include <stdarg.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

struct vn_tellog;

VN_API struct vn_tellog *tellog_start(unsigned port);
VN_API int tellog_finish(struct vn_tellog *sink);
VN_API void vn_vtellog(struct vn_tellog *sink, int level, const char *format, va_list args)
    VN_PRINTF(3, 0);

VN_END_DECLS

#endif
