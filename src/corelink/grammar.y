/* grammar.y - the corelink grammar. Each action is one step of the builder, which holds the tree.
 *
 * An action owns its tokens' texts from the moment it runs; what waits on the parser's stack when a
 * parse fails is released by the destructor below.
 */
%define api.pure full
%define api.token.raw
%define api.prefix {corelink_grammar_}
%define api.value.type {union clparse_lex_value}
%param {vn::corelink::Builder &builder}

%code top {
#include <cstdlib>

#include "corelink/builder.h"
#include "corelink/tree.h"
#include "vnlib/corelink_lex.h"
#include "vnlib/memcheck.h"

/* Deep texts need a deep stack. It may be moved to a larger block, as its values are trivial. */
#define YYMALLOC(size) vn_memcheck_malloc(malloc, size, "yyparse", __LINE__)
#define YYFREE(block) vn_memcheck_free(free, block, "corelink.tab:" VN_CORELINK_STRING(__LINE__))
#define YYMAXDEPTH 10000
}

%code {
namespace {

/* The kinds of the marks are in the order of these bits, which differ for each. */
constexpr int kind_of_mark(int mark)
{
    return OTHER + ((mark * 109 >> 8) & 7);
}
static_assert(kind_of_mark('=') == EQUALS && kind_of_mark(',') == COMMA);
static_assert(kind_of_mark('.') == DOT && kind_of_mark('{') == OPEN_BRACE);
static_assert(kind_of_mark('}') == CLOSE_BRACE && kind_of_mark('[') == OPEN_BRACKET);
static_assert(kind_of_mark(']') == CLOSE_BRACKET);

/* The others are in the scanner's order. */
constexpr int kAhead = int{CLPARSE_TOKEN_IDENTIFIER} - int{IDENTIFIER};
static_assert(CLPARSE_TOKEN_STRING - kAhead == STRING && CLPARSE_TOKEN_NUMBER - kAhead == NUMBER);
static_assert(CLPARSE_TOKEN_BOOLEAN - kAhead == BOOLEAN && CLPARSE_TOKEN_OTHER - kAhead == OTHER);

int corelink_grammar_lex(clparse_lex_value *value, vn::corelink::Builder &builder)
{
    const int token = builder.next_token(*value);
    if (token >= CLPARSE_TOKEN_IDENTIFIER) return token - kAhead;
    return token != 0 ? kind_of_mark(token) : CORELINK_GRAMMAR_EOF;
}

} // namespace

/* No rule recovers from a syntax error: the parser is left at once. (The other message is "memory
 * exhausted", after which it is left anyway.) */
#undef yyerror
#define yyerror(builder, message)                    \
    do {                                             \
        (builder).report(message);                   \
        if ((message)[0] == 's') goto yyabortlab;    \
    } while (0)

/* Leaves the parser when there was no memory for a step. */
#define TAKE(step)            \
    do {                      \
        if (!(step)) YYNOMEM; \
    } while (0)
}

%token <text> IDENTIFIER STRING
%token <number> NUMBER
%token <boolean> BOOLEAN
%token UNUSED OTHER
%token EQUALS "=" COMMA "," DOT "." OPEN_BRACE "{" CLOSE_BRACE "}" OPEN_BRACKET "[" CLOSE_BRACKET "]"

%destructor { vn::corelink::release_text($$, VN_CORELINK_HERE); } <text>

%%

corelink:
    members
;

members:
    member
|   members "," member
;

elements:
    value                           { TAKE(builder.end_element()); }
|   elements "," value              { TAKE(builder.end_element()); }
;

member:
    IDENTIFIER "=" value            { TAKE(builder.end_member($1)); }
|   path_prefix member              { builder.leave_prefix(); }
|   IDENTIFIER                      { TAKE(builder.end_member($1)); }
;

path_prefix:
    IDENTIFIER "."                  {
                                        switch (builder.enter_prefix($1)) {
                                        case vn::corelink::Step::kDone: break;
                                        case vn::corelink::Step::kSyntaxError: goto yyerrlab;
                                        case vn::corelink::Step::kNoMemory: YYNOMEM;
                                        }
                                    }
;

struct_open:
    "{"                             { TAKE(builder.open_container()); }
;

array_open:
    "["                             { TAKE(builder.open_container()); }
;

value:
    STRING                          { TAKE(builder.string_value($1)); }
|   NUMBER                          { builder.number_value($1); }
|   BOOLEAN                         { builder.boolean_value($1); }
|   struct_open members "}"         { builder.close_struct(); }
|   array_open elements "]"         { builder.close_array(); }
;

%%
