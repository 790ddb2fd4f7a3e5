// log.cpp - levelled logging; for now to syslog and standard error only.
#include "vnlib/log.h"

#include <cstdio>

extern "C" void __vn_log(int, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
}
