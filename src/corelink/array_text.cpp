// array_text.cpp - adding elements to the text of an array, as callers compose values.
//
//     [  1  ]                   [  1  ,              [  1  ,  2  ]
//           ^ the bracket that closes becomes a comma, then the element and a bracket follow
//
// In a caller's buffer of fixed size the bracket takes the place of the terminator, so the buffer
// must be zero beyond the text; and an element that does not fit leaves the text open.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "vnlib/corelink.h"
#include "vnlib/vnstrings.h"

namespace {

// Makes room for one more element at the end of the text; false when the text is no array.
bool reopen(char *text)
{
    const size_t length = std::strlen(text);
    if (length == 0 || text[length - 1] != ']') return false;
    const bool was_empty = length > 1 && text[length - 2] == '[';
    text[length - 1] = was_empty ? '\0' : ',';
    return true;
}

int append_growing(char **text, const char *format, va_list args)
{
    if (vn_vaasprintf(text, format, args) < 0) return -1;
    return vn_aasprintf(text, "]") < 0 ? -1 : 0;
}

int append_fixed(char *text, size_t capacity, const char *format, va_list args)
{
    va_list again;
    va_copy(again, args);
    const int measured = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (measured < 0) return -1;
    const size_t used = std::strlen(text), length = static_cast<size_t>(measured);
    if (capacity < used + length + 2) return -1;
    std::vsnprintf(text + used, length + 1, format, args);
    text[used + length] = ']';
    return 0;
}

} // namespace

extern "C" int cl_cat_array_element(char **text, size_t capacity, const char *format, ...)
{
    if (text == nullptr || *text == nullptr || format == nullptr || !reopen(*text)) return -1;
    va_list args;
    va_start(args, format);
    const int result = capacity == 0 ? append_growing(text, format, args)
                                     : append_fixed(*text, capacity, format, args);
    va_end(args);
    return result;
}
