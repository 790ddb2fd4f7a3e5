/* grammar.y - the corelink grammar. Each action is one step of the builder, which holds the tree.
 *
 * An action owns its tokens' texts from the moment it runs; what waits on the parser's stack, or to
 * be shifted, when a parse fails is released by the classes below. The parser around the tables and
 * actions is in grammar.skeleton.
 */
%skeleton "./grammar.skeleton"
%define api.token.raw

%code top {
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "corelink/builder.h"
#include "corelink/tree.h"
#include "support/small.h"
#include "vnlib/corelink_lex.h"
#include "vnlib/memcheck.h"
}

%code {
using namespace vn::corelink;

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

/* Releases the value of a symbol that nobody takes any more. */
void drop(int kind, clparse_lex_value &value)
{
    if (kind == IDENTIFIER || kind == STRING) release_text(value.text, VN_CORELINK_HERE);
}

/* The token that the parser looks at. (Its value stands elsewhere, as does the beginning of the stack
 * below: the rest of both then fits into registers.) */
class Token {
public:
    explicit Token(clparse_lex_value &value) : value_(value) {}
    ~Token() { drop(kind_, value_); }
    Token(const Token &) = delete;
    Token &operator=(const Token &) = delete;

    [[nodiscard]] bool is_read() const { return kind_ != kNone; }
    [[nodiscard]] int kind() const { return kind_; }
    void read(Builder &builder)
    {
        const int token = builder.next_token(value_);
        kind_ = token >= CLPARSE_TOKEN_IDENTIFIER ? token - kAhead
                : token != 0                      ? kind_of_mark(token)
                                                  : YYEOF;
    }
    void take() { kind_ = kNone; } /* its value is somebody else's now */

private:
    static constexpr int kNone = -1;

    int kind_ = kNone;
    clparse_lex_value &value_;
};

/* The symbols read and not yet reduced. The first entry stands for the beginning of the text. */
struct Entry {
    clparse_lex_value value;
    int state; /* after the symbol */
};

class Stack {
public:
    static constexpr size_t kFirst = 200, kLargest = 10000;

    explicit Stack(Entry (&first)[kFirst]) : first_(first) { top_->state = 0; }
    ~Stack()
    {
        for (; top_ != entries_; --top_) drop(yystos[top_->state], top_->value);
        release();
    }
    Stack(const Stack &) = delete;
    Stack &operator=(const Stack &) = delete;

    [[nodiscard]] Entry &top() { return *top_; }
    void pop(int count) { top_ -= count; }
    Step push(int state) /* of a symbol that has no value */
    {
        (++top_)->state = state;
        return top_ != last_ || grow() ? Step::kDone : Step::kNoMemory;
    }
    Step push(int state, const clparse_lex_value &value)
    {
        top_[1].value = value;
        return push(state);
    }

private:
    bool grow()
    {
        const auto used = static_cast<size_t>(top_ - entries_ + 1);
        if (used >= kLargest) return false;
        const size_t wanted = used * 2 < kLargest ? used * 2 : kLargest;
        auto *const grown = static_cast<Entry *>(
            vn_memcheck_malloc(malloc, wanted * sizeof(Entry), "yyparse", __LINE__));
        if (grown == nullptr) return false;
        memcpy(grown, entries_, used * sizeof(Entry));
        release();
        entries_ = grown;
        top_ = grown + used - 1;
        last_ = grown + wanted - 1;
        return true;
    }
    void release()
    {
        if (entries_ == first_) return;
        vn_memcheck_free(free, entries_, "corelink.tab:" VN_CORELINK_STRING(__LINE__));
    }

    Entry *const first_;
    Entry *entries_ = first_;
    Entry *top_ = first_;
    Entry *last_ = first_ + kFirst - 1;
};
}

%token <text> IDENTIFIER STRING
%token <number> NUMBER
%token <boolean> BOOLEAN
%token UNUSED OTHER
%token EQUALS "=" COMMA "," DOT "." OPEN_BRACE "{" CLOSE_BRACE "}" OPEN_BRACKET "[" CLOSE_BRACKET "]"

%%

corelink:
    members
;

members:
    member
|   members "," member
;

elements:
    value                           { return builder.end_element(); }
|   elements "," value              { return builder.end_element(); }
;

member:
    IDENTIFIER "=" value            { return builder.end_member($1); }
|   path_prefix member              { return builder.leave_prefix(); }
|   IDENTIFIER                      { return builder.end_member($1); }
;

path_prefix:
    IDENTIFIER "."                  { return builder.enter_prefix($1); }
;

struct_open:
    "{"                             { return builder.open_container(); }
;

array_open:
    "["                             { return builder.open_container(); }
;

value:
    STRING                          { return builder.string_value($1); }
|   NUMBER                          { return builder.number_value($1); }
|   BOOLEAN                         { return builder.boolean_value($1); }
|   struct_open members "}"         { return builder.close_struct(); }
|   array_open elements "]"         { return builder.close_array(); }
;

%%
