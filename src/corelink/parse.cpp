// parse.cpp - reads a text into a new tree.
#include <cstring>
#include <sys/mman.h>

#include "corelink/attempt.h"
#include "corelink/builder.h"
#include "corelink/tree.h"
#include "vnlib/memcheck.h"

int corelink_grammar_parse(vn::corelink::Builder &builder); // made from grammar.y

namespace vn::corelink {

namespace {

constexpr char kSite[] = "clparse_start";
constexpr int kExhausted = 2; // the parser's result without memory

// A text's copy, in which the scanner marks the ends of words.
//
// Before glibc hands out a block of 1 KB or more it sorts and joins all small blocks that are free.
// A program that parses again and again would pay a quarter of its time for that; so the copy of a
// text of up to some KB stands elsewhere. Where the trees outgrow the caches, the sorting pays.
class Copy {
public:
    Copy() = default;
    ~Copy()
    {
        if (pages_ != MAP_FAILED) munmap(pages_, size_);
    }
    Copy(const Copy &) = delete;
    Copy &operator=(const Copy &) = delete;

    // The copy has to outlive the scanner's use of it.
    bool give_to(void *scanner, const char *text)
    {
        size_ = std::strlen(text) + kEndMarks;
        char *const place = find_place();
        if (place == nullptr) return yy_scan_string(text, scanner) != nullptr;
        std::memset(mempcpy(place, text, size_ - kEndMarks), 0, kEndMarks);
        return yy_scan_buffer(place, size_, scanner) != nullptr;
    }

private:
    static constexpr size_t kEndMarks = 2; // NUL bytes
    static constexpr size_t kLargest = 65536;

    char *find_place()
    {
        if (size_ <= sizeof small_) return small_;
        if (size_ > kLargest) return nullptr;
        pages_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        return pages_ != MAP_FAILED ? static_cast<char *>(pages_) : nullptr;
    }

    char small_[2048];
    void *pages_ = MAP_FAILED;
    size_t size_ = 0;
};

// Gives the head what the parser needs: a cursor, and a scanner with the text.
bool prepare(clparse_head &head, const char *text, Copy &copy)
{
    head.cursor = new_record(kSite, 361);
    if (head.cursor == nullptr) return false;
    head.cursor->parent = &head.root;
    return yylex_init(&head.scanner) == 0 && copy.give_to(head.scanner, text);
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
    Copy copy;
    clparse_head *const head = new_head({kSite, 351, 354, 356});
    if (head == nullptr) return nullptr;
    if (!prepare(*head, text, copy) || !parse(*head)) {
        release_cursor(*head, VN_CORELINK_HERE);
        release_head(head, VN_CORELINK_AT(375));
        return nullptr;
    }
    release_cursor(*head, VN_CORELINK_AT(379));
    yypop_buffer_state(head->scanner); // the scanner stays with the head, its copy of the text goes
    return head;
}
