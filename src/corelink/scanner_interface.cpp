// scanner_interface.cpp - the exported scanner functions around the generated ones.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "corelink/attempt.h"
#include "corelink/scanner.h"
#include "vnlib/corelink_lex.h"

#define YYSTYPE clparse_lex_value
#include "corelink/generated_scanner.h"

namespace vn::corelink {

namespace {

// The initial-exec model keeps the dynamic loader out of the library's needs.
constinit thread_local Attempt *current __attribute__((tls_model("initial-exec"))) = nullptr;

[[noreturn]] void leave()
{
    longjmp(current->way_out, 1); // NOLINT(cert-err52-cpp)
}

// For the calls that make a buffer.
template <typename Call>
yy_buffer_state *attempt_buffer(void *scanner, Call call)
{
    yy_buffer_state *made = nullptr;
    return attempt(scanner, [&] { made = call(); }) ? made : nullptr;
}

constexpr size_t kEndMarks = 2; // the NUL bytes behind a text that is scanned in place
constexpr int kMaxText = INT_MAX - static_cast<int>(kEndMarks);

// Releases what a failed call has allocated, except what it had handed to the scanner before.
void release_made(const Attempt &failed, void *scanner)
{
    for (unsigned i = 0; i < failed.count; ++i)
        if (!scanner_keeps(scanner, failed.made[i])) free(failed.made[i]);
}

} // namespace

bool attempt_as(Attempt &here, void *scanner, void (*call)(void *context), void *context)
{
    if (setjmp(here.way_out) == 0) { // NOLINT(cert-err52-cpp)
        current = &here;
        call(context);
        current = nullptr;
        return true;
    }
    current = nullptr;
    release_made(here, scanner);
    return false;
}

void scanner_failed(const char *message)
{
    fprintf(stderr, "%s\n", message);
    leave();
}

int next_token(clparse_lex_value &value, void *scanner)
{
    return corelink_scan_lex(&value, scanner);
}

} // namespace vn::corelink

using namespace vn::corelink;

// The generated scanner's memory. Zero-filled: it does not set every field of a buffer.
void *corelink_scan_alloc(size_t size, void *)
{
    void *const block = calloc(1, size);
    if (current == nullptr) return block;
    if (block == nullptr) leave();
    current->made[current->count++] = block;
    return block;
}

void *corelink_scan_realloc(void *old, size_t size, void *)
{
    void *const block = realloc(old, size);
    if (block != nullptr || current == nullptr) return block;
    current->not_grown = old;
    leave();
}

void corelink_scan_free(void *block, void *)
{
    free(block);
}

extern "C" {

int yylex(union clparse_lex_value *value, void *scanner)
{
    if (value == nullptr || scanner == nullptr || lost_its_buffers(scanner)) return 0;
    int token = 0;
    const bool done = attempt(
        scanner, [&] { token = corelink_scan_lex(value, scanner); },
        [&](const Attempt &failed) { empty_scanner(scanner, failed.not_grown); });
    return done ? token : 0;
}

int yylex_init(void **scanner)
{
    return corelink_scan_lex_init(scanner);
}

int yylex_init_extra(void *extra, void **scanner)
{
    return corelink_scan_lex_init_extra(extra, scanner);
}

int yylex_destroy(void *scanner)
{
    if (scanner == nullptr) return 0;
    while (has_buffer(scanner)) corelink_scan_pop_buffer_state(scanner); // it sees to the top only
    return corelink_scan_lex_destroy(scanner);
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
    if (bytes == nullptr || length < 0 || length > kMaxText) return nullptr;
    return attempt_buffer(scanner,
                          [&] { return corelink_scan__scan_bytes(bytes, length, scanner); });
}

struct yy_buffer_state *yy_scan_buffer(char *base, size_t size, void *scanner)
{
    if (base == nullptr || size > INT_MAX) return nullptr;
    return attempt_buffer(scanner, [&] { return corelink_scan__scan_buffer(base, size, scanner); });
}

struct yy_buffer_state *yy_create_buffer(FILE *file, int size, void *scanner)
{
    const int first = std::clamp(size, 1, kMaxText); // a buffer of 0 bytes would never grow
    return attempt_buffer(scanner,
                          [&] { return corelink_scan__create_buffer(file, first, scanner); });
}

void yy_delete_buffer(struct yy_buffer_state *buffer, void *scanner)
{
    if (scanner != nullptr) corelink_scan__delete_buffer(buffer, scanner);
}

void yy_flush_buffer(struct yy_buffer_state *buffer, void *scanner)
{
    if (scanner != nullptr) corelink_scan__flush_buffer(buffer, scanner);
}

void yy_switch_to_buffer(struct yy_buffer_state *buffer, void *scanner)
{
    if (buffer == nullptr) return;
    attempt(scanner, [&] { corelink_scan__switch_to_buffer(buffer, scanner); });
}

void yypush_buffer_state(struct yy_buffer_state *buffer, void *scanner)
{
    attempt(scanner, [&] { corelink_scan_push_buffer_state(buffer, scanner); });
}

void yypop_buffer_state(void *scanner)
{
    if (scanner != nullptr) corelink_scan_pop_buffer_state(scanner);
}

void yyrestart(FILE *file, void *scanner)
{
    attempt(scanner, [&] { corelink_scan_restart(file, scanner); });
}

void yyset_lineno(int line, void *scanner)
{
    attempt(scanner, [&] { corelink_scan_set_lineno(line, scanner); });
}

void yyset_column(int column, void *scanner)
{
    attempt(scanner, [&] { corelink_scan_set_column(column, scanner); });
}

// The scanner's other fields are only handed through. (A type cannot stand in parentheses.)
// NOLINTBEGIN(bugprone-macro-parentheses)
#define VN_GET(type, field)                                                                        \
    type yyget_##field(void *scanner)                                                              \
    {                                                                                              \
        return scanner == nullptr ? type{} : corelink_scan_get_##field(scanner);                   \
    }
#define VN_SET(type, field)                                                                        \
    void yyset_##field(type value, void *scanner)                                                  \
    {                                                                                              \
        if (scanner != nullptr) corelink_scan_set_##field(value, scanner);                         \
    }
// NOLINTEND(bugprone-macro-parentheses)

using Pointer = void *;
using Stream = FILE *;
using Text = char *;
using Value = union clparse_lex_value *;

VN_GET(Pointer, extra)
VN_GET(int, lineno)
VN_GET(int, column)
VN_GET(Stream, in)
VN_GET(Stream, out)
VN_GET(Text, text)
VN_GET(int, leng)
VN_GET(int, debug)
VN_GET(Value, lval)
VN_SET(Pointer, extra)
VN_SET(Stream, in)
VN_SET(Stream, out)
VN_SET(int, debug)
VN_SET(Value, lval)

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
