// scanner_interface.cpp - the exported scanner functions, and the buffers that the rules read from.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "corelink/scanner.h"

namespace vn::corelink {

namespace {

constexpr int kFirstCapacity = 16384; // of the buffer that a scanner makes itself
constexpr size_t kEndMarks = 2;       // the NUL bytes behind a text that is scanned in place
constexpr int kMaxText = INT_MAX - static_cast<int>(kEndMarks);

Scanner *scanner_of(void *scanner)
{
    return static_cast<Scanner *>(scanner);
}

void complain(const char *line)
{
    fputs(line, stderr);
}

// Leaves nothing to read.
void empty(yy_buffer_state &buffer)
{
    buffer.cursor = buffer.end = buffer.text;
    *buffer.end = '\0';
    buffer.at_end = false;
}

void read_from(yy_buffer_state &buffer, char *text, size_t length)
{
    buffer.text = buffer.cursor = text;
    buffer.end = text + length;
    buffer.capacity = length;
}

// A buffer of its own text; null without memory.
yy_buffer_state *new_buffer(size_t capacity)
{
    auto *const buffer = static_cast<yy_buffer_state *>(calloc(1, sizeof(yy_buffer_state)));
    auto *const text = static_cast<char *>(malloc(capacity + 1));
    if (buffer == nullptr || text == nullptr) {
        free(text);
        free(buffer);
        return nullptr;
    }
    read_from(*buffer, text, capacity);
    *buffer->end = '\0';
    buffer->owned = true;
    return buffer;
}

yy_buffer_state *new_stream_buffer(FILE *file, size_t capacity)
{
    yy_buffer_state *const buffer = new_buffer(capacity);
    if (buffer == nullptr) return nullptr;
    empty(*buffer);
    buffer->file = file;
    buffer->reads_on = true;
    buffer->line = 1;
    return buffer;
}

void release(yy_buffer_state *buffer)
{
    if (buffer->owned) free(buffer->text);
    free(buffer);
}

// Takes up what the current buffer says.
void take_up(Scanner &scanner)
{
    scanner.marked = nullptr;
    scanner.had_buffer = true;
    scanner.token = scanner.current->cursor;
    scanner.in = scanner.current->file;
}

void switch_to(Scanner &scanner, yy_buffer_state &buffer)
{
    if (scanner.marked != nullptr) remove_mark(scanner);
    scanner.current = &buffer;
    take_up(scanner);
}

// The current buffer is no more.
void forget(Scanner &scanner)
{
    scanner.current = nullptr;
    scanner.marked = scanner.token = nullptr;
}

// The current buffer, made if there is none; null without memory.
yy_buffer_state *own_buffer(Scanner &scanner)
{
    if (scanner.current == nullptr) scanner.current = new_stream_buffer(scanner.in, kFirstCapacity);
    return scanner.current;
}

bool grow(yy_buffer_state &buffer)
{
    const size_t capacity = std::min(buffer.capacity * 2 + 1, size_t{kMaxText});
    const bool may_grow = buffer.owned && capacity > buffer.capacity;
    if (!may_grow) {
        complain("fatal error - scanner input buffer overflow\n");
        buffer.reads_on = false;
        return false;
    }
    auto *const text = static_cast<char *>(realloc(buffer.text, capacity + 1));
    if (text == nullptr) return false;
    buffer.text = text;
    buffer.capacity = capacity;
    return true;
}

// The number of bytes read: 0 at the end, and where there is no stream; -1 after an error. Through
// stdio: the program may have read a part of the stream already, and not every stream has a
// descriptor.
ssize_t read_piece(FILE *stream, char *place, size_t size)
{
    if (stream == nullptr) return 0;
    for (;;) {
        errno = 0;
        const size_t got = fread(place, 1, size, stream);
        if (got > 0 || !ferror(stream)) return static_cast<ssize_t>(got);
        if (errno != EINTR) {
            complain("input in flex scanner failed\n");
            return -1;
        }
        clearerr(stream);
    }
}

Filled failed(yy_buffer_state &buffer)
{
    empty(buffer);
    return Filled::kFailed;
}

} // namespace

bool begin(Scanner &scanner)
{
    if (scanner.in == nullptr) scanner.in = stdin;
    if (scanner.out == nullptr) scanner.out = stdout;
    if (scanner.current == nullptr && scanner.had_buffer) return false;
    if (own_buffer(scanner) == nullptr) return false;
    take_up(scanner);
    scanner.begun = true;
    return true;
}

void remove_mark(Scanner &scanner)
{
    *scanner.marked = scanner.held;
    scanner.marked = nullptr;
}

Filled fill(Scanner &scanner, size_t length)
{
    yy_buffer_state &buffer = *scanner.current;
    if (!buffer.reads_on) return Filled::kNothing;
    if (buffer.at_end) {
        buffer.at_end = length > 0; // the next call tries again
        return Filled::kNothing;
    }
    buffer.file = scanner.in;
    memmove(buffer.text, buffer.cursor, length);
    if (length == buffer.capacity && !grow(buffer)) return failed(buffer);
    // As much as there is room for: each read moves what there is of the token, so small reads into
    // the middle of a long string would take quadratic time.
    const ssize_t got = read_piece(scanner.in, buffer.text + length, buffer.capacity - length);
    if (got < 0) return failed(buffer);
    buffer.cursor = buffer.text;
    buffer.end = buffer.text + length + got;
    *buffer.end = '\0';
    buffer.at_end = got == 0 && length > 0;
    return got > 0 ? Filled::kMore : Filled::kNothing;
}

InPlace::InPlace(Scanner &scanner, const char *text) : scanner_(scanner)
{
    read_from(buffer_, const_cast<char *>(text), strlen(text)); // nobody asks for a token's text
    switch_to(scanner, buffer_);
}

InPlace::~InPlace()
{
    forget(scanner_);
}

} // namespace vn::corelink

using namespace vn::corelink;

extern "C" {

int yylex(union clparse_lex_value *value, void *scanner)
{
    if (value == nullptr || scanner == nullptr) return 0;
    scanner_of(scanner)->lval = value;
    return next_token(*scanner_of(scanner), *value);
}

int yylex_init(void **scanner)
{
    return yylex_init_extra(nullptr, scanner);
}

int yylex_init_extra(void *extra, void **scanner)
{
    if (scanner == nullptr) {
        errno = EINVAL;
        return 1;
    }
    auto *const made = static_cast<Scanner *>(calloc(1, sizeof(Scanner)));
    *scanner = made;
    if (made == nullptr) return 1;
    made->extra = extra;
    return 0;
}

int yylex_destroy(void *scanner)
{
    if (scanner == nullptr) return 0;
    if (yy_buffer_state *const current = scanner_of(scanner)->current) release(current);
    yy_buffer_state *next = scanner_of(scanner)->pushed_down;
    while (next != nullptr) release(std::exchange(next, next->below));
    free(scanner);
    return 0;
}

struct yy_buffer_state *yy_scan_string(const char *text, void *scanner)
{
    if (text == nullptr) return nullptr;
    const size_t length = strlen(text);
    if (length > size_t{kMaxText}) return nullptr;
    return yy_scan_bytes(text, static_cast<int>(length), scanner);
}

struct yy_buffer_state *yy_scan_bytes(const char *bytes, int length, void *scanner)
{
    if (scanner == nullptr || bytes == nullptr || length < 0 || length > kMaxText) return nullptr;
    yy_buffer_state *const buffer = new_buffer(static_cast<size_t>(length));
    if (buffer == nullptr) return nullptr;
    memcpy(buffer->text, bytes, buffer->capacity);
    switch_to(*scanner_of(scanner), *buffer);
    return buffer;
}

struct yy_buffer_state *yy_scan_buffer(char *base, size_t size, void *scanner)
{
    if (scanner == nullptr || base == nullptr || size < kEndMarks || size > INT_MAX) return nullptr;
    const size_t length = size - kEndMarks;
    if (base[length] != '\0' || base[length + 1] != '\0') return nullptr;
    auto *const buffer = static_cast<yy_buffer_state *>(calloc(1, sizeof(yy_buffer_state)));
    if (buffer == nullptr) return nullptr;
    read_from(*buffer, base, length);
    switch_to(*scanner_of(scanner), *buffer);
    return buffer;
}

struct yy_buffer_state *yy_create_buffer(FILE *file, int size, void *scanner)
{
    if (scanner == nullptr) return nullptr;
    const int first = std::clamp(size, 1, kMaxText); // a buffer of 0 bytes would never grow
    return new_stream_buffer(file, static_cast<size_t>(first));
}

void yy_delete_buffer(struct yy_buffer_state *buffer, void *scanner)
{
    if (scanner == nullptr || buffer == nullptr) return;
    if (scanner_of(scanner)->current == buffer) forget(*scanner_of(scanner));
    release(buffer);
}

void yy_flush_buffer(struct yy_buffer_state *buffer, void *scanner)
{
    if (scanner == nullptr || buffer == nullptr) return;
    empty(*buffer);
    if (scanner_of(scanner)->current == buffer) take_up(*scanner_of(scanner));
}

void yy_switch_to_buffer(struct yy_buffer_state *buffer, void *scanner)
{
    if (scanner == nullptr || buffer == nullptr) return;
    if (scanner_of(scanner)->current != buffer) switch_to(*scanner_of(scanner), *buffer);
}

void yypush_buffer_state(struct yy_buffer_state *buffer, void *scanner)
{
    if (scanner == nullptr || buffer == nullptr) return;
    Scanner &above = *scanner_of(scanner);
    if (above.current != nullptr) {
        above.current->below = above.pushed_down;
        above.pushed_down = above.current;
    }
    switch_to(above, *buffer);
}

void yypop_buffer_state(void *scanner)
{
    if (scanner == nullptr || scanner_of(scanner)->current == nullptr) return;
    Scanner &above = *scanner_of(scanner);
    yy_delete_buffer(above.current, scanner);
    yy_buffer_state *const below = above.pushed_down;
    if (below == nullptr) return;
    above.pushed_down = below->below;
    switch_to(above, *below);
}

void yyrestart(FILE *file, void *scanner)
{
    if (scanner == nullptr) return;
    yy_buffer_state *const buffer = own_buffer(*scanner_of(scanner));
    if (buffer == nullptr) return;
    empty(*buffer);
    buffer->file = file;
    buffer->reads_on = true;
    take_up(*scanner_of(scanner));
}

// Numbers that are kept with the current buffer.
#define VN_BUFFER_FIELD(name, field)                                                               \
    int yyget_##name(void *scanner)                                                                \
    {                                                                                              \
        if (scanner == nullptr || scanner_of(scanner)->current == nullptr) return 0;               \
        return scanner_of(scanner)->current->field;                                                \
    }                                                                                              \
    void yyset_##name(int value, void *scanner)                                                    \
    {                                                                                              \
        if (scanner == nullptr) return;                                                            \
        if (scanner_of(scanner)->current == nullptr)                                               \
            complain("yyset_" #name " called with no buffer\n");                                   \
        else                                                                                       \
            scanner_of(scanner)->current->field = value;                                           \
    }
VN_BUFFER_FIELD(lineno, line)
VN_BUFFER_FIELD(column, column)

// The scanner's other fields are only handed through. (A type cannot stand in parentheses.)
// NOLINTBEGIN(bugprone-macro-parentheses)
#define VN_GET(type, field)                                                                        \
    type yyget_##field(void *scanner)                                                              \
    {                                                                                              \
        return scanner == nullptr ? type{} : scanner_of(scanner)->field;                           \
    }
#define VN_SET(type, field)                                                                        \
    void yyset_##field(type value, void *scanner)                                                  \
    {                                                                                              \
        if (scanner != nullptr) scanner_of(scanner)->field = value;                                \
    }
// NOLINTEND(bugprone-macro-parentheses)

using Pointer = void *;
using Stream = FILE *;
using Value = union clparse_lex_value *;

VN_GET(Pointer, extra)
VN_GET(Stream, in)
VN_GET(Stream, out)
VN_GET(int, debug)
VN_GET(Value, lval)
VN_SET(Pointer, extra)
VN_SET(Stream, in)
VN_SET(Stream, out)
VN_SET(int, debug)
VN_SET(Value, lval)

char *yyget_text(void *scanner)
{
    if (scanner == nullptr) return nullptr;
    Scanner &of = *scanner_of(scanner);
    if (of.marked == nullptr && of.current != nullptr && of.token != of.current->cursor) {
        of.marked = of.token + of.length;
        of.held = std::exchange(*of.marked, '\0');
    }
    return of.token;
}

int yyget_leng(void *scanner)
{
    return scanner == nullptr ? 0 : static_cast<int>(scanner_of(scanner)->length);
}

void *yyalloc(size_t size, void *)
{
    return malloc(size);
}

void *yyrealloc(void *ptr, size_t size, void *)
{
    return realloc(ptr, size);
}

void yyfree(void *ptr, void *)
{
    free(ptr);
}
}
