// Memory that runs out, and what the library says to its log.
#include "vnlib/red_black_tree.h"

#include "support/fault_alloc.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <regex>

#include "red_black_tree/post_order.h"
#include "vnlib/log.h"

namespace {

std::vector<std::string> logged;

} // namespace

extern "C" void __wrap___vn_log(int level, const char *format, ...) VN_PRINTF(2, 3);

void __wrap___vn_log(int level, const char *format, ...)
{
    char text[256];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    logged.push_back(std::to_string(level) + " " + text);
}

namespace {

int data;

rb_node *tree_of(uint32_t size)
{
    rb_node *tree = nullptr;
    for (uint32_t key = 0; key < size; ++key) tree = rb_create_node(tree, key, 0, &data);
    return tree;
}

std::vector<uint64_t> listed(rb_node *tree)
{
    std::vector<uint64_t> keys(rb_count_nodes(tree) + 1);
    keys.resize(rb_get_node_list(tree, keys.data(), static_cast<unsigned>(keys.size() - 1)));
    return keys;
}

int count_call(rb_node **, void *, void *calls, uint32_t, uint32_t)
{
    ++*static_cast<int *>(calls);
    return 1;
}

TEST(RbFault, CreatingATreeFailsWithENOMEMAndKeepsNothing)
{
    const size_t failures = fault::for_each_failing_allocation([] {
        errno = 0;
        rb_node *tree = rb_create_node(nullptr, 1, 0, &data);
        if (tree == nullptr) {
            EXPECT_EQ(errno, ENOMEM);
        }
        rb_destroy_tree(&tree, nullptr);
    });
    EXPECT_GE(failures, 2u);
}

TEST(RbFault, InsertingReturnsTheTreeUntouchedWhenOutOfMemory)
{
    for (uint32_t size = 1; size < 70; ++size) {
        rb_node *tree = tree_of(size);
        const std::vector<uint64_t> before = listed(tree);
        {
            const fault::FailAllocations plan(1);
            errno = 0;
            EXPECT_EQ(rb_create_node(tree, size, 0, &data), tree);
            EXPECT_EQ(errno, ENOMEM);
        }
        EXPECT_EQ(listed(tree), before);
        rb_destroy_tree(&tree, nullptr);
    }
}

TEST(RbFault, InsertingIntoARecordWithoutARootLeavesItEmpty)
{
    rb_node record{};
    const fault::FailAllocations plan(1);
    EXPECT_EQ(rb_create_node(&record, 1, 0, &data), &record);
    EXPECT_EQ(record.link[0], nullptr);
}

TEST(RbFault, ANodeCostsOneAllocation)
{
    rb_node *tree = tree_of(1);
    const size_t before = fault::allocations_made();
    for (uint32_t key = 1; key <= 100; ++key) rb_create_node(tree, key, 0, &data);
    EXPECT_EQ(fault::allocations_made() - before, 100u);
    for (uint32_t key = 1; key <= 50; ++key) rb_delete_node(tree, key, 0);
    rb_search_tree(tree, 70, 0);
    rb_count_nodes(tree);
    EXPECT_EQ(fault::allocations_made() - before, 100u);
    rb_destroy_tree(&tree, nullptr);
}

TEST(RbFault, WalkingFailsWithENOMEMAndLeavesTheMutexFree)
{
    rb_node *tree = tree_of(5);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    int calls = 0;
    {
        const fault::FailAllocations plan(1);
        errno = 0;
        EXPECT_EQ(work_treenode_locked(&tree, count_call, &calls, &mutex), 0);
        EXPECT_EQ(errno, ENOMEM);
    }
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
    rb_destroy_tree(&tree, nullptr);
}

int releases;

TEST(RbFault, DestroyingReleasesEverythingAlsoWhenOutOfMemory)
{
    rb_node *tree = tree_of(40);
    tree = rb_create_node(tree, 100, 0, nullptr);
    releases = 0;
    {
        const fault::FailAllocations plan(1, 1000);
        EXPECT_EQ(rb_destroy_tree(&tree, [](void *) { ++releases; }), 0);
    }
    EXPECT_EQ(tree, nullptr);
    EXPECT_EQ(releases, 40);
}

// Deeper than a red-black tree can be, so that the path asks for heap memory.
struct DeepTree {
    std::vector<rb_node> nodes;
    rb_node handle{};

    explicit DeepTree(int shape) : nodes(2001)
    {
        for (size_t i = 0; i < nodes.size(); ++i) nodes[i].key_low = static_cast<uint32_t>(i);
        handle.link[0] = nodes.data();
        for (size_t i = 0; i + 2 < nodes.size(); i += 2) {
            const bool side = shape == 2 ? i / 2 % 2 == 0 : shape == 1;
            nodes[i].link[side] = &nodes[i + 2];
            nodes[i].link[!side] = &nodes[i + 1];
        }
    }
};

TEST(RbFault, DeepTreesAreListedRightWhateverAllocationFails)
{
    for (const int shape : {0, 1, 2}) {
        DeepTree tree(shape);
        const DeepTree pristine(shape);
        const std::vector<uint64_t> expected = listed(&tree.handle);
        ASSERT_EQ(expected.size(), 2001u);
        std::vector<uint64_t> keys(2001);
        for (const size_t first : {1u, 2u, 3u}) {
            const fault::FailAllocations plan(first, 1000);
            errno = 0;
            EXPECT_EQ(rb_count_nodes(&tree.handle), 2001u);
            EXPECT_EQ(rb_get_node_list(&tree.handle, keys.data(), 2000), 2001u);
            EXPECT_EQ(keys, expected);
            keys.assign(2001, 7);
            EXPECT_EQ(rb_get_node_list(&tree.handle, keys.data(), 9), 10u);
            EXPECT_EQ(keys[9], expected[9]);
            EXPECT_EQ(keys[10], 7u);
            EXPECT_EQ(errno, 0);
            EXPECT_GE(plan.failed(), 1u);
        }
        for (size_t i = 0; i < tree.nodes.size(); ++i) {
            for (const int side : {0, 1}) {
                const rb_node *const link = pristine.nodes[i].link[side];
                const rb_node *const same =
                    link == nullptr ? nullptr : tree.nodes.data() + (link - pristine.nodes.data());
                ASSERT_EQ(tree.nodes[i].link[side], same);
            }
            ASSERT_EQ(tree.nodes[i].colour, 0u);
        }
    }
}

// The walk of a build for size, which calls its visitors through a pointer.
TEST(RbWalk, AnyVisitorSeesTheSameNodes)
{
    for (const int shape : {0, 1, 2}) {
        DeepTree tree(shape);
        const std::vector<uint64_t> expected = listed(&tree.handle);
        for (const size_t wanted : {size_t{1}, size_t{1000}, expected.size() + 1}) {
            std::vector<uint64_t> seen;
            auto visit = [&](const rb_node &node) {
                seen.push_back(node.key_low);
                return seen.size() < wanted;
            };
            vn::red_black_tree::walk_post_order(tree.handle.link[0],
                                                vn::red_black_tree::AnyVisit(visit));
            EXPECT_EQ(seen.size(), std::min(wanted, expected.size()));
            EXPECT_TRUE(std::equal(seen.begin(), seen.end(), expected.begin()));
        }
    }
}

TEST(RbFault, ANullArrayIsLoggedWithTheNameOfTheFileAndALine)
{
    rb_node *tree = tree_of(3);
    logged.clear();
    EXPECT_EQ(rb_get_node_list_data(tree, nullptr, 5), 0u);
    EXPECT_EQ(rb_get_node_list(tree, nullptr, 5), 0u);
    EXPECT_EQ(rb_get_node_list(nullptr, nullptr, 5), 0u);
    ASSERT_EQ(logged.size(), 3u);
    const std::regex line(R"(3 assert data != \(\(void \*\)0\) red_black_tree:[1-9][0-9]*)");
    for (const std::string &text : logged) EXPECT_TRUE(std::regex_match(text, line)) << text;
    rb_destroy_tree(&tree, nullptr);
}

} // namespace
