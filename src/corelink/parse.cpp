// parse.cpp - reads a text into a new tree.
#include "corelink/attempt.h"
#include "corelink/builder.h"
#include "corelink/tree.h"
#include "vnlib/memcheck.h"

int corelink_grammar_parse(vn::corelink::Builder &builder); // made from grammar.y

namespace vn::corelink {

namespace {

constexpr char kSite[] = "clparse_start";
constexpr int kExhausted = 2; // the parser's result without memory

// Gives the head what the parser needs: a cursor, and a scanner with the text.
bool prepare(clparse_head &head, const char *text)
{
    head.cursor = new_record(kSite, 361);
    if (head.cursor == nullptr) return false;
    head.cursor->parent = &head.root;
    return yylex_init(&head.scanner) == 0 && yy_scan_string(text, head.scanner) != nullptr;
}

// One attempt serves for all tokens: a text in memory never makes the scanner ask for more of it,
// so nothing fails there, and a jump out of the parser is a last resort only.
bool parse(clparse_head &head)
{
    Builder builder(head);
    int result = kExhausted;
    attempt(head.scanner, [&] { result = corelink_grammar_parse(builder); });
    if (result == 0) return true;
    memdbg_printf("%s: parsing failed: %d\n", kSite, result);
    builder.abandon();
    return false;
}

void release_cursor(clparse_head &head, const char *where)
{
    if (head.cursor != nullptr) release_record(head.cursor, where);
    head.cursor = nullptr;
}

} // namespace

} // namespace vn::corelink

using namespace vn::corelink;

extern "C" struct clparse_head *clparse_start(const char *text)
{
    if (text == nullptr) return nullptr;
    clparse_head *const head = new_head({kSite, 351, 354, 356});
    if (head == nullptr) return nullptr;
    if (!prepare(*head, text) || !parse(*head)) {
        release_cursor(*head, VN_CORELINK_HERE);
        release_head(head, VN_CORELINK_AT(375));
        return nullptr;
    }
    release_cursor(*head, VN_CORELINK_AT(379));
    yypop_buffer_state(head->scanner); // the scanner stays with the head, its copy of the text goes
    return head;
}
