// corelink_fuzz.cpp - any bytes as a corelink text, and after a NUL byte another one to merge with:
// what is read can be written, what is written reads back as the same, and whatever is done to two
// trees, both are released in either order.
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "vnlib/corelink.h"
#include "vnlib/corelink_lex.h"
#include "vnlib/memcheck.h"

namespace {

using Writer = int (*)(clparse_head *, char **, unsigned char);

// What a writer makes of a tree; nothing when it fails.
std::string written(clparse_head *head, Writer write, unsigned char mode)
{
    char *text = nullptr;
    write(head, &text, mode);
    if (text == nullptr) return {};
    std::string copy = text;
    vn_memcheck_free(free, text, "fuzz:1");
    return copy;
}

bool holds_any(const std::string &text, std::initializer_list<const char *> pieces)
{
    for (const char *piece : pieces)
        if (text.find(piece) != std::string::npos) return true;
    return false;
}

// Written text reads back, but for what the language has no words for: a quote in a string, which
// is escaped once more, and a null member that a dotted name put into an array.
void check_round_trip(clparse_head *head)
{
    const std::string text = written(head, clparse_get_corelink, 0);
    if (text.empty()) abort();
    clparse_head *const again = clparse_start(text.c_str());
    if (again == nullptr && !holds_any(text, {"\\\"", "[,", ",,", ",]", "[]"})) abort();
    if (again != nullptr && written(again, clparse_get_corelink, 0) != text) abort();
    clparse_stop(again);
}

void look_around(clparse_head *head, const std::string &path)
{
    written(head, clparse_get_xml, 0);
    written(head, clparse_get_xml, 1);
    written(head, clparse_get_corelink, 1);
    clparse_get_node(head, path.c_str());
    for (const char *listed : {"", "0", "0.0", path.c_str()})
        vn_memcheck_free(free, clparse_get_path(head, listed), "fuzz:2");
    for (int type = -1; type <= 6; ++type)
        clparse_get_tagtype(clparse_get_head(head), path.c_str(), type);
}

void scan(const std::string &text)
{
    void *scanner = nullptr;
    if (yylex_init(&scanner) != 0) abort();
    yy_scan_bytes(text.data(), static_cast<int>(text.size()), scanner);
    clparse_lex_value value;
    while (const int token = yylex(&value, scanner))
        if (token == CLPARSE_TOKEN_IDENTIFIER || token == CLPARSE_TOKEN_STRING)
            vn_memcheck_free(free, value.text, "fuzz:3");
    yylex_destroy(scanner);
}

void merge(clparse_head *target, clparse_head *source, size_t size)
{
    using Merge = int (*)(clparse_head *, clparse_head *);
    static constexpr Merge kMerges[] = {clparse_select, clparse_update, clparse_insert};
    kMerges[size % 3](target, source);
    clparse_insert(target, source);
    written(target, clparse_get_corelink, 0);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Syntax errors are printed on standard output.
int LLVMFuzzerInitialize(int *, char ***)
{
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    return dup2(nowhere, 1) == 1 ? 0 : -1;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string all(reinterpret_cast<const char *>(data), size);
    scan(all);
    const std::string second = all.substr(std::min(size, all.find('\0') + 1));
    clparse_head *const target = clparse_start(all.c_str());
    clparse_head *const source = clparse_start(second.c_str());
    if (target != nullptr) {
        check_round_trip(target);
        look_around(target, second);
    }
    if (target != nullptr && source != nullptr) merge(target, source, size);
    clparse_stop(size % 2 == 0 ? target : source);
    clparse_stop(size % 2 == 0 ? source : target);
    return 0;
}
