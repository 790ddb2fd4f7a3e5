// scanner.h - what the generated scanner (scanner.l) and the calls around it
// (scanner_interface.cpp) need of each other.
#pragma once

union clparse_lex_value;

namespace vn::corelink {

// Where the generated code would end the process: writes the message to standard error and leaves
// the call that the program made, which then answers with its failure value.
[[noreturn]] void scanner_failed(const char *message);

// Whether `block` is part of what the scanner itself releases in the end.
bool scanner_keeps(void *scanner, const void *block);

// Whether there is a current buffer, the top of the stack of buffers.
bool has_buffer(void *scanner);

// Whether there is none any more. (One that never had a buffer makes its own, for its stream.)
bool lost_its_buffers(void *scanner);

// Drops what is left in the current buffer after a token could not be finished. `not_grown` is the
// block that could not be made larger, or null.
void empty_scanner(void *scanner, const void *not_grown);

// yylex() for a caller that is in an attempt already.
int next_token(clparse_lex_value &value, void *scanner);

} // namespace vn::corelink
