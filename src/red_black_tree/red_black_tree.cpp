// red_black_tree.cpp - red-black trees without parent links, rebalanced on the way down.
//
//     handle --> record: link[0] --> root          a record is a node with nothing but this link
//
// Invariant (between calls): keys ascend from left to right; the root is black; no red node has a
// red child; every way from the root to a missing child passes the same number of black nodes.
//
// Both changing operations walk down once, to a leaf, and repair ahead of themselves, so that there
// is nothing left to repair above when the leaf is linked or unlinked. They hold the links that
// lead to the current node and its parents instead of the nodes: a rotation then replaces what a
// link holds, the root link being one like all others.
#include "vnlib/red_black_tree.h"

#include <cerrno>
#include <cstdlib>

#include "log/assertion.h"
#include "red_black_tree/post_order.h"

namespace vn::red_black_tree {
namespace {

static_assert(sizeof(rb_node) == (sizeof(void *) == 4 ? 24 : 40));

constexpr uint32_t kBlack = 0;
constexpr uint32_t kRed = 1;

constexpr uint64_t join(uint32_t low, uint32_t high)
{
    return uint64_t{high} << 32 | low;
}

// One 64-bit load where the processor has them.
uint64_t key_of(const rb_node &node)
{
    return join(node.key_low, node.key_high);
}

void *data_of(const rb_node &node)
{
    return node.data;
}

// A missing child counts as black.
uint32_t colour_of(const rb_node *node)
{
    return node != nullptr ? node->colour : kBlack;
}

bool is_red(const rb_node *node)
{
    return colour_of(node) != kBlack;
}

// Two nodes are asked before anything is decided. Either alone is red often and without a pattern,
// so that the processor would guess wrong at every third node; about both together it guesses well.
bool both_red(const rb_node *one, const rb_node *other)
{
    if (one == nullptr || other == nullptr) return false;
    return (one->colour & other->colour) != kBlack;
}

bool any_red(const rb_node *one, const rb_node *other)
{
    return (colour_of(one) | colour_of(other)) != kBlack;
}

rb_node *new_node(const rb_node &content)
{
    auto *const node = static_cast<rb_node *>(std::malloc(sizeof(rb_node)));
    if (node != nullptr) *node = content;
    return node;
}

rb_node *new_record()
{
    return static_cast<rb_node *>(std::calloc(1, sizeof(rb_node)));
}

// --- searching -----------------------------------------------------------------------------------

// Both links are read while the keys are still being compared, and one is picked without a branch:
// which way a search turns cannot be predicted, and a wrong guess costs more than a step down. A
// small build reads the one it needs.
rb_node *child(const rb_node &node, bool side)
{
    if constexpr (kSmall) return node.link[side];
    const auto left = reinterpret_cast<uintptr_t>(node.link[0]);
    const auto right = reinterpret_cast<uintptr_t>(node.link[1]);
    return reinterpret_cast<rb_node *>(left ^ ((left ^ right) & -uintptr_t{side}));
}

rb_node *find(rb_node *node, uint64_t key)
{
    while (node != nullptr) {
        const uint64_t here = key_of(*node);
        if (here == key) break;
        node = child(*node, key > here);
    }
    return node;
}

// --- rotations -----------------------------------------------------------------------------------

// Turns the node that `link` holds down to the given side; its other child, which every caller has
// seen to be there, rises into its place.
void rotate(rb_node *&link, bool side)
{
    rb_node *const node = link;
    rb_node *const risen = node->link[!side];
    node->link[!side] = risen->link[side]; // NOLINT(clang-analyzer-core.NullDereference)
    risen->link[side] = node;
    link = risen;
}

void rotate_and_recolour(rb_node *&link, bool side)
{
    rb_node *const node = link;
    rotate(link, side);
    node->colour = kRed;
    link->colour = kBlack;
}

// Brings up the grandchild that lies inside, between the node and its child.
void rotate_twice(rb_node *&link, bool side)
{
    rotate_and_recolour(link->link[!side], !side);
    rotate_and_recolour(link, side);
}

// --- insertion -----------------------------------------------------------------------------------

void flip_colours(rb_node &node)
{
    node.colour = kRed;
    node.link[0]->colour = node.link[1]->colour = kBlack;
}

// Where an insertion has got to: the links that hold the current node, its parent and its
// grandparent, as far as there are any.
struct Descent {
    rb_node **link;
    rb_node **parent = nullptr;
    rb_node **grand = nullptr;

    void step(rb_node &node, bool side)
    {
        grand = parent;
        parent = link;
        link = &node.link[side];
    }

    // The current node has become red. If its parent is red as well, a rotation at the grandparent
    // brings the middle one of the three to the top, black above the two others.
    void repair()
    {
        if (grand == nullptr || !is_red(*parent)) return;
        const bool away = *parent == (*grand)->link[0]; // from the side where the parent lies
        if (*link == (*parent)->link[!away]) {
            rotate_and_recolour(*grand, away);
        } else {
            rotate_twice(*grand, away);
            link = grand; // it is the current node that has risen
        }
        parent = grand;
    }
};

// Which way a descent goes on. Keys that arrive in ascending order turn right all the way down:
// when the first turns have been such, the next one is taken for granted, and the processor need
// not wait for the comparison to know where to read on. Other keys do that too rarely to pay for
// it, and a small build takes nothing for granted.
class Turns {
public:
    rb_node *next(const rb_node &node, bool right)
    {
        if constexpr (kSmall) return child(node, right);
        rights_ = rights_ << 1 & -uint64_t{right};
        return rights_ >= kSteady ? node.link[1] : child(node, right);
    }

private:
    static constexpr uint64_t kSteady = 1u << 6;

    uint64_t rights_ = 1; // shifted with every turn to the right, gone with the first to the left
};

// Links `fresh`, a red leaf, into the tree. False when its key is there already.
bool insert(rb_node *&root, rb_node *fresh)
{
    const uint64_t key = key_of(*fresh);
    Descent at{&root};
    Turns turns;
    for (rb_node *node = root; node != nullptr;) {
        if (both_red(node->link[0], node->link[1])) {
            flip_colours(*node);
            at.repair();
        }
        const uint64_t here = key_of(*node);
        if (here == key) break;
        at.step(*node, key > here);
        node = turns.next(*node, key > here);
    }
    const bool is_new = *at.link == nullptr;
    if (is_new) {
        *at.link = fresh;
        at.repair();
    }
    root->colour = kBlack;
    return is_new;
}

// --- deletion ------------------------------------------------------------------------------------

// `node` and its next child are black, and so is its other child. Makes it red with the help of its
// sibling, if it has one; `parent` is the link that holds its parent, `side` where it lies there.
void redden(rb_node *node, rb_node *&parent, bool side)
{
    rb_node *const sibling = parent->link[!side];
    if (sibling == nullptr) return;
    node->colour = kRed;
    if (!any_red(sibling->link[0], sibling->link[1])) {
        parent->colour = kBlack;
        sibling->colour = kRed;
        return;
    }
    if (is_red(sibling->link[side])) {
        rotate_twice(parent, side);
    } else {
        rotate_and_recolour(parent, side);
    }
    parent->colour = kRed;
    parent->link[0]->colour = parent->link[1]->colour = kBlack;
}

// Unlinks a node of the tree, which is not empty, so that the key is gone. Returns the node, or
// null when the key is not there. On the way down a red node is pushed ahead: the one unlinked is
// red (or the root), and no way loses a black node.
rb_node *remove(rb_node *&root, uint64_t key)
{
    rb_node *found = nullptr;
    rb_node **parent = nullptr, **link = &root; // hold the current node and the one above
    rb_node *node = root;
    bool side = false;
    for (;;) {
        const uint64_t here = key_of(*node);
        const bool next_side = key > here;
        rb_node *const next = child(*node, next_side);
        __builtin_prefetch(node->link[!next_side]); // may be asked next time, as the sibling
        if (here == key) found = node;
        if (!any_red(node, next)) {
            if (is_red(node->link[!next_side])) {
                rotate_and_recolour(*link, next_side);
                link = &(*link)->link[next_side];
            } else if (parent != nullptr) {
                redden(node, *parent, side);
            }
        }
        if (next == nullptr) break;
        parent = link;
        link = &node->link[next_side];
        node = next;
        side = next_side;
    }
    // The last node is the found one's neighbour in order, or the found one itself.
    if (found != nullptr) {
        found->key_low = node->key_low;
        found->key_high = node->key_high;
        found->data = node->data;
        *link = node->link[node->link[0] == nullptr];
    }
    if (root != nullptr) root->colour = kBlack;
    return found != nullptr ? node : nullptr;
}

// --- listing -------------------------------------------------------------------------------------

rb_node *root_of(const rb_node *tree)
{
    return tree != nullptr ? tree->link[0] : nullptr;
}

size_t count(rb_node *root)
{
    size_t nodes = 0;
    visit_post_order(root, [&nodes](const rb_node &) { return ++nodes != 0; });
    return nodes;
}

// Writes kValueOf(node) for one node more than `capacity`, if there are so many.
template <typename Value, auto kValueOf>
class Listing {
public:
    Listing(Value *values, size_t capacity) : values_(values), capacity_(capacity) {}

    bool operator()(const rb_node &node)
    {
        if (size_ > capacity_) return false;
        values_[size_++] = kValueOf(node);
        return true;
    }
    [[nodiscard]] unsigned size() const { return static_cast<unsigned>(size_); }

private:
    Value *const values_;
    const size_t capacity_;
    size_t size_ = 0;
};

template <auto kValueOf, typename Value>
unsigned list(const rb_node *tree, Value *values, unsigned capacity)
{
    if (values == nullptr) {
        log::report_assertion("data != ((void *)0)", "red_black_tree", __LINE__);
        return 0;
    }
    Listing<Value, kValueOf> listing(values, capacity);
    visit_post_order(root_of(tree), listing);
    return listing.size();
}

// Keys with their data, copied so that the tree may change while they are worked on.
class Snapshot {
public:
    struct Entry {
        uint32_t key_low, key_high;
        void *data;
    };

    Snapshot() = default;
    ~Snapshot() { std::free(entries_); }
    Snapshot(const Snapshot &) = delete;
    Snapshot &operator=(const Snapshot &) = delete;

    // False when out of memory.
    [[nodiscard]] bool take(rb_node *root)
    {
        const size_t nodes = count(root);
        if (nodes == 0) return true;
        entries_ = static_cast<Entry *>(std::malloc(nodes * sizeof(Entry)));
        if (entries_ == nullptr) return false;
        visit_post_order(root, [this](const rb_node &node) {
            if (node.data != nullptr) entries_[size_++] = {node.key_low, node.key_high, node.data};
            return true;
        });
        return true;
    }
    [[nodiscard]] const Entry *begin() const { return entries_; }
    [[nodiscard]] const Entry *end() const { return entries_ + size_; }

private:
    Entry *entries_ = nullptr;
    size_t size_ = 0;
};

// Takes the snapshot under the caller's mutex, if any. 0, or what went wrong as errno has it.
int take_locked(Snapshot &snapshot, rb_node *const *tree, pthread_mutex_t *mutex)
{
    if (mutex != nullptr) {
        const int refused = pthread_mutex_lock(mutex);
        if (refused != 0) return refused;
    }
    const bool taken = snapshot.take(root_of(*tree));
    if (mutex != nullptr) pthread_mutex_unlock(mutex);
    return taken ? 0 : ENOMEM;
}

using Release = void (*)(void *data);

int release_and_delete(rb_node **tree, void *data, void *release, uint32_t low, uint32_t high)
{
    const Release release_data = *static_cast<const Release *>(release);
    if (release_data != nullptr && data != nullptr) release_data(data);
    *tree = rb_delete_node(*tree, low, high);
    return 0;
}

} // namespace
} // namespace vn::red_black_tree

using namespace vn::red_black_tree;

extern "C" {

// --- the map -------------------------------------------------------------------------------------

// The node is made first: a tree that there is no memory for is not touched at all.
rb_node *rb_create_node(rb_node *tree, uint32_t key_low, uint32_t key_high, void *data)
{
    rb_node *const fresh = new_node({key_low, key_high, data, {nullptr, nullptr}, kRed});
    if (fresh != nullptr && tree == nullptr) tree = new_record();
    if (fresh == nullptr || tree == nullptr) {
        std::free(fresh);
        errno = ENOMEM;
        return tree;
    }
    if (!insert(tree->link[0], fresh)) std::free(fresh);
    return tree;
}

rb_node *rb_delete_node(rb_node *tree, uint32_t key_low, uint32_t key_high)
{
    if (root_of(tree) == nullptr) {
        std::free(tree);
        errno = ENOENT;
        return nullptr;
    }
    std::free(remove(tree->link[0], join(key_low, key_high)));
    if (tree->link[0] != nullptr) return tree;
    std::free(tree);
    return nullptr;
}

void *rb_search_tree(rb_node *tree, uint32_t key_low, uint32_t key_high)
{
    const rb_node *const node = find(root_of(tree), join(key_low, key_high));
    if (node != nullptr && node->data != nullptr) return node->data;
    errno = ENOENT;
    return nullptr;
}

unsigned rb_count_nodes(rb_node *tree)
{
    return static_cast<unsigned>(count(root_of(tree)));
}

unsigned rb_get_node_list_data(rb_node *tree, void **data, unsigned capacity)
{
    return list<data_of>(tree, data, capacity);
}

unsigned rb_get_node_list(rb_node *tree, uint64_t *keys, unsigned capacity)
{
    return list<key_of>(tree, keys, capacity);
}

int work_treenode_locked(rb_node **tree, rb_work_fn work, void *arg, pthread_mutex_t *mutex)
{
    if (tree == nullptr || work == nullptr) return 0;
    Snapshot snapshot;
    if (const int error = take_locked(snapshot, tree, mutex)) {
        errno = error;
        return 0;
    }
    int all = 0;
    for (const auto &[low, high, data] : snapshot) all |= work(tree, data, arg, low, high);
    return all;
}

int rb_destroy_tree(rb_node **tree, Release release)
{
    if (tree == nullptr) return 0;
    work_treenode_locked(tree, release_and_delete, &release, nullptr);
    // What is left: nodes without data, nodes that `release` added, and all of them when there was
    // no memory for the walk.
    while (const rb_node *const root = root_of(*tree))
        release_and_delete(tree, root->data, &release, root->key_low, root->key_high);
    std::free(*tree); // a record that never had a root
    *tree = nullptr;
    return 0;
}

// --- plain search trees --------------------------------------------------------------------------

rb_node **generic_find_node(rb_node **root, uint32_t key_low, uint32_t key_high)
{
    const uint64_t key = join(key_low, key_high);
    for (rb_node **link = root; link != nullptr && *link != nullptr;) {
        const uint64_t here = key_of(**link);
        if (here == key) return link;
        link = &(*link)->link[key > here];
    }
    return nullptr;
}

void generic_insert_node(rb_node **root, rb_node *node)
{
    if (root == nullptr || node == nullptr) return;
    rb_node **link = root;
    while (*link != nullptr) link = &(*link)->link[key_of(**link) < key_of(*node)];
    node->link[0] = node->link[1] = nullptr;
    *link = node;
}

void generic_remove_node(rb_node **link)
{
    if (link == nullptr || *link == nullptr) return;
    const rb_node *const node = *link;
    if (node->link[0] == nullptr || node->link[1] == nullptr) {
        *link = node->link[node->link[0] == nullptr];
        return;
    }
    rb_node **rightmost = &(*link)->link[0];
    while ((*rightmost)->link[1] != nullptr) rightmost = &(*rightmost)->link[1];
    rb_node *const heir = *rightmost;
    *rightmost = heir->link[0];
    heir->link[0] = node->link[0]; // read after the heir has gone: it may have been this child
    heir->link[1] = node->link[1];
    *link = heir;
}

void generic_rotate_tree_left(rb_node **link)
{
    if (link != nullptr && *link != nullptr && (*link)->link[1] != nullptr) rotate(*link, false);
}

void generic_rotate_tree_right(rb_node **link)
{
    if (link != nullptr && *link != nullptr && (*link)->link[0] != nullptr) rotate(*link, true);
}

} // extern "C"
