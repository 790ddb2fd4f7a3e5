// parse.cpp - reads a text into a new tree.
#include "corelink/builder.h"
#include "corelink/scanner.h"
#include "corelink/tree.h"
#include "vnlib/memcheck.h"

namespace vn::corelink {

namespace {

constexpr char kSite[] = "clparse_start";

// Gives the head what the parser needs: a cursor and a scanner.
bool prepare(clparse_head &head)
{
    head.cursor = new_record(kSite, 361);
    if (head.cursor == nullptr) return false;
    head.cursor->parent = &head.root;
    return yylex_init(&head.scanner) == 0;
}

bool read(clparse_head &head, const char *text)
{
    Scanner &scanner = *static_cast<Scanner *>(head.scanner);
    const InPlace reading(scanner, text);
    Builder builder(head, scanner);
    const int result = vn::corelink::parse(builder);
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
    if (!prepare(*head) || !read(*head, text)) {
        release_cursor(*head, VN_CORELINK_HERE);
        release_head(head, VN_CORELINK_AT(375));
        return nullptr;
    }
    release_cursor(*head, VN_CORELINK_AT(379));
    return head;
}
