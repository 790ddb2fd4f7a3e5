#include "vnlib/red_black_tree.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <thread>

namespace {

using Keys = std::vector<uint64_t>;

uint32_t low(uint64_t key)
{
    return static_cast<uint32_t>(key);
}
uint32_t high(uint64_t key)
{
    return static_cast<uint32_t>(key >> 32);
}
uint64_t key_of(const rb_node &node)
{
    return uint64_t{node.key_high} << 32 | node.key_low;
}

void *data_for(uint64_t key)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(key * 2 + 1));
}

rb_node *add(rb_node *tree, uint64_t key)
{
    return rb_create_node(tree, low(key), high(key), data_for(key));
}
rb_node *drop(rb_node *tree, uint64_t key)
{
    return rb_delete_node(tree, low(key), high(key));
}
void *search(rb_node *tree, uint64_t key)
{
    return rb_search_tree(tree, low(key), high(key));
}

rb_node *tree_of(const Keys &keys)
{
    rb_node *tree = nullptr;
    for (const uint64_t key : keys) tree = add(tree, key);
    return tree;
}

void destroy(rb_node *tree)
{
    rb_destroy_tree(&tree, nullptr);
}

Keys listed(rb_node *tree)
{
    Keys keys(rb_count_nodes(tree) + 2);
    keys.resize(rb_get_node_list(tree, keys.data(), static_cast<unsigned>(keys.size() - 1)));
    return keys;
}

// --- the rules, executable -----------------------------------------------------------------------

bool is_red(const rb_node *node)
{
    return node != nullptr && node->colour == 1;
}

// The black height of the tree, or nothing when a rule is broken anywhere below.
std::optional<int> black_height(const rb_node *node)
{
    if (node == nullptr) return 1;
    if (node->colour > 1) return std::nullopt;
    for (const rb_node *child : node->link)
        if (is_red(node) && is_red(child)) return std::nullopt;
    const auto left = black_height(node->link[0]), right = black_height(node->link[1]);
    if (!left || left != right) return std::nullopt;
    return *left + (is_red(node) ? 0 : 1);
}

void in_order(const rb_node *node, std::vector<const rb_node *> &nodes)
{
    if (node == nullptr) return;
    in_order(node->link[0], nodes);
    nodes.push_back(node);
    in_order(node->link[1], nodes);
}

void post_order(const rb_node *node, Keys &keys)
{
    if (node == nullptr) return;
    post_order(node->link[0], keys);
    post_order(node->link[1], keys);
    keys.push_back(key_of(*node));
}

// A red-black tree that holds exactly the keys and data of `model`.
void expect_valid(const rb_node *tree, const std::map<uint64_t, void *> &model)
{
    ASSERT_EQ(tree == nullptr, model.empty());
    if (tree == nullptr) return;
    ASSERT_EQ(tree->key_low, 0u);
    ASSERT_EQ(tree->key_high, 0u);
    ASSERT_EQ(tree->data, nullptr);
    ASSERT_EQ(tree->link[1], nullptr);
    ASSERT_EQ(tree->colour, 0u);
    ASSERT_FALSE(is_red(tree->link[0]));
    ASSERT_TRUE(black_height(tree->link[0]).has_value());
    std::vector<const rb_node *> nodes;
    in_order(tree->link[0], nodes);
    ASSERT_EQ(nodes.size(), model.size());
    size_t next = 0;
    for (const auto &[key, data] : model) {
        ASSERT_EQ(key_of(*nodes[next]), key);
        ASSERT_EQ(nodes[next]->data, data);
        ++next;
    }
}

// --- the same two passes once more, in the plainest words ----------------------------------------
// The shape of a tree shows in every listing, so it is held against this transcript: a false root
// above the root, nodes by their family names, nothing clever.

struct Plain {
    struct Node {
        uint64_t key;
        bool red;
        Node *child[2] = {nullptr, nullptr};
    };
    Node *root = nullptr;

    Plain() = default;
    ~Plain() { free_all(root); }
    Plain(const Plain &) = delete;
    Plain &operator=(const Plain &) = delete;

    static void free_all(Node *node)
    {
        if (node == nullptr) return;
        free_all(node->child[0]);
        free_all(node->child[1]);
        delete node;
    }
    static bool red(const Node *node) { return node != nullptr && node->red; }

    static Node *single(Node *top, int side)
    {
        Node *const risen = top->child[!side];
        top->child[!side] = risen->child[side];
        risen->child[side] = top;
        top->red = true;
        risen->red = false;
        return risen;
    }
    static Node *twice(Node *top, int side)
    {
        top->child[!side] = single(top->child[!side], !side);
        return single(top, side);
    }

    void insert(uint64_t key)
    {
        if (root == nullptr) {
            root = new Node{key, false};
            return;
        }
        Node above{0, false};
        above.child[1] = root;
        Node *great = &above, *grand = nullptr, *parent = nullptr, *at = root;
        for (int side = 0, last = 0;;) {
            if (at == nullptr) {
                at = parent->child[side] = new Node{key, true};
            } else if (red(at->child[0]) && red(at->child[1])) {
                at->red = true;
                at->child[0]->red = at->child[1]->red = false;
            }
            if (red(at) && red(parent)) {
                Node *&hold = great->child[great->child[1] == grand];
                hold = at == parent->child[last] ? single(grand, !last) : twice(grand, !last);
            }
            if (at->key == key) break;
            last = side;
            side = key > at->key;
            if (grand != nullptr) great = grand;
            grand = parent;
            parent = at;
            at = at->child[side];
        }
        root = above.child[1];
        root->red = false;
    }

    void remove(uint64_t key)
    {
        if (root == nullptr) return;
        Node above{0, false};
        above.child[1] = root;
        Node *grand = nullptr, *parent = nullptr, *at = &above, *found = nullptr;
        int side = 1;
        while (at->child[side] != nullptr) {
            const int last = side;
            grand = parent;
            parent = at;
            at = at->child[side];
            side = key > at->key;
            if (at->key == key) found = at;
            if (red(at) || red(at->child[side])) continue;
            if (red(at->child[!side])) {
                parent = parent->child[last] = single(at, side);
                continue;
            }
            Node *const sibling = parent->child[!last];
            if (sibling == nullptr) continue;
            if (!red(sibling->child[0]) && !red(sibling->child[1])) {
                parent->red = false;
                sibling->red = at->red = true;
                continue;
            }
            Node *&hold = grand->child[grand->child[1] == parent];
            hold = red(sibling->child[last]) ? twice(parent, last) : single(parent, last);
            at->red = hold->red = true;
            hold->child[0]->red = hold->child[1]->red = false;
        }
        if (found != nullptr) {
            found->key = at->key;
            parent->child[parent->child[1] == at] = at->child[at->child[0] == nullptr];
            delete at;
        }
        root = above.child[1];
        if (root != nullptr) root->red = false;
    }
};

void expect_same_shape(const rb_node *node, const Plain::Node *plain)
{
    ASSERT_EQ(node == nullptr, plain == nullptr);
    if (node == nullptr) return;
    ASSERT_EQ(key_of(*node), plain->key);
    ASSERT_EQ(node->colour, plain->red ? 1u : 0u);
    expect_same_shape(node->link[0], plain->child[0]);
    expect_same_shape(node->link[1], plain->child[1]);
}

// --- layout --------------------------------------------------------------------------------------

TEST(RbNode, KeepsItsFieldsInOrder)
{
    EXPECT_EQ(offsetof(rb_node, key_low), 0u);
    EXPECT_EQ(offsetof(rb_node, key_high), 4u);
    EXPECT_EQ(offsetof(rb_node, data), 8u);
    EXPECT_EQ(offsetof(rb_node, link), 8 + sizeof(void *));
    EXPECT_EQ(offsetof(rb_node, colour), 8 + 3 * sizeof(void *));
    EXPECT_LE(sizeof(rb_node), sizeof(void *) == 4 ? 24u : 40u);
}

// --- insertion -----------------------------------------------------------------------------------

TEST(RbCreateNode, IntoNoTreeMakesOneWithABlackRoot)
{
    rb_node *const tree = rb_create_node(nullptr, 7, 9, data_for(1));
    ASSERT_NE(tree, nullptr);
    const rb_node *const root = tree->link[0];
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->key_low, 7u);
    EXPECT_EQ(root->key_high, 9u);
    EXPECT_EQ(root->data, data_for(1));
    EXPECT_EQ(root->link[0], nullptr);
    EXPECT_EQ(root->link[1], nullptr);
    EXPECT_EQ(root->colour, 0u);
    EXPECT_EQ(tree->link[1], nullptr);
    EXPECT_EQ(tree->data, nullptr);
    destroy(tree);
}

TEST(RbCreateNode, IntoARecordWithoutARootMakesTheRoot)
{
    auto *const record = static_cast<rb_node *>(calloc(1, sizeof(rb_node)));
    EXPECT_EQ(add(record, 5), record);
    ASSERT_NE(record->link[0], nullptr);
    EXPECT_EQ(record->link[0]->colour, 0u);
    destroy(record);
}

TEST(RbCreateNode, ReturnsTheSameTree)
{
    rb_node *const tree = add(nullptr, 1);
    EXPECT_EQ(add(tree, 2), tree);
    EXPECT_EQ(add(tree, 1), tree);
    destroy(tree);
}

TEST(RbCreateNode, KeepsTheFirstDataOfAKey)
{
    rb_node *tree = tree_of({5, 3, 8});
    tree = rb_create_node(tree, 3, 0, data_for(99));
    EXPECT_EQ(search(tree, 3), data_for(3));
    EXPECT_EQ(rb_count_nodes(tree), 3u);
    destroy(tree);
}

TEST(RbCreateNode, OrdersKeysAs64BitUnsignedNumbers)
{
    const Keys ascending = {
        0,         1, 0xFFFF'FFFF, uint64_t{1} << 32, (uint64_t{1} << 63) - 1, uint64_t{1} << 63,
        UINT64_MAX};
    rb_node *const tree = tree_of({ascending.rbegin(), ascending.rend()});
    std::vector<const rb_node *> nodes;
    in_order(tree->link[0], nodes);
    ASSERT_EQ(nodes.size(), ascending.size());
    for (size_t i = 0; i < nodes.size(); ++i) EXPECT_EQ(key_of(*nodes[i]), ascending[i]);
    destroy(tree);
}

TEST(RbCreateNode, RebalancesOnTheWayDown)
{
    // 3 stands in line below 1 and 2: one rotation. 5 is added below 4 after the flip at 2.
    const struct {
        Keys insertions, post_order;
    } table[] = {
        {{1, 2, 3}, {1, 3, 2}},
        {{3, 2, 1}, {1, 3, 2}},
        {{1, 3, 2}, {1, 3, 2}}, // a bent line: two rotations
        {{3, 1, 2}, {1, 3, 2}},
        {{1, 2, 3, 4}, {1, 4, 3, 2}},
        {{1, 2, 3, 4, 5}, {1, 3, 5, 4, 2}},
        {{1, 2, 3, 4, 5, 6, 7, 8}, {1, 3, 2, 5, 8, 7, 6, 4}},
    };
    for (const auto &[insertions, order] : table) {
        rb_node *const tree = tree_of(insertions);
        EXPECT_EQ(listed(tree), order) << testing::PrintToString(insertions);
        destroy(tree);
    }
}

// --- deletion ------------------------------------------------------------------------------------

TEST(RbDeleteNode, FromNoTreeFailsWithENOENT)
{
    errno = 0;
    EXPECT_EQ(drop(nullptr, 1), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST(RbDeleteNode, FromARecordWithoutARootReleasesItWithENOENT)
{
    errno = 0; // the leak checker watches
    EXPECT_EQ(drop(static_cast<rb_node *>(calloc(1, sizeof(rb_node))), 1), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST(RbDeleteNode, OfTheOnlyKeyReleasesTheTree)
{
    EXPECT_EQ(drop(tree_of({1}), 1), nullptr);
}

TEST(RbDeleteNode, ReturnsTheTreeWhileItHasKeys)
{
    rb_node *const tree = tree_of({1, 2});
    EXPECT_EQ(drop(tree, 1), tree);
    EXPECT_EQ(listed(tree), Keys({2}));
    destroy(tree);
}

TEST(RbDeleteNode, OfAKeyThatIsNotThereKeepsTheContents)
{
    errno = 0;
    std::map<uint64_t, void *> model;
    rb_node *tree = nullptr;
    for (uint64_t key = 0; key < 100; key += 2) {
        tree = add(tree, key);
        model[key] = data_for(key);
    }
    for (uint64_t key = 1; key < 102; key += 2) {
        EXPECT_EQ(drop(tree, key), tree);
        expect_valid(tree, model);
    }
    EXPECT_EQ(errno, 0);
    destroy(tree);
}

TEST(RbDeleteNode, PutsTheNeighbourInOrderIntoThePlaceOfTheKey)
{
    rb_node *const tree = tree_of({1, 2, 3, 4, 5, 6, 7, 8});
    const rb_node *const root = tree->link[0];
    ASSERT_EQ(key_of(*root), 4u);
    drop(tree, 4);
    EXPECT_EQ(tree->link[0], root);
    EXPECT_EQ(key_of(*root), 3u);
    EXPECT_EQ(root->data, data_for(3));
    destroy(tree);
}

TEST(RbDeleteNode, RebalancesOnTheWayDownLikeThePlainTranscript)
{
    std::mt19937_64 random(11);
    for (int life = 0; life < 60; ++life) {
        const uint64_t range = 1 + random() % 400;
        rb_node *tree = nullptr;
        Plain plain;
        for (int step = 0; step < 400; ++step) {
            const uint64_t key = random() % range;
            if (random() % 5 < 3) {
                tree = add(tree, key);
                plain.insert(key);
            } else {
                tree = drop(tree, key); // of a missing key, too: the pass is the same
                plain.remove(key);
            }
            ASSERT_EQ(tree == nullptr, plain.root == nullptr);
            if (tree != nullptr) expect_same_shape(tree->link[0], plain.root);
            if (HasFatalFailure()) return;
        }
        destroy(tree);
    }
}

// A descent that only ever turned right reads ahead in a way of its own, until it turns left.
TEST(RbCreateNode, RebalancesKeysInOrderLikeThePlainTranscript)
{
    std::mt19937_64 random(12);
    for (const unsigned dips : {1000u, 10u, 3u}) { // one key in so many goes back by a few
        rb_node *tree = nullptr;
        Plain plain;
        for (uint64_t key = 1000; key < 1600; key += 2) {
            const uint64_t inserted = random() % dips == 0 ? key - random() % 64 : key;
            tree = add(tree, inserted);
            plain.insert(inserted);
            expect_same_shape(tree->link[0], plain.root);
            if (HasFatalFailure()) return;
        }
        destroy(tree);
    }
}

// --- invariants ----------------------------------------------------------------------------------

void live_beside_a_model(unsigned seed, uint64_t range, int steps)
{
    std::mt19937_64 random(seed);
    rb_node *tree = nullptr;
    std::map<uint64_t, void *> model;
    bool growing = true;
    for (int step = 0; step < steps; ++step) {
        if (step % 500 == 0) growing = random() % 2 == 0;
        const uint64_t key = (random() % range) * 0x1'0000'0001u; // both halves matter
        if (random() % 3 < (growing ? 2u : 1u)) {
            tree = add(tree, key);
            model.emplace(key, data_for(key));
        } else {
            tree = drop(tree, key);
            model.erase(key);
        }
        expect_valid(tree, model);
        ASSERT_EQ(rb_count_nodes(tree), model.size());
        ASSERT_EQ(search(tree, key), model.contains(key) ? data_for(key) : nullptr);
        if (testing::Test::HasFatalFailure()) return;
    }
    destroy(tree);
}

TEST(RbInvariants, HoldAfterEveryOperationOfLongRandomLives)
{
    live_beside_a_model(1, 8, 5000);
    live_beside_a_model(2, 100, 5000);
    live_beside_a_model(3, 2000, 3000);
}

TEST(RbInvariants, HoldAfterEveryOperationInOrder)
{
    const int size = 300;
    for (const bool up : {true, false}) {
        rb_node *tree = nullptr;
        std::map<uint64_t, void *> model;
        for (int i = 0; i < 2 * size; ++i) {
            const auto key = static_cast<uint64_t>(up ? i % size : size - i % size);
            tree = i < size ? add(tree, key) : drop(tree, key);
            if (i < size)
                model[key] = data_for(key);
            else
                model.erase(key);
            expect_valid(tree, model);
        }
        EXPECT_EQ(tree, nullptr);
    }
}

TEST(RbInvariants, HoldForALargeTreeOfLogarithmicHeight)
{
    std::mt19937_64 random(5);
    rb_node *tree = nullptr;
    std::map<uint64_t, void *> model;
    for (int i = 0; i < 50'000; ++i) {
        const uint64_t key = random();
        tree = add(tree, key);
        model[key] = data_for(key);
    }
    expect_valid(tree, model);
    for (int i = 0; i < 49'000; ++i) {
        const uint64_t key = std::next(model.begin(), static_cast<int>(random() % 20))->first;
        tree = drop(tree, key);
        model.erase(key);
    }
    expect_valid(tree, model);
    destroy(tree);
}

// A caller that has built the tree with the generic functions may have left any colours in it.
TEST(RbInvariants, AnyColoursAreSafe)
{
    std::mt19937_64 random(6);
    for (int life = 0; life < 200; ++life) {
        rb_node *tree = tree_of({1000, 2000});
        for (int step = 0; step < 100; ++step) {
            auto *const node = static_cast<rb_node *>(calloc(1, sizeof(rb_node)));
            node->key_low = static_cast<uint32_t>(random() % 3000);
            node->colour = static_cast<uint32_t>(random() % 3);
            generic_insert_node(&tree->link[0], node);
        }
        for (int step = 0; step < 200 && tree != nullptr; ++step) {
            const uint64_t key = random() % 3000;
            tree = random() % 2 == 0 ? add(tree, key) : drop(tree, key);
            std::vector<const rb_node *> nodes;
            in_order(tree->link[0], nodes);
            ASSERT_TRUE(
                std::ranges::is_sorted(nodes, {}, [](const rb_node *n) { return key_of(*n); }));
        }
        destroy(tree);
    }
}

// --- search --------------------------------------------------------------------------------------

TEST(RbSearchTree, FindsTheDataOfAKeyAndLeavesErrno)
{
    rb_node *const tree = tree_of({5, 3, 8, uint64_t{1} << 40});
    errno = 0;
    EXPECT_EQ(search(tree, 8), data_for(8));
    EXPECT_EQ(rb_search_tree(tree, 0, 1 << 8), data_for(uint64_t{1} << 40));
    EXPECT_EQ(errno, 0);
    destroy(tree);
}

TEST(RbSearchTree, ReportsAMissingKeyANullTreeAndNullDataAlike)
{
    rb_node *tree = tree_of({5, 3, 8});
    tree = rb_create_node(tree, 4, 0, nullptr);
    rb_node empty{};
    const struct {
        rb_node *tree;
        uint64_t key;
    } table[] = {{tree, 6}, {tree, 5 + (uint64_t{1} << 32)}, {nullptr, 5}, {&empty, 5}, {tree, 4}};
    for (const auto &[where, key] : table) {
        errno = 0;
        EXPECT_EQ(search(where, key), nullptr);
        EXPECT_EQ(errno, ENOENT);
    }
    destroy(tree);
}

// --- counting and listing ------------------------------------------------------------------------

TEST(RbCountNodes, CountsThem)
{
    rb_node empty{};
    EXPECT_EQ(rb_count_nodes(nullptr), 0u);
    EXPECT_EQ(rb_count_nodes(&empty), 0u);
    rb_node *const tree = tree_of({5, 3, 8, 1});
    EXPECT_EQ(rb_count_nodes(tree), 4u);
    destroy(tree);
}

TEST(RbList, GoesInPostOrder)
{
    rb_node *const tree = tree_of({4, 2, 6, 1, 3, 5, 7});
    const Keys expected = {1, 3, 2, 5, 7, 6, 4};
    EXPECT_EQ(listed(tree), expected);
    std::vector<void *> data(7);
    EXPECT_EQ(rb_get_node_list_data(tree, data.data(), 6), 7u);
    for (size_t i = 0; i < 7; ++i) EXPECT_EQ(data[i], data_for(expected[i]));
    destroy(tree);
}

TEST(RbList, WritesOneEntryMoreThanTheCapacity)
{
    rb_node *const tree = tree_of({2, 1, 3, 4, 5});
    const Keys all = listed(tree);
    for (unsigned capacity = 0; capacity < 8; ++capacity) {
        Keys keys(10, 777);
        std::vector<void *> data(10, data_for(777));
        const unsigned expected = std::min(capacity + 1, 5u);
        EXPECT_EQ(rb_get_node_list(tree, keys.data(), capacity), expected);
        EXPECT_EQ(rb_get_node_list_data(tree, data.data(), capacity), expected);
        for (unsigned i = 0; i < 10; ++i) {
            EXPECT_EQ(keys[i], i < expected ? all[i] : 777);
            EXPECT_EQ(data[i], data_for(i < expected ? all[i] : 777));
        }
    }
    destroy(tree);
}

TEST(RbList, TakesTheLargestCapacity)
{
    rb_node *const tree = tree_of({2, 1, 3});
    Keys keys(4, 777);
    EXPECT_EQ(rb_get_node_list(tree, keys.data(), UINT32_MAX), 3u);
    EXPECT_EQ(keys, Keys({1, 3, 2, 777}));
    destroy(tree);
}

TEST(RbList, IncludesNullData)
{
    rb_node *const tree = rb_create_node(nullptr, 1, 0, nullptr);
    void *data[2] = {tree, tree};
    EXPECT_EQ(rb_get_node_list_data(tree, data, 1), 1u);
    EXPECT_EQ(data[0], nullptr);
    destroy(tree);
}

TEST(RbList, OfAnEmptyTreeIsEmpty)
{
    uint64_t key = 777;
    rb_node empty{};
    EXPECT_EQ(rb_get_node_list(nullptr, &key, 0), 0u);
    EXPECT_EQ(rb_get_node_list(&empty, &key, 0), 0u);
    EXPECT_EQ(key, 777u);
}

TEST(RbList, KeepsTheLowWordOfAKeyFirst)
{
    rb_node *const tree = rb_create_node(nullptr, 0x01020304, 0x05060708, nullptr);
    uint32_t words[2 * 2] = {};
    void *const keys = words;
    EXPECT_EQ(rb_get_node_list(tree, static_cast<uint64_t *>(keys), 0), 1u);
    EXPECT_EQ(words[0], 0x01020304u);
    EXPECT_EQ(words[1], 0x05060708u);
    destroy(tree);
}

// --- trees that are as deep as they are large ----------------------------------------------------

constexpr size_t kDeep = 100'000;

// Nodes of a search tree that lives in one vector below a handle of the test's own.
struct GenericTree {
    std::vector<rb_node> nodes;
    rb_node handle{};

    // Node i gets key_at(i); they are linked by hand where inserting one by one would take for
    // ever.
    explicit GenericTree(size_t size) : nodes(size) {}
    void number()
    {
        for (size_t i = 0; i < nodes.size(); ++i) nodes[i].key_low = static_cast<uint32_t>(i);
    }
    void chain(int side) // each node's only child lies on the given side
    {
        number();
        if (side == 0) std::ranges::reverse(nodes);
        for (size_t i = 0; i + 1 < nodes.size(); ++i) nodes[i].link[side] = &nodes[i + 1];
        handle.link[0] = nodes.data();
    }
    // Alternating sides, and a leaf beside every inner node: nothing about it is regular.
    void zigzag_with_leaves()
    {
        handle.link[0] = nodes.data();
        for (size_t i = 0; i + 2 < nodes.size(); i += 2) {
            const int side = i / 2 % 2 == 0;
            nodes[i].link[side] = &nodes[i + 2];
            nodes[i].link[!side] = &nodes[i + 1];
        }
        number();
    }
};

// The post-order by an independent method: root, right, left, and all that backwards.
Keys backwards_pre_order(const rb_node *root)
{
    Keys keys;
    std::vector<const rb_node *> waiting{root};
    while (!waiting.empty()) {
        const rb_node *const node = waiting.back();
        waiting.pop_back();
        if (node == nullptr) continue;
        keys.push_back(key_of(*node));
        waiting.push_back(node->link[0]);
        waiting.push_back(node->link[1]);
    }
    return {keys.rbegin(), keys.rend()};
}

TEST(RbDeepTree, IsCountedAndListed)
{
    for (const int shape : {0, 1, 2}) {
        GenericTree tree(kDeep + 1);
        if (shape == 2)
            tree.zigzag_with_leaves();
        else
            tree.chain(shape);
        const std::vector<rb_node> before = tree.nodes;
        EXPECT_EQ(rb_count_nodes(&tree.handle), kDeep + 1);
        EXPECT_EQ(listed(&tree.handle), backwards_pre_order(tree.handle.link[0]));
        uint64_t few[6];
        EXPECT_EQ(rb_get_node_list(&tree.handle, few, 5), 6u);
        for (size_t i = 0; i < before.size(); ++i) {
            ASSERT_EQ(tree.nodes[i].link[0], before[i].link[0]);
            ASSERT_EQ(tree.nodes[i].link[1], before[i].link[1]);
        }
    }
}

TEST(RbDeepTree, IsBuiltAndTakenApartWithTheGenericFunctions)
{
    const size_t size = 5000;
    std::vector<rb_node> nodes(size);
    rb_node handle{};
    for (size_t i = 0; i < size; ++i) {
        nodes[i].key_low = static_cast<uint32_t>(i);
        generic_insert_node(&handle.link[0], &nodes[i]);
    }
    EXPECT_EQ(rb_count_nodes(&handle), size);
    EXPECT_EQ(rb_search_tree(&handle, size - 1, 0), nullptr); // found, but without data
    for (size_t i = size; i-- > 0;) {
        rb_node **const link = generic_find_node(&handle.link[0], static_cast<uint32_t>(i), 0);
        ASSERT_NE(link, nullptr);
        generic_remove_node(link);
    }
    EXPECT_EQ(handle.link[0], nullptr);
}

TEST(RbDeepTree, MayBeReadByManyThreads)
{
    GenericTree tree(10'001);
    tree.zigzag_with_leaves();
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i)
        readers.emplace_back([&tree] {
            for (int round = 0; round < 20; ++round)
                EXPECT_EQ(rb_count_nodes(&tree.handle), 10'001u);
        });
    for (std::thread &reader : readers) reader.join();
}

// --- null arrays ---------------------------------------------------------------------------------

TEST(RbList, LogsANullArrayAndReturnsZero)
{
    rb_node *const tree = tree_of({2, 1, 3});
    EXPECT_EQ(rb_get_node_list_data(tree, nullptr, 5), 0u);
    EXPECT_EQ(rb_get_node_list(tree, nullptr, 5), 0u);
    EXPECT_EQ(rb_get_node_list(nullptr, nullptr, 5), 0u);
    destroy(tree);
}

// --- the snapshot walk ---------------------------------------------------------------------------

std::function<int(rb_node **, void *, void *, uint64_t)> work_body;

int work(rb_node **tree, void *data, void *arg, uint32_t key_low, uint32_t key_high)
{
    return work_body(tree, data, arg, uint64_t{key_high} << 32 | key_low);
}

TEST(WorkTreenodeLocked, CallsWorkForEveryNodeInPostOrderAndCombinesTheResults)
{
    rb_node *tree = tree_of({2, 1, uint64_t{3} << 32});
    Keys seen;
    int argument = 0;
    work_body = [&](rb_node **where, void *data, void *arg, uint64_t key) {
        EXPECT_EQ(where, &tree);
        EXPECT_EQ(data, data_for(key));
        EXPECT_EQ(arg, &argument);
        seen.push_back(key);
        return 1 << seen.size();
    };
    EXPECT_EQ(work_treenode_locked(&tree, work, &argument, nullptr), 2 | 4 | 8);
    EXPECT_EQ(seen, Keys({1, uint64_t{3} << 32, 2}));
    destroy(tree);
}

TEST(WorkTreenodeLocked, LeavesOutNodesWithoutData)
{
    rb_node *tree = tree_of({2, 1});
    tree = rb_create_node(tree, 3, 0, nullptr);
    Keys seen;
    work_body = [&](rb_node **, void *, void *, uint64_t key) {
        seen.push_back(key);
        return 0;
    };
    EXPECT_EQ(work_treenode_locked(&tree, work, nullptr, nullptr), 0);
    EXPECT_EQ(seen, Keys({1, 2}));
    destroy(tree);
}

TEST(WorkTreenodeLocked, VisitsTheOnlyNode)
{
    rb_node *tree = tree_of({7});
    work_body = [](rb_node **, void *, void *, uint64_t key) { return static_cast<int>(key); };
    EXPECT_EQ(work_treenode_locked(&tree, work, nullptr, nullptr), 7);
    destroy(tree);
}

TEST(WorkTreenodeLocked, OfNothingIsZero)
{
    rb_node *none = nullptr;
    rb_node record{};
    rb_node *empty = &record;
    rb_node *tree = tree_of({1});
    work_body = [](rb_node **, void *, void *, uint64_t) { return 1; };
    EXPECT_EQ(work_treenode_locked(nullptr, work, nullptr, nullptr), 0);
    EXPECT_EQ(work_treenode_locked(&none, work, nullptr, nullptr), 0);
    EXPECT_EQ(work_treenode_locked(&empty, work, nullptr, nullptr), 0);
    EXPECT_EQ(work_treenode_locked(&tree, nullptr, nullptr, nullptr), 0);
    destroy(tree);
}

TEST(WorkTreenodeLocked, LeavesTheMutexFreeWhileWorkRunsAndAfterwards)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    rb_node *tree = tree_of({1, 2, 3});
    int calls = 0;
    work_body = [&](rb_node **, void *, void *, uint64_t) {
        EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
        pthread_mutex_unlock(&mutex);
        return ++calls;
    };
    EXPECT_EQ(work_treenode_locked(&tree, work, nullptr, &mutex), 1 | 2 | 3);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
    destroy(tree);
}

TEST(WorkTreenodeLocked, TakesTheSnapshotUnderTheMutex)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    rb_node *tree = tree_of({1});
    std::atomic<int> seen = 0;
    work_body = [&](rb_node **, void *, void *, uint64_t) { return ++seen, 0; };
    pthread_mutex_lock(&mutex);
    std::thread walker([&] { work_treenode_locked(&tree, work, nullptr, &mutex); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    for (uint64_t key = 2; key <= 50; ++key) tree = add(tree, key); // the walker has to wait
    pthread_mutex_unlock(&mutex);
    walker.join();
    EXPECT_EQ(seen, 50);
    destroy(tree);
}

TEST(WorkTreenodeLocked, LetsWorkDeleteFromTheTree)
{
    rb_node *tree = tree_of({1, 2, 3, 4, 5, 6, 7, 8, 9});
    Keys seen;
    work_body = [&](rb_node **where, void *, void *, uint64_t key) {
        seen.push_back(key);
        *where = drop(*where, key);
        if (key % 2 == 0) *where = drop(*where, key - 1); // seen already or not: the walk goes on
        return 0;
    };
    work_treenode_locked(&tree, work, nullptr, nullptr);
    EXPECT_EQ(seen.size(), 9u);
    EXPECT_EQ(tree, nullptr);
}

TEST(WorkTreenodeLocked, ReportsAMutexThatCannotBeLocked)
{
    pthread_mutexattr_t checking;
    pthread_mutexattr_init(&checking);
    pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &checking);
    rb_node *tree = tree_of({1});
    work_body = [](rb_node **, void *, void *, uint64_t) { return 1; };
    pthread_mutex_lock(&mutex);
    errno = 0;
    EXPECT_EQ(work_treenode_locked(&tree, work, nullptr, &mutex), 0);
    EXPECT_EQ(errno, EDEADLK);
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0); // still ours
    pthread_mutex_destroy(&mutex);
    pthread_mutexattr_destroy(&checking);
    destroy(tree);
}

// Writers change the tree under the mutex while walkers copy it: ThreadSanitizer watches.
TEST(WorkTreenodeLocked, WorksBesideOtherThreads)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    rb_node *tree = nullptr;
    work_body = [&](rb_node **, void *data, void *, uint64_t key) { return data != data_for(key); };
    std::vector<std::thread> threads;
    for (uint64_t writer = 0; writer < 2; ++writer)
        threads.emplace_back([&, writer] {
            for (uint64_t i = 0; i < 3000; ++i) {
                const uint64_t key = (i * 7919 % 512) * 2 + writer;
                pthread_mutex_lock(&mutex);
                tree = i / 512 % 2 == 0 ? add(tree, key) : drop(tree, key);
                pthread_mutex_unlock(&mutex);
            }
        });
    for (int walker = 0; walker < 2; ++walker)
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i)
                EXPECT_EQ(work_treenode_locked(&tree, work, nullptr, &mutex), 0);
        });
    for (std::thread &thread : threads) thread.join();
    destroy(tree);
}

// --- rb_destroy_tree -----------------------------------------------------------------------------

std::vector<void *> released;
rb_node *under_destruction;

void note_release(void *data)
{
    released.push_back(data);
}

TEST(RbDestroyTree, ReleasesAllDataInPostOrderAndLeavesNull)
{
    rb_node *tree = tree_of({4, 2, 6, 1, 3, 5, 7});
    released.clear();
    EXPECT_EQ(rb_destroy_tree(&tree, note_release), 0);
    EXPECT_EQ(tree, nullptr);
    std::vector<void *> expected;
    for (const uint64_t key : Keys{1, 3, 2, 5, 7, 6, 4}) expected.push_back(data_for(key));
    EXPECT_EQ(released, expected);
}

TEST(RbDestroyTree, AlsoDeletesNodesWithoutData)
{
    rb_node *tree = nullptr;
    for (uint32_t key = 0; key < 20; ++key)
        tree = rb_create_node(tree, key, 0, key % 3 == 0 ? data_for(key) : nullptr);
    released.clear();
    EXPECT_EQ(rb_destroy_tree(&tree, note_release), 0);
    EXPECT_EQ(tree, nullptr);
    EXPECT_EQ(released.size(), 7u);
    EXPECT_EQ(std::ranges::count(released, nullptr), 0);
}

TEST(RbDestroyTree, NeedsNoReleaseFunction)
{
    rb_node *tree = tree_of({4, 2, 6});
    EXPECT_EQ(rb_destroy_tree(&tree, nullptr), 0);
    EXPECT_EQ(tree, nullptr);
}

TEST(RbDestroyTree, OfNothingIsFine)
{
    rb_node *none = nullptr;
    EXPECT_EQ(rb_destroy_tree(nullptr, note_release), 0);
    EXPECT_EQ(rb_destroy_tree(&none, note_release), 0);
    auto *record = static_cast<rb_node *>(calloc(1, sizeof(rb_node)));
    EXPECT_EQ(rb_destroy_tree(&record, note_release), 0);
    EXPECT_EQ(record, nullptr);
}

TEST(RbDestroyTree, ReleasesEachDataBeforeItsNodeGoes)
{
    under_destruction = tree_of({1, 2, 3, 4, 5});
    released.clear();
    rb_destroy_tree(&under_destruction, [](void *data) {
        EXPECT_EQ(rb_count_nodes(under_destruction), 5 - released.size());
        released.push_back(data);
    });
    EXPECT_EQ(released.size(), 5u);
}

TEST(RbDestroyTree, TakesAlongWhatTheReleaseFunctionAdds)
{
    under_destruction = tree_of({1, 2, 3});
    released.clear();
    rb_destroy_tree(&under_destruction, [](void *data) {
        if (data == data_for(3)) under_destruction = add(under_destruction, 9);
        released.push_back(data);
    });
    EXPECT_EQ(under_destruction, nullptr);
    EXPECT_EQ(released.size(), 4u);
    EXPECT_EQ(released.back(), data_for(9));
}

// --- plain search trees --------------------------------------------------------------------------

struct Generic : testing::Test {
    rb_node nodes[16] = {};
    rb_node *root = nullptr;
    size_t used = 0;

    rb_node *insert(uint64_t key)
    {
        rb_node *const node = &nodes[used++];
        node->key_low = low(key);
        node->key_high = high(key);
        generic_insert_node(&root, node);
        return node;
    }
    void insert_all(const Keys &keys)
    {
        for (const uint64_t key : keys) insert(key);
    }
    Keys order() const
    {
        Keys keys;
        post_order(root, keys);
        return keys;
    }
    rb_node **find(uint64_t key) { return generic_find_node(&root, low(key), high(key)); }
};

using GenericFindNode = Generic;
using GenericInsertNode = Generic;
using GenericRemoveNode = Generic;
using GenericRotate = Generic;

TEST_F(GenericFindNode, GivesTheLinkThatHoldsTheNode)
{
    insert_all({5, 3, 8, uint64_t{8} << 32});
    EXPECT_EQ(find(5), &root);
    EXPECT_EQ(find(3), &root->link[0]);
    EXPECT_EQ(find(8), &root->link[1]);
    EXPECT_EQ(find(uint64_t{8} << 32), &root->link[1]->link[1]);
}

TEST_F(GenericFindNode, GivesNullForAMissingKey)
{
    EXPECT_EQ(find(1), nullptr);
    insert_all({5, 3, 8});
    EXPECT_EQ(find(4), nullptr);
    EXPECT_EQ(find(5 + (uint64_t{1} << 32)), nullptr);
    EXPECT_EQ(generic_find_node(nullptr, 1, 0), nullptr);
}

TEST_F(GenericInsertNode, AttachesALeafWithoutRebalancing)
{
    insert_all({1, 2, 3, 4});
    EXPECT_EQ(order(), Keys({4, 3, 2, 1}));
}

TEST_F(GenericInsertNode, PutsEqualKeysToTheLeft)
{
    rb_node *const first = insert(5);
    rb_node *const second = insert(5);
    rb_node *const third = insert(5);
    EXPECT_EQ(root, first);
    EXPECT_EQ(first->link[0], second);
    EXPECT_EQ(second->link[0], third);
    EXPECT_EQ(find(5), &root);
}

TEST_F(GenericInsertNode, MakesALeafOfANodeThatWasElsewhere)
{
    insert_all({5, 3, 8, 1});
    rb_node *const moved = root->link[0]; // 3, which has 1 below it
    generic_remove_node(&root->link[0]);
    generic_insert_node(&root, moved);
    EXPECT_EQ(order(), Keys({3, 1, 8, 5}));
}

TEST_F(GenericInsertNode, LeavesColoursAlone)
{
    nodes[0].colour = 7;
    insert_all({5, 3});
    EXPECT_EQ(nodes[0].colour, 7u);
    EXPECT_EQ(nodes[1].colour, 0u);
}

TEST_F(GenericRemoveNode, TakesOutALeaf)
{
    insert_all({5, 3, 8});
    generic_remove_node(find(3));
    EXPECT_EQ(order(), Keys({8, 5}));
}

TEST_F(GenericRemoveNode, PutsTheOnlyChildInItsPlace)
{
    insert_all({5, 3, 1, 8, 9});
    generic_remove_node(find(3)); // a left child only
    generic_remove_node(find(8)); // a right child only
    EXPECT_EQ(order(), Keys({1, 9, 5}));
    EXPECT_EQ(root->link[0], &nodes[2]);
    EXPECT_EQ(root->link[1], &nodes[4]);
}

TEST_F(GenericRemoveNode, PutsTheRightmostNodeOfTheLeftSubtreeInItsPlace)
{
    insert_all({10, 4, 12, 2, 8, 6});
    generic_remove_node(&root);
    EXPECT_EQ(root, &nodes[4]); // 8, the node itself; its left child 6 moves up
    EXPECT_EQ(order(), Keys({2, 6, 4, 12, 8}));
}

TEST_F(GenericRemoveNode, TakesTheLeftChildWhenThatIsTheRightmost)
{
    insert_all({10, 4, 12, 2});
    generic_remove_node(&root);
    EXPECT_EQ(root, &nodes[1]);
    EXPECT_EQ(order(), Keys({2, 12, 4}));
}

TEST_F(GenericRemoveNode, IgnoresNulls)
{
    generic_remove_node(nullptr);
    generic_remove_node(&root);
    generic_insert_node(nullptr, &nodes[0]);
    generic_insert_node(&root, nullptr);
    EXPECT_EQ(root, nullptr);
}

TEST_F(GenericRotate, LeftBringsUpTheRightChild)
{
    insert_all({2, 1, 4, 3, 5});
    generic_rotate_tree_left(&root);
    EXPECT_EQ(order(), Keys({1, 3, 2, 5, 4}));
}

TEST_F(GenericRotate, RightBringsUpTheLeftChild)
{
    insert_all({4, 2, 5, 1, 3});
    generic_rotate_tree_right(&root);
    EXPECT_EQ(order(), Keys({1, 3, 5, 4, 2}));
}

TEST_F(GenericRotate, RightUndoesLeft)
{
    insert_all({2, 1, 4, 3, 5});
    generic_rotate_tree_left(&root);
    generic_rotate_tree_right(&root);
    EXPECT_EQ(order(), Keys({1, 3, 5, 4, 2}));
}

TEST_F(GenericRotate, DoesNothingWithoutTheChild)
{
    generic_rotate_tree_left(nullptr);
    generic_rotate_tree_right(nullptr);
    generic_rotate_tree_left(&root);
    generic_rotate_tree_right(&root);
    insert(1);
    generic_rotate_tree_left(&root);
    generic_rotate_tree_right(&root);
    EXPECT_EQ(order(), Keys({1}));
}

TEST(GenericModel, AgreesWithAMultimapThroughRandomLives)
{
    std::mt19937 random(9);
    for (int life = 0; life < 20; ++life) {
        std::vector<rb_node> nodes(300);
        rb_node *root = nullptr;
        std::multimap<uint64_t, const rb_node *> model;
        for (rb_node &node : nodes) {
            node.key_low = static_cast<uint32_t>(random() % 50);
            generic_insert_node(&root, &node);
            model.emplace(node.key_low, &node);
            if (rb_node **const link =
                    generic_find_node(&root, static_cast<uint32_t>(random() % 50), 0)) {
                if (random() % 2 == 0) generic_rotate_tree_left(link);
                if (random() % 2 == 0) generic_rotate_tree_right(link);
                const auto [first, last] = model.equal_range((*link)->key_low);
                model.erase(
                    std::find_if(first, last, [&](const auto &e) { return e.second == *link; }));
                generic_remove_node(link);
            }
            std::vector<const rb_node *> found;
            in_order(root, found);
            ASSERT_EQ(found.size(), model.size());
            size_t next = 0;
            for (const auto &[key, ignored] : model) ASSERT_EQ(found[next++]->key_low, key);
        }
    }
}

} // namespace
