// tree.cpp - making, linking, sharing and releasing nodes.
#include "corelink/tree.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "corelink/shared_tags.h"
#include "vnlib/corelink_lex.h"
#include "vnlib/memcheck.h"

namespace vn::corelink {

namespace {

// Callers on the target reach into both records: their layout is part of the interface. (Where the
// value is aligned to 8 bytes the record ends with a gap; only 32-bit x86 goes without.)
constexpr bool kIlp32 = sizeof(void *) == 4;
static_assert(!kIlp32 || (offsetof(clparse_node, tag) == 0 && offsetof(clparse_node, type) == 4 &&
                          offsetof(clparse_node, value) == 8));
static_assert(!kIlp32 || (sizeof(clparse_node::value) == 16 && sizeof(vn_reference) == 16));
static_assert(!kIlp32 ||
              (offsetof(clparse_node, ref) == 24 && offsetof(clparse_node, parent) == 40 &&
               offsetof(clparse_node, next) == 44 && offsetof(clparse_node, prev) == 48));
static_assert(offsetof(clparse_head, scanner) == 0 &&
              offsetof(clparse_head, root) <= alignof(uint64_t));
static_assert(offsetof(clparse_head, cursor) >=
              offsetof(clparse_head, root) + sizeof(clparse_node));

constexpr char kNodeSite[] = "clparse_create_node";
constexpr unsigned kNodeLine = 394;

constinit SharedTags shared_tags;

// The sentinel counts the holders of its list beyond the first in its own reference count's field.
// Atomic, as the holders may belong to different threads; the lock beside it is not needed then.
void add_holder(clparse_node &sentinel)
{
    __atomic_fetch_add(&sentinel.ref.count, 1, __ATOMIC_RELAXED);
}

// True when the caller was the only holder, and the list is now its own to release.
bool drop_holder(clparse_node &sentinel)
{
    int others = __atomic_load_n(&sentinel.ref.count, __ATOMIC_ACQUIRE);
    while (others > 0)
        if (__atomic_compare_exchange_n(&sentinel.ref.count, &others, others - 1, false,
                                        __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE))
            return false;
    return true;
}

// Gives up a container's child list; returns it when nobody else holds it.
clparse_node *give_up_children(clparse_node &container)
{
    clparse_node *const list = std::exchange(container.value.children, nullptr);
    return list != nullptr && drop_holder(*list) ? list : nullptr;
}

clparse_node *link_to_itself(clparse_node *node)
{
    if (node != nullptr) node->next = node->prev = node;
    return node;
}

// What a node holds besides a child list.
void release_leaf_value(clparse_node &node, Privates privates)
{
    if (type_of(node) == Type::kString) release_text(node.value.text, VN_CORELINK_HERE);
    if (type_of(node) != Type::kFunction || privates == Privates::kKeep) return;
    if (void *const priv = std::exchange(node.value.function.priv, nullptr); priv != nullptr)
        vn_memcheck_free(vn_free, priv, VN_CORELINK_HERE);
}

// Releases a list that nobody else holds, with everything below it. Each list's first child is
// taken off and released in turn; before going down into a child's own list, the way back is left
// in that list's sentinel, whose `parent` has no other use.
void release_list(clparse_node *list, Privates privates)
{
    list->parent = nullptr;
    while (list != nullptr) {
        clparse_node *const child = list->next;
        if (child == list || child == nullptr) {
            clparse_node *const above = list->parent;
            release_record(list, VN_CORELINK_HERE);
            list = above;
            continue;
        }
        list->next = child->next;
        if (!is_container(*child)) {
            release_leaf_value(*child, privates);
        } else if (clparse_node *const below = give_up_children(*child); below != nullptr) {
            below->parent = list;
            list = below;
        }
        release_tag(*child, VN_CORELINK_HERE);
        release_record(child, VN_CORELINK_HERE);
    }
}

} // namespace

clparse_node *new_record(const char *site, unsigned line)
{
    auto *const record =
        static_cast<clparse_node *>(vn_memcheck_malloc(malloc, sizeof(clparse_node), site, line));
    if (record == nullptr) return nullptr;
    record->tag = nullptr;
    record->type = 0;
    record->value.function = {};
    record->parent = record->next = record->prev = nullptr;
    if (vn_reference_prep(&record->ref, nullptr, nullptr) == 0) return record;
    vn_memcheck_free(vn_free, record, VN_CORELINK_HERE);
    return nullptr;
}

clparse_node *new_node()
{
    return new_record(kNodeSite, kNodeLine);
}

clparse_node *new_sentinel(const char *site, unsigned line)
{
    return link_to_itself(new_record(site, line));
}

clparse_node *new_sentinel()
{
    return link_to_itself(new_node());
}

char *copy_text(const char *text, const char *site, unsigned line)
{
    const size_t size = strlen(text) + 1;
    auto *const copy = static_cast<char *>(vn_memcheck_malloc(malloc, size, site, line));
    return copy == nullptr ? nullptr : static_cast<char *>(memcpy(copy, text, size));
}

void unlink(clparse_node &node)
{
    if (node.next != nullptr) node.next->prev = node.prev;
    if (node.prev != nullptr) node.prev->next = node.next;
    link_to_itself(&node);
}

void release_text(char *&text, const char *where)
{
    if (char *const old = std::exchange(text, nullptr); old != nullptr)
        vn_memcheck_free(free, old, where);
}

void release_tag(clparse_node &node, const char *where)
{
    if (node.tag != nullptr && shared_tags.drop(node.tag)) node.tag = nullptr;
    release_text(node.tag, where);
}

void release_children(clparse_node &node, Privates privates)
{
    if (clparse_node *const list = give_up_children(node); list != nullptr)
        release_list(list, privates);
}

void release_value(clparse_node &node, Privates privates)
{
    if (is_container(node))
        release_children(node, privates);
    else
        release_leaf_value(node, privates);
}

// The lock in the reference count may be more than a word where the platform has no spin locks.
void release_record(clparse_node *record, const char *where)
{
    pthread_spin_destroy(&record->ref.lock);
    vn_memcheck_free(vn_free, record, where);
}

void release_node(clparse_node *node, Privates privates)
{
    release_value(*node, privates);
    release_tag(*node, VN_CORELINK_HERE);
    release_record(node, VN_CORELINK_HERE);
}

void orphan_children(clparse_node &container)
{
    clparse_node *const list = give_up_children(container);
    if (list == nullptr) return;
    while (list->next != list) {
        clparse_node &child = *list->next;
        unlink(child);
        child.parent = nullptr;
    }
    release_record(list, VN_CORELINK_HERE);
}

bool share_tag(const clparse_node &node)
{
    return node.tag == nullptr || shared_tags.add(node.tag);
}

void share_children(const clparse_node &node)
{
    if (is_container(node) && node.value.children != nullptr) add_holder(*node.value.children);
}

clparse_head *new_head(const HeadSite &site)
{
    auto *const head = static_cast<clparse_head *>(
        vn_memcheck_malloc(vn_malloc, sizeof(clparse_head), site.function, site.head));
    if (head == nullptr) return nullptr;
    clparse_node &root = head->root;
    const bool prepared = vn_reference_prep(&root.ref, nullptr, nullptr) == 0;
    set_type(root, Type::kStruct);
    root.value.children = new_sentinel(site.function, site.sentinel);
    root.tag = copy_text("head", site.function, site.tag);
    if (prepared && root.value.children != nullptr && root.tag != nullptr) return head;
    release_head(head, VN_CORELINK_HERE);
    return nullptr;
}

void release_head(clparse_head *head, const char *where)
{
    release_children(head->root, Privates::kKeep);
    release_tag(head->root, VN_CORELINK_HERE);
    pthread_spin_destroy(&head->root.ref.lock);
    if (head->scanner != nullptr) yylex_destroy(head->scanner);
    vn_memcheck_free(vn_free, head, where);
}

void hold_list(clparse_node &sentinel)
{
    add_holder(sentinel);
}

void let_go_of_list(clparse_node &sentinel)
{
    if (drop_holder(sentinel)) release_list(&sentinel, Privates::kKeep);
}

bool is_shared(const clparse_node &sentinel)
{
    return __atomic_load_n(&sentinel.ref.count, __ATOMIC_RELAXED) > 0;
}

} // namespace vn::corelink
