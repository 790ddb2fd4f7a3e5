// scanner.h - a scanner and its buffers, as the rules (scanner.l) and the exported calls around
// them (scanner_interface.cpp) share them.
//
//     text           cursor         end
//     | read before  | to be read   |NUL
//
// Whoever asks for the last token's text finds a NUL behind it; the character that stood there
// comes back before anything else happens to the buffer. Unless somebody asks, nothing is ever
// written to a text that is scanned in place.
#pragma once

#include <cstddef>
#include <cstdio>

#include "vnlib/corelink_lex.h"

struct yy_buffer_state {
    char *text;
    size_t capacity; // without the NUL
    char *cursor;
    char *end;
    FILE *file;             // what is read from while the buffer is the current one
    yy_buffer_state *below; // of a buffer that is pushed down: the next one
    int line, column;       // the program's
    bool owned;             // the text may grow
    bool reads_on;          // from a stream, when the end is reached
    bool at_end;            // the stream has ended within a token
};

namespace vn::corelink {

struct Scanner {
    yy_buffer_state *current;
    yy_buffer_state *pushed_down;
    char *token; // the last one
    size_t length;
    char *marked; // where a NUL stands in the text for now,
    char held;    // and the character in whose place
    bool begun;
    bool had_buffer; // one that never had a buffer makes its own, for its stream
    int debug;
    FILE *in, *out;
    void *extra;
    clparse_lex_value *lval;
};

// The next token, or 0 at the end. A token whose text cannot be read in whole is dropped, with all
// that is left in the buffer, as if it were the end.
int next_token(Scanner &scanner, clparse_lex_value &value);

// For the rules: what stands before a token is asked for, and whether there is anything to read.
bool begin(Scanner &scanner);
void remove_mark(Scanner &scanner);
inline bool ready(Scanner &scanner)
{
    if (scanner.marked != nullptr) remove_mark(scanner);
    return scanner.begun ? scanner.current != nullptr : begin(scanner);
}

// For the rules: at the end of the buffer, within a token of `length` characters. Reads more behind
// them; the token then begins at the buffer's cursor.
enum class Filled { kMore, kNothing, kFailed };
Filled fill(Scanner &scanner, size_t length);

// Makes a scanner read a text in place, for the life of this object.
class InPlace {
public:
    InPlace(Scanner &scanner, const char *text);
    ~InPlace();
    InPlace(const InPlace &) = delete;
    InPlace &operator=(const InPlace &) = delete;

private:
    Scanner &scanner_;
    yy_buffer_state buffer_{};
};

} // namespace vn::corelink
