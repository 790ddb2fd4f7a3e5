// list_sort_bench.cpp - sorting a list of random keys, beside std::list::sort, g_list_sort and a
// bottom-up merge sort of the same links, as operating system kernels have it. Everyone asks a
// comparison through a pointer; g_list_sort and std::list have the key in the node or behind it.
#include "vnlib/list_sort.h"

#include <algorithm>
#include <cstddef>
#include <list>
#include <memory>
#include <random>
#include <vector>

#include "bench.h"

#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif

namespace {

using Keys = std::vector<uint64_t>;

struct Item {
    list_link link;
    uint64_t key;
};

const Item &item_of(const list_link *link)
{
    return *reinterpret_cast<const Item *>(link);
}

// Positive when `a` goes first.
int compare_links(list_link *a, list_link *b)
{
    return item_of(a).key < item_of(b).key ? 1 : item_of(a).key > item_of(b).key ? -1 : 0;
}

using CompareLinks = int (*)(list_link *, list_link *);
CompareLinks volatile the_comparison = compare_links; // what no sort knows when it is compiled

// --- a bottom-up merge sort
// ------------------------------------------------------------------------
//
// Sorted runs wait on a stack that is threaded through their first items' prev links. Two runs of
// the same length are merged as soon as as many items follow them: runs are then merged while they
// are in the cache, and never less than 2 : 1 in length.

list_link *merge(CompareLinks compare, list_link *a, list_link *b)
{
    list_link *merged = nullptr;
    list_link **tail = &merged;
    for (;;) {
        list_link *&first = compare(b, a) > 0 ? b : a; // of equal ones that of `a`
        *tail = first;
        tail = &first->next;
        first = first->next;
        if (first == nullptr) break;
    }
    *tail = a != nullptr ? a : b;
    return merged;
}

void bottom_up_sort(list_link *head, CompareLinks compare)
{
    list_link *rest = head->next;
    if (rest == head) return;
    head->prev->next = nullptr;
    list_link *waiting = nullptr;
    for (size_t count = 0; rest != nullptr; ++count) {
        list_link **run = &waiting;
        size_t bits = count;
        for (; (bits & 1) != 0; bits >>= 1) run = &(*run)->prev;
        if (bits != 0) {
            list_link *const newer = *run;
            list_link *const older = newer->prev;
            list_link *const below = older->prev;
            list_link *const merged = merge(compare, older, newer);
            merged->prev = below;
            *run = merged;
        }
        rest->prev = waiting;
        waiting = rest;
        rest = rest->next;
        waiting->next = nullptr;
    }
    list_link *merged = waiting;
    for (list_link *older = waiting->prev; older != nullptr;) {
        list_link *const below = older->prev;
        merged = merge(compare, older, merged);
        older = below;
    }
    list_link *previous = head;
    for (list_link *link = merged; link != nullptr; link = link->next) {
        previous->next = link;
        link->prev = previous;
        previous = link;
    }
    previous->next = head;
    head->prev = previous;
}

// --- the peers
// -------------------------------------------------------------------------------------

// The items lie one after the other in the order of the list, as from an allocator still empty.
template <void (*kSort)(list_link *, size_t, CompareLinks)>
class Links {
public:
    explicit Links(const Keys &keys) : items_(keys.size())
    {
        list_link *previous = &head_;
        for (size_t i = 0; i < keys.size(); ++i) {
            items_[i].key = keys[i];
            previous->next = &items_[i].link;
            items_[i].link.prev = previous;
            previous = &items_[i].link;
        }
        previous->next = &head_;
        head_.prev = previous;
    }
    void sort() { kSort(&head_, items_.size(), the_comparison); }
    [[nodiscard]] Keys keys() const
    {
        Keys result;
        for (const list_link *link = head_.next; link != &head_; link = link->next)
            if (link->next->prev == link) result.push_back(item_of(link).key);
        return result;
    }

private:
    std::vector<Item> items_;
    list_link head_;
};

using Vnlib = Links<[](list_link *head, size_t count, CompareLinks compare) {
    __list_sort(head, static_cast<int>(count), compare);
}>;
using BottomUp =
    Links<[](list_link *head, size_t, CompareLinks compare) { bottom_up_sort(head, compare); }>;

class Std {
public:
    explicit Std(const Keys &keys) : list_(keys.begin(), keys.end()) {}
    void sort()
    {
        bool (*volatile less)(const uint64_t &, const uint64_t &) = is_less;
        list_.sort(less);
    }
    [[nodiscard]] Keys keys() const { return {list_.begin(), list_.end()}; }

private:
    static bool is_less(const uint64_t &a, const uint64_t &b) { return a < b; }
    std::list<uint64_t> list_;
};

#ifdef VN_BENCH_GLIB
class Glib {
public:
    explicit Glib(const Keys &keys)
    {
        for (size_t i = keys.size(); i != 0; --i)
            list_ = g_list_prepend(list_, reinterpret_cast<gpointer>(keys[i - 1]));
    }
    ~Glib() { g_list_free(list_); }
    Glib(const Glib &) = delete;
    Glib &operator=(const Glib &) = delete;
    void sort() { list_ = g_list_sort(list_, compare); }
    [[nodiscard]] Keys keys() const
    {
        Keys result;
        for (const GList *at = list_; at != nullptr; at = at->next)
            result.push_back(reinterpret_cast<uintptr_t>(at->data));
        return result;
    }

private:
    static gint compare(gconstpointer a, gconstpointer b) { return a < b ? -1 : a > b; }
    GList *list_ = nullptr;
};
#endif

// --- rows
// ------------------------------------------------------------------------------------------

Keys random_keys(size_t size, uint64_t seed)
{
    std::mt19937_64 random(seed);
    Keys keys(size);
    for (uint64_t &key : keys) key = random();
    return keys;
}

Keys ascending_keys(size_t size, uint64_t seed)
{
    Keys keys = random_keys(size, seed);
    std::sort(keys.begin(), keys.end());
    return keys;
}

template <typename List>
bool sorts()
{
    for (const size_t size : {1u, 2u, 3u, 100u, 1000u}) {
        List list(random_keys(size, size));
        list.sort();
        if (list.keys() != ascending_keys(size, size)) return false;
    }
    return true;
}

bool peers_agree()
{
    return sorts<Vnlib>() && sorts<BottomUp>() && sorts<Std>()
#ifdef VN_BENCH_GLIB
           && sorts<Glib>()
#endif
        ;
}

// As many lists as make a time long enough to be measured, each sorted once: keys that come again
// would be remembered by the processor.
template <typename List>
void add(const char *operation, const char *who, size_t size, Keys (*make_keys)(size_t, uint64_t))
{
    const auto body = [=](benchmark::State &state) {
        const size_t lists = std::max<size_t>(1, 10'000 / size);
        for (uint64_t seed = 0; auto _ : state) {
            std::vector<std::unique_ptr<List>> all;
            for (size_t i = 0; i < lists; ++i)
                all.push_back(std::make_unique<List>(make_keys(size, ++seed)));
            bench::time(state, [&] {
                for (const auto &list : all) list->sort();
            });
        }
        state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(lists * size));
    };
    benchmark::RegisterBenchmark(bench::row(operation, who, size).c_str(), body)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}

template <typename List>
void add_rows(const char *who, size_t size)
{
    add<List>("random", who, size, random_keys);
    add<List>("sorted", who, size, ascending_keys);
}

} // namespace

int main(int argc, char **argv)
{
    for (const size_t size : {10u, 100u, 1'000u, 10'000u, 100'000u, 1'000'000u}) {
        add_rows<Vnlib>("vnlib", size);
        add_rows<Std>("std", size);
        add_rows<BottomUp>("bottom_up", size);
#ifdef VN_BENCH_GLIB
        add_rows<Glib>("glib", size);
#endif
    }
    return bench::run(argc, argv, peers_agree);
}
