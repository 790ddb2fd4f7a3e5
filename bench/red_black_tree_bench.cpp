// The red-black tree beside std::map, Boost.Intrusive's rbtree (nodes from malloc, like ours) and
// GLib's balanced tree. Each
// row works through all keys once per iteration.
#include "bench.h"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <map>
#include <random>
#include <vector>

#include "vnlib/red_black_tree.h"

#if __has_include(<boost/intrusive/rbtree.hpp>)
#include <boost/intrusive/rbtree.hpp>
#define VN_BENCH_BOOST 1
#endif
#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif

namespace {

using Keys = std::vector<uint64_t>;

// Every peer maps a key to a pointer made of it, and lists its keys in its own natural order.
void *data_for(uint64_t key)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(key | 1));
}

struct Vnlib {
    static constexpr const char *kName = "vnlib";
    rb_node *tree = nullptr;

    ~Vnlib() { rb_destroy_tree(&tree, nullptr); }
    static uint32_t low(uint64_t key) { return static_cast<uint32_t>(key); }
    static uint32_t high(uint64_t key) { return static_cast<uint32_t>(key >> 32); }
    void insert(uint64_t key) { tree = rb_create_node(tree, low(key), high(key), data_for(key)); }
    void erase(uint64_t key) { tree = rb_delete_node(tree, low(key), high(key)); }
    void *find(uint64_t key) { return rb_search_tree(tree, low(key), high(key)); }
    size_t list(uint64_t *keys, size_t size)
    {
        return rb_get_node_list(tree, keys, static_cast<unsigned>(size - 1));
    }
};

struct StdMap {
    static constexpr const char *kName = "std_map";
    std::map<uint64_t, void *> map;

    void insert(uint64_t key) { map.emplace(key, data_for(key)); }
    void erase(uint64_t key) { map.erase(key); }
    void *find(uint64_t key)
    {
        const auto at = map.find(key);
        return at != map.end() ? at->second : nullptr;
    }
    size_t list(uint64_t *keys, size_t)
    {
        size_t next = 0;
        for (const auto &[key, data] : map) keys[next++] = key;
        return next;
    }
};

#ifdef VN_BENCH_BOOST
struct Boost {
    static constexpr const char *kName = "boost_intrusive";
    struct Node : boost::intrusive::set_base_hook<> {
        Node(uint64_t k, void *d) : key(k), data(d) {}
        uint64_t key;
        void *data;
    };
    struct KeyOf {
        using type = uint64_t;
        const uint64_t &operator()(const Node &node) const { return node.key; }
    };
    boost::intrusive::rbtree<Node, boost::intrusive::key_of_value<KeyOf>> tree;

    ~Boost() { tree.clear_and_dispose(dispose); }
    static void dispose(Node *node) { delete node; }
    void insert(uint64_t key)
    {
        auto *const node = new Node(key, data_for(key));
        if (!tree.insert_unique(*node).second) dispose(node);
    }
    void erase(uint64_t key)
    {
        const auto at = tree.find(key);
        if (at != tree.end()) tree.erase_and_dispose(at, dispose);
    }
    void *find(uint64_t key)
    {
        const auto at = tree.find(key);
        return at != tree.end() ? at->data : nullptr;
    }
    size_t list(uint64_t *keys, size_t)
    {
        size_t next = 0;
        for (const Node &node : tree) keys[next++] = node.key;
        return next;
    }
};
#endif

#ifdef VN_BENCH_GLIB
struct Glib {
    static constexpr const char *kName = "gtree";
    GTree *tree = g_tree_new(compare);

    ~Glib() { g_tree_destroy(tree); }
    static gint compare(gconstpointer a, gconstpointer b) { return a < b ? -1 : a > b; }
    static gpointer key(uint64_t key)
    {
        return reinterpret_cast<gpointer>(static_cast<uintptr_t>(key));
    }
    void insert(uint64_t k) { g_tree_insert(tree, key(k), data_for(k)); }
    void erase(uint64_t k) { g_tree_remove(tree, key(k)); }
    void *find(uint64_t k) { return g_tree_lookup(tree, key(k)); }
    size_t list(uint64_t *keys, size_t)
    {
        uint64_t *next = keys;
        g_tree_foreach(
            tree,
            [](gpointer k, gpointer, gpointer out) -> gboolean {
                *(*static_cast<uint64_t **>(out))++ = reinterpret_cast<uintptr_t>(k);
                return FALSE;
            },
            &next);
        return static_cast<size_t>(next - keys);
    }
};
#endif

Keys random_keys(size_t size, uint64_t seed)
{
    std::mt19937_64 random(seed);
    Keys keys(size);
    for (uint64_t &key : keys) key = random();
    return keys;
}

Keys shuffled(Keys keys, uint64_t seed)
{
    std::shuffle(keys.begin(), keys.end(), std::mt19937_64(seed));
    return keys;
}

template <typename Map>
void fill(Map &map, const Keys &keys)
{
    for (const uint64_t key : keys) map.insert(key);
}

// --- agreement -----------------------------------------------------------------------------------

template <typename Map>
bool behaves_like_std_map()
{
    Map map;
    StdMap model;
    const Keys keys = random_keys(5000, 1);
    fill(map, keys);
    fill(model, keys);
    for (size_t i = 0; i < keys.size(); i += 3) map.erase(keys[i]), model.erase(keys[i]);
    for (const uint64_t key : keys)
        if (map.find(key) != model.find(key)) return false;
    Keys listed(keys.size()), expected(keys.size());
    listed.resize(map.list(listed.data(), keys.size()));
    expected.resize(model.list(expected.data(), keys.size()));
    std::sort(listed.begin(), listed.end());
    return listed == expected;
}

bool peers_agree()
{
    return behaves_like_std_map<Vnlib>()
#ifdef VN_BENCH_BOOST
           && behaves_like_std_map<Boost>()
#endif
#ifdef VN_BENCH_GLIB
           && behaves_like_std_map<Glib>()
#endif
        ;
}

// --- rows ----------------------------------------------------------------------------------------
// Each iteration has keys or an order of its own. With the same ones again and again a processor
// remembers which way every search of a small tree turns, which no program's keys let it do.

template <typename Map>
void insert(benchmark::State &state, size_t size)
{
    for (uint64_t seed = 0; auto _ : state) {
        const Keys keys = random_keys(size, ++seed);
        Map map;
        const auto before = static_cast<double>(mallinfo2().uordblks);
        bench::time(state, [&] { fill(map, keys); });
        state.counters["heap_bytes_per_node"] =
            (static_cast<double>(mallinfo2().uordblks) - before) / static_cast<double>(size);
    }
}

template <typename Map>
void insert_ascending(benchmark::State &state, size_t size)
{
    for (uint64_t seed = 0; auto _ : state) {
        Keys keys = random_keys(size, ++seed);
        std::sort(keys.begin(), keys.end());
        Map map;
        bench::time(state, [&] { fill(map, keys); });
    }
}

template <typename Map>
void erase(benchmark::State &state, size_t size)
{
    for (uint64_t seed = 0; auto _ : state) {
        const Keys keys = random_keys(size, ++seed);
        const Keys order = shuffled(keys, seed);
        Map map;
        fill(map, keys);
        bench::time(state, [&] {
            for (const uint64_t key : order) map.erase(key);
        });
    }
}

template <typename Map>
void find(benchmark::State &state, size_t size)
{
    const Keys keys = random_keys(size, 1);
    Map map;
    fill(map, keys);
    for (uint64_t seed = 0; auto _ : state) {
        const Keys order = shuffled(keys, ++seed);
        bench::time(state, [&] {
            for (const uint64_t key : order) benchmark::DoNotOptimize(map.find(key));
        });
    }
}

template <typename Map>
void list(benchmark::State &state, size_t size)
{
    Map map;
    fill(map, random_keys(size, 1));
    Keys listed(size);
    for (auto _ : state)
        bench::time(state, [&] {
            benchmark::DoNotOptimize(map.list(listed.data(), listed.size()));
            benchmark::ClobberMemory();
        });
}

template <typename Map>
void register_rows(size_t size, const std::string &suffix = "")
{
    const struct {
        const char *operation;
        void (*row)(benchmark::State &, size_t);
    } rows[] = {{"insert", insert<Map>},
                {"insert_ascending", insert_ascending<Map>},
                {"erase", erase<Map>},
                {"find", find<Map>},
                {"list", list<Map>}};
    for (const auto &[operation, row] : rows)
        benchmark::RegisterBenchmark(bench::row(operation + suffix, Map::kName, size).c_str(),
                                     [row, size](benchmark::State &state) {
                                         row(state, size);
                                         state.SetItemsProcessed(state.iterations() *
                                                                 static_cast<int64_t>(size));
                                     })
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
}

} // namespace

int main(int argc, char **argv)
{
    for (const size_t size : {1'000u, 10'000u, 100'000u, 1'000'000u}) {
        register_rows<Vnlib>(size);
        register_rows<StdMap>(size);
#ifdef VN_BENCH_BOOST
        register_rows<Boost>(size);
#endif
#ifdef VN_BENCH_GLIB
        register_rows<Glib>(size);
#endif
    }
    for (const size_t size : {1'000u, 10'000u, 100'000u, 1'000'000u, 10'000'000u})
        register_rows<Vnlib>(size, "_growth");
    return bench::run(argc, argv, peers_agree);
}
