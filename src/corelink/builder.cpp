// builder.cpp - what each rule of the grammar does to the tree.
#include "corelink/builder.h"

#include <utility>

#include "memcheck/debugger.h"
#include "vnlib/memcheck.h"

namespace vn::corelink {

namespace {

const char *or_null(const char *text, const char *instead)
{
    return text == nullptr ? instead : text;
}

// A container whose closing bracket has not been read.
bool is_open(const clparse_node &node)
{
    return node.next == nullptr;
}

} // namespace

Builder::~Builder()
{
    if (spare_ != nullptr) release_record(spare_, VN_CORELINK_HERE);
}

// A cursor that was left over was never filled: only its parent is another one now.
clparse_node *Builder::new_cursor(clparse_node &parent)
{
    clparse_node *const fresh = spare_ != nullptr ? std::exchange(spare_, nullptr) : new_node();
    if (fresh != nullptr) fresh->parent = &parent;
    return fresh;
}

Step Builder::open_container()
{
    OwnedNode inner(new_cursor(cursor()));
    clparse_node *const sentinel = inner ? new_sentinel() : nullptr;
    if (sentinel == nullptr) return Step::kNoMemory;
    cursor().value.children = sentinel;
    head_.cursor = inner.release();
    return Step::kDone;
}

Step Builder::close_struct()
{
    return close(Type::kStruct, VN_CORELINK_AT(315));
}

Step Builder::close_array()
{
    return close(Type::kArray, VN_CORELINK_AT(326));
}

// The container becomes the value that the enclosing rule takes. The cursor left over inside goes:
// behind the container, as long as no debugger counts its release.
Step Builder::close(Type type, const char *where)
{
    clparse_node *const left_over = std::exchange(head_.cursor, cursor().parent);
    set_type(cursor(), type);
    if (spare_ == nullptr && memcheck::tracking() == nullptr)
        spare_ = left_over;
    else
        release_record(left_over, where);
    return Step::kDone;
}

// Puts the cursor into its parent's list; a fresh one with the same parent follows.
bool Builder::append_cursor()
{
    clparse_node &parent = *cursor().parent;
    clparse_node *const fresh = new_cursor(parent);
    if (fresh == nullptr) return false;
    append(parent, cursor());
    head_.cursor = fresh;
    return true;
}

Step Builder::end_member(char *tag)
{
    if (tag == nullptr) return Step::kNoMemory;
    cursor().tag = tag;
    return append_cursor() ? Step::kDone : Step::kNoMemory;
}

Step Builder::end_element()
{
    return append_cursor() ? Step::kDone : Step::kNoMemory;
}

Step Builder::enter_prefix(char *tag)
{
    if (tag == nullptr) return Step::kNoMemory;
    if (clparse_node *const known = index_.last_tagged(*cursor().parent, tag); known != nullptr) {
        release_text(tag, VN_CORELINK_HERE);
        if (!is_container(*known)) return Step::kSyntaxError; // a leaf has no room for members
        cursor().parent = known;
        return Step::kDone;
    }
    cursor().tag = tag;
    clparse_node *const sentinel = new_sentinel();
    if (sentinel == nullptr) return Step::kNoMemory;
    cursor().value.children = sentinel;
    set_type(cursor(), Type::kStruct);
    clparse_node &made = cursor();
    if (!append_cursor()) return Step::kNoMemory;
    cursor().parent = &made;
    return Step::kDone;
}

// The next member lands beside the prefix's struct again.
Step Builder::leave_prefix()
{
    cursor().parent = cursor().parent->parent;
    return Step::kDone;
}

void Builder::report(const char *message) const
{
    const clparse_node &cursor = *head_.cursor;
    memdbg_printf("%s: %s\n", or_null(static_cast<const char *>(scanner_.extra), "(null)"),
                  message);
    if (cursor.parent != nullptr)
        memdbg_printf("Parent was %s\n", or_null(cursor.parent->tag, "NULL"));
    memdbg_printf("near: %s\n", or_null(cursor.tag, "NULL"));
}

void Builder::abandon()
{
    clparse_node *const root = &head_.root;
    clparse_node *above = cursor().parent;
    release_node(head_.cursor, Privates::kKeep);
    head_.cursor = nullptr;
    while (above != root) {
        clparse_node *const container = above;
        above = container->parent;
        if (!is_open(*container)) continue; // in a list: goes with the container around it
        set_type(*container, Type::kStruct);
        release_node(container, Privates::kKeep);
    }
}

} // namespace vn::corelink
