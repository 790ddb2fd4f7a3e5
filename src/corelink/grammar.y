/* grammar.y - the corelink grammar. Each action is one step of the builder, which holds the tree.
 *
 * An action owns its tokens' texts from the moment it runs; what waits on the parser's stack when a
 * parse fails is released by the destructor below.
 */
%define api.pure full
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

/* Leaves the parser when a step could not be taken. */
#define TAKE(step)                                  \
    switch (step) {                                 \
    case vn::corelink::Step::kDone: break;          \
    case vn::corelink::Step::kSyntaxError:          \
        yyerror(builder, YY_("syntax error"));      \
        YYABORT;                                    \
    case vn::corelink::Step::kNoMemory: YYNOMEM;    \
    }
}

%code {
static int corelink_grammar_lex(clparse_lex_value *value, vn::corelink::Builder &builder)
{
    return builder.next_token(*value);
}

static void corelink_grammar_error(vn::corelink::Builder &builder, const char *message)
{
    builder.report(message);
}
}

%token <text> IDENTIFIER 258
%token <text> STRING 259
%token <number> NUMBER 260
%token <boolean> BOOLEAN 261
%token UNUSED 262
%token OTHER 263

%destructor { vn::corelink::release_text($$, VN_CORELINK_HERE); } <text>

%%

corelink:
    members
;

members:
    member
|   members ',' member
;

elements:
    value                           { TAKE(builder.end_element()); }
|   elements ',' value              { TAKE(builder.end_element()); }
;

member:
    IDENTIFIER '=' value            { TAKE(builder.end_member($1)); }
|   path_prefix member              { builder.leave_prefix(); }
|   IDENTIFIER                      { TAKE(builder.end_member($1)); }
;

path_prefix:
    IDENTIFIER '.'                  { TAKE(builder.enter_prefix($1)); }
;

struct_open:
    '{'                             { TAKE(builder.open_container()); }
;

array_open:
    '['                             { TAKE(builder.open_container()); }
;

value:
    STRING                          { TAKE(builder.string_value($1)); }
|   NUMBER                          { builder.number_value($1); }
|   BOOLEAN                         { builder.boolean_value($1); }
|   struct_open members '}'         { builder.close_struct(); }
|   array_open elements ']'         { builder.close_array(); }
;

%%
