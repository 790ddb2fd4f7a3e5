// scanner_interface.cpp - the exported functions of the scanner; for now only what a head needs.
#include "vnlib/corelink_lex.h"

extern "C" int yylex_destroy(void *)
{
    return 0;
}
