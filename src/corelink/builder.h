// builder.h - builds the tree while the parser reads; one function for each rule of the grammar.
//
//     root ── count ⇄ opts            "count=3,opts.list=[1,"
//                      └ (list) ── 1
//                          └ cursor
//
// The head's cursor is the node that the next value will fill. It is in no list; its parent is the
// container that will receive it. A container between its brackets is in no list either, and has no
// type: it is known as the parent of what is being built in it.
//
// Ownership: each function that takes a text owns it, whatever its result is. A failed step leaves
//            the tree as it was.
#pragma once

#include "corelink/scanner.h"
#include "corelink/tag_index.h"
#include "corelink/tree.h"
#include "vnlib/corelink_lex.h"

namespace vn::corelink {

enum class Step { kDone, kSyntaxError, kNoMemory };

class Builder {
public:
    // The head has a cursor; the scanner is about to read the text.
    Builder(clparse_head &head, Scanner &scanner) : head_(head), scanner_(scanner) {}
    ~Builder();
    Builder(const Builder &) = delete;
    Builder &operator=(const Builder &) = delete;

    int next_token(clparse_lex_value &value) { return corelink::next_token(scanner_, value); }

    Step string_value(char *text);
    Step number_value(uint64_t number);
    Step boolean_value(unsigned char flag);

    Step open_container();
    Step close_struct();
    Step close_array();

    Step end_member(char *tag); // without a value, too
    Step end_element();

    Step enter_prefix(char *tag);
    Step leave_prefix();

    // Tells the reader of the memory debugger's pane what is wrong, and where.
    void report(const char *message) const;

    // Releases what is in no list yet: the cursor, and containers that were not closed.
    void abandon();

private:
    clparse_node &cursor() { return *head_.cursor; }
    clparse_node *new_cursor(clparse_node &parent);
    Step close(Type type, const char *where);
    bool append_cursor();

    clparse_head &head_;
    Scanner &scanner_;
    clparse_node *spare_ = nullptr; // a cursor that was left over, for the next one; tracker off
    TagIndex index_;
};

// Builds what a text says (made from grammar.y): 0, 1 after a syntax error, 2 without memory.
int parse(Builder &builder);

inline Step Builder::string_value(char *text)
{
    if (text == nullptr) return Step::kNoMemory;
    cursor().value.text = text;
    set_type(cursor(), Type::kString);
    return Step::kDone;
}

inline Step Builder::number_value(uint64_t number)
{
    cursor().value.number = number;
    set_type(cursor(), Type::kNumber);
    return Step::kDone;
}

inline Step Builder::boolean_value(unsigned char flag)
{
    cursor().value.boolean = flag;
    set_type(cursor(), Type::kBoolean);
    return Step::kDone;
}

} // namespace vn::corelink
