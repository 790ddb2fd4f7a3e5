/*
 * log.h - levelled logging to syslog, standard error and the live log stream
 */
#ifndef VNLIB_LOG_H
#define VNLIB_LOG_H

#include <stdarg.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_API void vn_log_init(const char *ident, unsigned level, int options, int facility,
                        unsigned tellog_port);
VN_API void vn_log_exit(void);
VN_API void vn_log_setlevel(unsigned level);
VN_API const char *log_level(unsigned level);
VN_API void __vn_log(int level, const char *format, ...) VN_PRINTF(2, 3);
VN_API int vn_logc(const char *format, ...) VN_PRINTF(1, 2);
VN_API void __vn_loghex_line(int level, const unsigned char *data, size_t length, unsigned width,
                             unsigned char flip);
VN_API void vn_errno(const char *format, ...) VN_PRINTF(1, 2);
VN_API void vn_gaierror(int code, const char *format, ...) VN_PRINTF(2, 3);

VN_END_DECLS

#endif
