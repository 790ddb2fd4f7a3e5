// The queue beside what a program would put together instead: std::unordered_map for the slots with
// std::list for the lists, and GLib's GHashTable with GQueue. All items are addressed by key, and
// searches in lists ask a callback through a pointer, as ours does.
#include "bench.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <list>
#include <malloc.h>
#include <random>
#include <unordered_map>
#include <vector>

#include "vnlib/queue.h"

#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif

namespace {

using Match = int (*)(void *data, uintptr_t key);

void *item(uintptr_t key)
{
    return reinterpret_cast<void *>(key + 1);
}

int match(void *data, uintptr_t key)
{
    return data == item(key);
}

Match volatile the_match = match; // what a library cannot know when it is compiled

int add_up(void *data, uintptr_t *sum)
{
    *sum += reinterpret_cast<uintptr_t>(data);
    return 0;
}

// Every peer has slots for `size` keys and two lists.

struct Vnlib {
    static constexpr const char *kName = "vnlib";
    q_queue *queue;

    explicit Vnlib(size_t size)
        : queue(q_init(static_cast<unsigned>(size), 2, the_match, release, nullptr, nullptr))
    {
    }
    ~Vnlib() { q_exit(queue, nullptr); }
    static int release(void *, void *) { return Q_RELEASE_FREE; }
    void add(uintptr_t key) { q_add_queue(queue, item(key), key, nullptr); }
    void append(uintptr_t key) { q_add_list(queue, item(key), 0, nullptr); }
    void to_list(uintptr_t key) { q_q2l(queue, 0, key); }
    void *find(uintptr_t key) { return q_refer(queue, key, Q_REFER_NO_LISTS); }
    void *find_in_list(uintptr_t key) { return q_refer_list(queue, 0, key); }
    bool to_other_list(uintptr_t key) { return q_l2l(queue, 0, 1, key) == 0; }
    bool remove_from_other_list(uintptr_t key)
    {
        return q_delete_list(queue, 1, is, item(key), nullptr) == Q_RELEASE_FREE;
    }
    static int is(void *data, void *wanted) { return data == wanted; }
    uintptr_t sum()
    {
        uintptr_t sum = 0;
        q_work_list(
            queue, 0,
            [](q_queue *, void *data, void *out) {
                return add_up(data, static_cast<uintptr_t *>(out));
            },
            &sum);
        return sum;
    }
};

struct Std {
    static constexpr const char *kName = "std";
    std::unordered_map<uintptr_t, void *> slots;
    std::list<void *> lists[2];
    Match match = the_match;

    explicit Std(size_t size) { slots.reserve(size); }
    void add(uintptr_t key) { slots.emplace(key, item(key)); }
    void append(uintptr_t key) { lists[0].push_back(item(key)); }
    void to_list(uintptr_t key)
    {
        const auto at = slots.find(key);
        lists[0].push_back(at->second);
        slots.erase(at);
    }
    void *find(uintptr_t key)
    {
        const auto at = slots.find(key);
        return at != slots.end() ? at->second : nullptr;
    }
    auto position(std::list<void *> &list, uintptr_t key)
    {
        return std::find_if(list.begin(), list.end(),
                            [&](void *data) { return match(data, key) != 0; });
    }
    void *find_in_list(uintptr_t key)
    {
        const auto at = position(lists[0], key);
        return at != lists[0].end() ? *at : nullptr;
    }
    bool to_other_list(uintptr_t key)
    {
        const auto at = position(lists[0], key);
        if (at == lists[0].end()) return false;
        lists[1].splice(lists[1].end(), lists[0], at);
        return true;
    }
    bool remove_from_other_list(uintptr_t key)
    {
        const auto at = position(lists[1], key);
        if (at == lists[1].end()) return false;
        lists[1].erase(at);
        return true;
    }
    uintptr_t sum()
    {
        uintptr_t sum = 0;
        int (*volatile work)(void *, uintptr_t *) = add_up;
        for (void *const data : lists[0]) work(data, &sum);
        return sum;
    }
};

#ifdef VN_BENCH_GLIB
struct Glib {
    static constexpr const char *kName = "glib";
    GHashTable *slots = g_hash_table_new(g_direct_hash, g_direct_equal);
    GQueue lists[2] = {G_QUEUE_INIT, G_QUEUE_INIT};

    explicit Glib(size_t) {}
    ~Glib()
    {
        g_hash_table_destroy(slots);
        for (GQueue &list : lists) g_queue_clear(&list);
    }
    static gint differs(gconstpointer data, gconstpointer key)
    {
        return match(const_cast<gpointer>(data), reinterpret_cast<uintptr_t>(key)) == 0;
    }
    static gpointer pointer(uintptr_t key) { return reinterpret_cast<gpointer>(key); }
    void add(uintptr_t key) { g_hash_table_insert(slots, pointer(key), item(key)); }
    void append(uintptr_t key) { g_queue_push_tail(&lists[0], item(key)); }
    void to_list(uintptr_t key)
    {
        gpointer data;
        g_hash_table_steal_extended(slots, pointer(key), nullptr, &data);
        g_queue_push_tail(&lists[0], data);
    }
    void *find(uintptr_t key) { return g_hash_table_lookup(slots, pointer(key)); }
    void *find_in_list(uintptr_t key)
    {
        const GList *const at = g_queue_find_custom(&lists[0], pointer(key), differs);
        return at != nullptr ? at->data : nullptr;
    }
    bool to_other_list(uintptr_t key)
    {
        GList *const at = g_queue_find_custom(&lists[0], pointer(key), differs);
        if (at == nullptr) return false;
        g_queue_unlink(&lists[0], at);
        g_queue_push_tail_link(&lists[1], at);
        return true;
    }
    bool remove_from_other_list(uintptr_t key)
    {
        GList *const at = g_queue_find_custom(&lists[1], pointer(key), differs);
        if (at == nullptr) return false;
        g_queue_delete_link(&lists[1], at);
        return true;
    }
    uintptr_t sum()
    {
        uintptr_t sum = 0;
        g_queue_foreach(
            &lists[0],
            [](gpointer data, gpointer out) { add_up(data, static_cast<uintptr_t *>(out)); }, &sum);
        return sum;
    }
};
#endif

// --- agreement -----------------------------------------------------------------------------------

// One whole life; returns what it saw.
template <typename Queue>
uintptr_t life(size_t size)
{
    Queue queue(size);
    uintptr_t seen = 0;
    for (uintptr_t key = 0; key < size; ++key) queue.add(key);
    for (uintptr_t key = 0; key < size; ++key) seen += queue.find(key) == item(key);
    for (uintptr_t key = 0; key < size; ++key) queue.to_list(key);
    seen = seen * 31 + queue.sum();
    for (uintptr_t key = 0; key < size; ++key) seen = seen * 31 + queue.to_other_list(key);
    for (uintptr_t key = 0; key < size; ++key) seen = seen * 31 + queue.remove_from_other_list(key);
    return seen * 31 + queue.sum() + (queue.find_in_list(0) != nullptr);
}

bool peers_agree()
{
    const uintptr_t seen = life<Vnlib>(1000);
    return seen == life<Std>(1000)
#ifdef VN_BENCH_GLIB
           && seen == life<Glib>(1000)
#endif
        ;
}

// --- rows ----------------------------------------------------------------------------------------

// An item's whole way: into its slot, found there, to a list, to the other list, deleted.
template <typename Queue>
void life_cycle(benchmark::State &state, size_t size)
{
    for (auto _ : state) benchmark::DoNotOptimize(life<Queue>(size));
}

template <typename Queue>
void find_in_slots(benchmark::State &state, size_t size)
{
    Queue queue(size);
    for (uintptr_t key = 0; key < size; ++key) queue.add(key);
    std::vector<uintptr_t> keys(size);
    for (uintptr_t key = 0; key < size; ++key) keys[key] = key;
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    for (auto _ : state)
        for (const uintptr_t key : keys) benchmark::DoNotOptimize(queue.find(key));
}

template <typename Queue>
void find_in_list(benchmark::State &state, size_t size)
{
    Queue queue(1);
    for (uintptr_t key = 0; key < size; ++key) queue.append(key);
    for (auto _ : state) benchmark::DoNotOptimize(queue.find_in_list(size - 1));
}

template <typename Queue>
void walk(benchmark::State &state, size_t size)
{
    Queue queue(1);
    for (uintptr_t key = 0; key < size; ++key) queue.append(key);
    for (auto _ : state) benchmark::DoNotOptimize(queue.sum());
}

template <typename Queue>
void append(benchmark::State &state, size_t size)
{
    for (auto _ : state) {
        Queue queue(1);
        for (uintptr_t key = 0; key < size; ++key) queue.append(key);
    }
}

// Whatever rows ran before: they leave blocks of an element's size free all over the heap, and a
// list of those would be walked in another order than one of GLib's, which has an allocator of its
// own. A request for a large block makes malloc merge the small ones first.
void put_heap_in_order()
{
    constexpr size_t kLarge = 4096;
    void *volatile block = std::malloc(kLarge);
    std::free(block);
}

template <typename Queue>
void register_rows(size_t size)
{
    const struct {
        const char *operation;
        void (*row)(benchmark::State &, size_t);
    } rows[] = {{"life_cycle", life_cycle<Queue>},
                {"find_in_slots", find_in_slots<Queue>},
                {"find_in_list", find_in_list<Queue>},
                {"walk", walk<Queue>},
                {"append_and_exit", append<Queue>}};
    for (const auto &[operation, row] : rows)
        benchmark::RegisterBenchmark(bench::row(operation, Queue::kName, size).c_str(),
                                     [row, size](benchmark::State &state) {
                                         put_heap_in_order();
                                         row(state, size);
                                         state.SetItemsProcessed(state.iterations() *
                                                                 static_cast<int64_t>(size));
                                     });
}

} // namespace

int main(int argc, char **argv)
{
    mallopt(M_TRIM_THRESHOLD,
            INT_MAX); // GLib's allocator gives no memory back to the kernel either
    for (const size_t size : {100u, 10'000u, 1'000'000u}) {
        register_rows<Vnlib>(size);
        register_rows<Std>(size);
#ifdef VN_BENCH_GLIB
        register_rows<Glib>(size);
#endif
    }
    return bench::run(argc, argv, peers_agree);
}
