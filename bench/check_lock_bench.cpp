// check_lock_bench.cpp - the registry of lock use and reference counts.
//
// Registry: a lock is taken at one of 100 locations and released again while as many others are
// held as the size says. The peer is what a program would write: a mutex with two hash maps, one
// from the location to its count, one from the lock to the location.
// Reference counts: one more reference and one less, the object staying alive.
#include "vnlib/check_lock.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "bench.h"

#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif

namespace {

constexpr const char *kFile = "storage/volume_manager.c";
constexpr size_t kLocations = 100; // where locks are taken and released while the others are held

struct Vnlib {
    static constexpr const char *kName = "vnlib";
    Vnlib() { check_lock_init(); }
    ~Vnlib() { check_lock_exit(); }
    static void add(size_t line, const void *lock) { check_lock_add(kFile, line, lock, 0); }
    static void remove(const void *lock) { check_lock_remove(lock); }
};

class Std {
public:
    static constexpr const char *kName = "std";
    void add(size_t line, const void *lock)
    {
        const std::lock_guard hold(mutex_);
        Site &site = *sites_.try_emplace({kFile, line}).first;
        ++site.second;
        if (!references_.try_emplace(lock, &site).second) std::puts("Multiple references found");
    }
    void remove(const void *lock)
    {
        const std::lock_guard hold(mutex_);
        const auto at = references_.find(lock);
        if (at == references_.end()) return;
        if (--at->second->second == 0) sites_.erase(at->second->first);
        references_.erase(at);
    }

private:
    struct Location {
        std::string file;
        size_t line;
        bool operator==(const Location &) const = default;
    };
    struct Hash {
        size_t operator()(const Location &location) const
        {
            return std::hash<std::string_view>{}(location.file) * 31 + location.line;
        }
    };
    using Site = std::pair<const Location, size_t>;
    std::mutex mutex_;
    std::unordered_map<Location, size_t, Hash> sites_;
    std::unordered_map<const void *, Site *> references_;
};

// No location but the first 100 takes more than one lock: the tenth would have the table printed.
template <typename Registry>
void take_and_release(benchmark::State &state, size_t held)
{
    Registry registry;
    std::vector<char> locks(held + kLocations);
    for (size_t i = 0; i < held; ++i) registry.add(kLocations + i, &locks[kLocations + i]);
    size_t next = 0;
    for (auto _ : state) {
        registry.add(next, &locks[next]);
        registry.remove(&locks[next]);
        next = (next + 1) % kLocations;
    }
    for (size_t i = 0; i < held; ++i) registry.remove(&locks[kLocations + i]);
}

// At a location that holds another lock, and so need not be recorded anew.
template <typename Registry>
void take_again_and_release(benchmark::State &state, size_t held)
{
    Registry registry;
    std::vector<char> locks(held + kLocations);
    for (size_t i = 0; i < held; ++i) registry.add(i, &locks[i]);
    size_t next = 0;
    for (auto _ : state) {
        registry.add(next, &locks[held]);
        registry.remove(&locks[held]);
        next = (next + 1) % held;
    }
    for (size_t i = 0; i < held; ++i) registry.remove(&locks[i]);
}

template <typename Registry>
void add_registry_rows()
{
    for (const size_t held : {10u, 100u, 1'000u, 10'000u}) {
        benchmark::RegisterBenchmark(
            bench::row("take_and_release", Registry::kName, held).c_str(),
            [held](benchmark::State &state) { take_and_release<Registry>(state, held); });
        benchmark::RegisterBenchmark(
            bench::row("take_again_and_release", Registry::kName, held).c_str(),
            [held](benchmark::State &state) { take_again_and_release<Registry>(state, held); });
    }
}

// --- reference counts
// ------------------------------------------------------------------------------

struct SpinLocked { // the same in the caller's own code, which no library call stands before
    pthread_spinlock_t lock;
    int count = 1;

    SpinLocked() { pthread_spin_init(&lock, PTHREAD_PROCESS_PRIVATE); }
    ~SpinLocked() { pthread_spin_destroy(&lock); }
    void take()
    {
        pthread_spin_lock(&lock);
        ++count;
        pthread_spin_unlock(&lock);
    }
    int drop()
    {
        pthread_spin_lock(&lock);
        const int left = --count;
        pthread_spin_unlock(&lock);
        return left;
    }
};

void reference_vnlib(benchmark::State &state)
{
    vn_reference reference;
    vn_reference_prep(&reference, nullptr, nullptr);
    vn_reference_acquire(&reference);
    for (auto _ : state) {
        vn_reference_acquire(&reference);
        benchmark::DoNotOptimize(vn_reference_release(&reference));
    }
    vn_reference_release(&reference);
}

void reference_spin_locked(benchmark::State &state)
{
    SpinLocked reference;
    for (auto _ : state) {
        reference.take();
        benchmark::DoNotOptimize(reference.drop());
    }
}

void reference_shared_ptr(benchmark::State &state)
{
    const auto object = std::make_shared<int>(1);
    for (auto _ : state) {
        const std::shared_ptr<int> another = object;
        benchmark::DoNotOptimize(another.get());
    }
}

#ifdef VN_BENCH_GLIB
void reference_rc_box(benchmark::State &state)
{
    gpointer const box = g_atomic_rc_box_alloc(sizeof(int));
    for (auto _ : state) {
        benchmark::DoNotOptimize(g_atomic_rc_box_acquire(box));
        g_atomic_rc_box_release(box);
    }
    g_atomic_rc_box_release(box);
}
#endif

bool counts_agree()
{
    vn_reference ours;
    vn_reference_prep(&ours, nullptr, nullptr);
    vn_reference_acquire(&ours);
    vn_reference_acquire(&ours);
    SpinLocked theirs;
    theirs.take();
    return vn_reference_release(&ours) == 1 && theirs.drop() == 1 &&
           vn_reference_release(&ours) == 0 && theirs.drop() == 0;
}

} // namespace

int main(int argc, char **argv)
{
    std::thread([] {}).join(); // a process that never had a second thread saves its atomics
    add_registry_rows<Vnlib>();
    add_registry_rows<Std>();
    benchmark::RegisterBenchmark("take_and_drop_reference/vnlib/1", reference_vnlib);
    benchmark::RegisterBenchmark("take_and_drop_reference/spin_lock/1", reference_spin_locked);
    benchmark::RegisterBenchmark("take_and_drop_reference/shared_ptr/1", reference_shared_ptr);
#ifdef VN_BENCH_GLIB
    benchmark::RegisterBenchmark("take_and_drop_reference/rc_box/1", reference_rc_box);
#endif
    return bench::run(argc, argv, counts_agree);
}
