// walks_bench.cpp - the calls that visit a whole queue or tree. No packaged peer has them; their
// rows show how the cost grows with the number of items.
#include <random>
#include <vector>

#include "bench.h"
#include "vnlib/queue.h"
#include "vnlib/red_black_tree.h"

namespace {

int match(void *data, uintptr_t key)
{
    return reinterpret_cast<uintptr_t>(data) == key;
}
int go_on(void *, void *)
{
    return Q_RELEASE_GO_ON;
}
int keep(void *, void *)
{
    return 0;
}
int select_none(void *, void *)
{
    return 0;
}
int work(q_queue *, void *item, void *)
{
    return item != nullptr;
}
void dump_slot(void *, void *, const char *label, q_element *)
{
    benchmark::DoNotOptimize(label);
}
void dump_item(void *, void *, const char *label)
{
    benchmark::DoNotOptimize(label);
}

// `size` slots, all taken, and one list of as many items.
struct Queue {
    explicit Queue(size_t size)
        : queue(q_init(static_cast<unsigned>(size), 1, match, go_on, keep, nullptr))
    {
        for (uintptr_t key = 0; key < size; ++key) {
            q_add_queue(queue, reinterpret_cast<void *>(key + 1), key, nullptr);
            q_add_list(queue, reinterpret_cast<void *>(key + 1), 0, nullptr);
        }
    }
    ~Queue() { q_exit(queue, nullptr); }
    q_queue *queue;
};

// Plain search tree and red-black tree of the same random keys.
struct Trees {
    explicit Trees(size_t size) : nodes(size)
    {
        std::mt19937 random(1);
        for (rb_node &node : nodes) {
            node.key_low = static_cast<uint32_t>(random());
            generic_insert_node(&root, &node);
            tree = rb_create_node(tree, node.key_low, 0, &node);
        }
    }
    ~Trees() { rb_destroy_tree(&tree, nullptr); }
    std::vector<rb_node> nodes;
    rb_node *root = nullptr, *tree = nullptr;
};

int visit(rb_node **, void *, void *, uint32_t, uint32_t)
{
    return 1;
}

template <typename Subject, typename Call>
void add(const char *operation, size_t size, Call call)
{
    benchmark::RegisterBenchmark(bench::row(operation, "vnlib", size).c_str(),
                                 [size, call](benchmark::State &state) {
                                     Subject subject(size);
                                     for (auto _ : state) benchmark::DoNotOptimize(call(subject));
                                 });
}

void add_queue_rows(size_t size)
{
    add<Queue>("q_refer", size, [](Queue &q) { return q_refer(q.queue, 7, 0); });
    add<Queue>("q_queuecount", size, [](Queue &q) { return q_queuecount(q.queue); });
    add<Queue>("q_listcount", size, [](Queue &q) { return q_listcount(q.queue, 0); });
    add<Queue>("q_work_queue", size, [](Queue &q) { return q_work_queue(q.queue, work, nullptr); });
    add<Queue>("q_work_all", size, [](Queue &q) { return q_work_all(q.queue, work, nullptr); });
    add<Queue>("q_dump_queue", size,
               [](Queue &q) { return q_dump_queue(q.queue, dump_slot, nullptr), 0; });
    add<Queue>("q_dump_list", size,
               [](Queue &q) { return q_dump_list(q.queue, 0, dump_item, nullptr), 0; });
    add<Queue>("q_delete", size,
               [](Queue &q) { return q_delete(q.queue, select_none, nullptr, nullptr); });
    add<Queue>("q_clean_list", size, [](Queue &q) { return q_clean_list(q.queue, 0, nullptr); });
    add<Queue>("q_clean_queue_and_refill", size, [size](Queue &q) {
        const int cleaned = q_clean_queue(q.queue, nullptr);
        for (uintptr_t key = 0; key < size; ++key)
            q_add_queue(q.queue, reinterpret_cast<void *>(key + 1), key, nullptr);
        return cleaned;
    });
}

void add_tree_rows(size_t size)
{
    add<Trees>("rb_count_nodes", size, [](Trees &t) { return rb_count_nodes(t.tree); });
    add<Trees>("rb_get_node_list", size, [size](Trees &t) {
        std::vector<uint64_t> keys(size + 1);
        return rb_get_node_list(t.tree, keys.data(), static_cast<unsigned>(size));
    });
    add<Trees>("work_treenode_locked", size,
               [](Trees &t) { return work_treenode_locked(&t.tree, visit, nullptr, nullptr); });
    add<Trees>("rb_destroy_tree_and_refill", size, [](Trees &t) {
        rb_destroy_tree(&t.tree, nullptr);
        for (rb_node &node : t.nodes) t.tree = rb_create_node(t.tree, node.key_low, 0, &node);
        return t.tree;
    });
    add<Trees>("generic_find_node", size,
               [](Trees &t) { return generic_find_node(&t.root, t.nodes.back().key_low, 0); });
    add<Trees>("generic_remove_and_insert", size, [](Trees &t) {
        rb_node &node = t.nodes.back();
        generic_remove_node(generic_find_node(&t.root, node.key_low, 0));
        generic_insert_node(&t.root, &node);
        return t.root;
    });
    add<Trees>("generic_rotate_both_ways", size, [](Trees &t) {
        generic_rotate_tree_left(&t.root);
        generic_rotate_tree_right(&t.root);
        return t.root;
    });
}

bool counts_agree()
{
    Queue queue(100);
    const Trees trees(100);
    return q_queuecount(queue.queue) == 100 && q_listcount(queue.queue, 0) == 100 &&
           rb_count_nodes(trees.tree) == 100;
}

} // namespace

int main(int argc, char **argv)
{
    for (const size_t size : {size_t{100}, size_t{10'000}, size_t{1'000'000}}) add_queue_rows(size);
    for (const size_t size : {size_t{1'000}, size_t{100'000}, size_t{1'000'000}})
        add_tree_rows(size);
    return bench::run(argc, argv, counts_agree);
}
