// Tracked allocation beside other allocators that keep books: talloc, which knows every block by
// name, dmalloc, which checks fences around it, and AddressSanitizer. None of them shows a count on
// a screen with each call, so there is a limit too: the C library, and the count line drawn in one
// write. With the tracker off the peer is the C library alone.
//
// The screen is /dev/null, the fastest there is; the report goes where standard output went.
#include "churn.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "vnlib/memcheck.h"

#ifdef VN_BENCH_TALLOC
#include <talloc.h>
#endif

namespace {

using bench::BatchResult;
using bench::Churn;

constexpr size_t kLive[] = {10, 100, 10'000, 1'000'000};

// --- the peers ---------------------------------------------------------------------------------
// Each is an allocator that starts with nothing allocated.

struct Vnlib {
    static constexpr const char *kName = "vnlib";
    Vnlib() { vn_memcheck_start(); }
    ~Vnlib() { vn_memcheck_stop(); }
    Vnlib(const Vnlib &) = delete;
    Vnlib &operator=(const Vnlib &) = delete;
    void *allocate(size_t size) { return vn_memcheck_malloc(malloc, size, "churn", 1); }
    void release(void *block) { vn_memcheck_free(free, block, "churn:2"); }
};

// A second thread wakes as often as a checker must. Beside one, C library and kernel do more for a
// system call than for a process of a single thread.
class Limit {
public:
    static constexpr const char *kName = "limit";
    Limit()
        : beside_([](const std::stop_token &stop) {
              while (!stop.stop_requested()) usleep(1);
          })
    {
    }
    void *allocate(size_t size)
    {
        draw(++count_);
        return malloc(size);
    }
    void release(void *block)
    {
        free(block);
        draw(--count_);
    }

private:
    static void draw(unsigned count)
    {
        constexpr std::string_view kBefore = "\x1b[H\x1b[2B\r\x1b[KTotal Allocations: ";
        constexpr std::string_view kAfter = "\x1b[46B\r";
        char line[64];
        char *end = line + kBefore.copy(line, kBefore.size());
        for (unsigned least = 10000; count < least && least > 1; least /= 10) *end++ = '0';
        end = std::to_chars(end, std::end(line), count).ptr;
        end += kAfter.copy(end, kAfter.size());
        if (write(STDOUT_FILENO, line, static_cast<size_t>(end - line)) < 0) abort();
    }
    unsigned count_ = 0;
    std::jthread beside_;
};

#ifdef VN_BENCH_TALLOC
struct Talloc {
    static constexpr const char *kName = "talloc";
    Talloc() : context_(talloc_new(nullptr)) {}
    ~Talloc() { talloc_free(context_); }
    Talloc(const Talloc &) = delete;
    Talloc &operator=(const Talloc &) = delete;
    void *allocate(size_t size) { return talloc_named_const(context_, size, "churn"); }
    void release(void *block) { talloc_free(block); }

private:
    void *context_;
};
#endif

#ifdef VN_BENCH_DMALLOC // loaded by hand: linked, it would be the malloc of all the others too
class Dmalloc {
public:
    static constexpr const char *kName = "dmalloc";
    void *allocate(size_t size)
    {
        return functions().allocate("churn", 1, size, kMallocCall, 0, 0);
    }
    void release(void *block) { functions().release("churn", 2, block, kFreeCall); }

private:
    static constexpr int kMallocCall = 10, kFreeCall = 16;
    struct Functions {
        void *(*allocate)(const char *, int, size_t, int, size_t, int);
        int (*release)(const char *, int, void *, int);
    };
    static const Functions &functions()
    {
        static const Functions loaded = load();
        return loaded;
    }
    static Functions load()
    {
        void *const library = dlopen(VN_BENCH_DMALLOC, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
        if (library == nullptr) {
            fprintf(stderr, "%s\n", dlerror());
            exit(1);
        }
        const auto set_up = function<void (*)(const char *)>(library, "dmalloc_debug_setup");
        set_up("debug=0x400"); // fences
        return {function<decltype(Functions::allocate)>(library, "dmalloc_malloc"),
                function<decltype(Functions::release)>(library, "dmalloc_free")};
    }
    template <typename Function>
    static Function function(void *library, const char *name)
    {
        return reinterpret_cast<Function>(dlsym(library, name));
    }
};
#endif

class Asan { // the program beside this one
public:
    static constexpr const char *kName = "asan";
    explicit Asan(size_t live)
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) abort();
        if (const pid_t child = fork(); child == 0) {
            dup2(ends[1], STDIN_FILENO);
            dup2(ends[1], STDOUT_FILENO);
            const std::string blocks = std::to_string(live);
            execl(VN_BENCH_ASAN_PEER, VN_BENCH_ASAN_PEER, blocks.c_str(), nullptr);
            _exit(1);
        } else {
            child_ = child;
        }
        close(ends[1]);
        link_ = ends[0];
    }
    ~Asan()
    {
        close(link_);
        waitpid(child_, nullptr, 0);
    }
    Asan(const Asan &) = delete;
    Asan &operator=(const Asan &) = delete;
    [[nodiscard]] BatchResult pairs() const { return ask('p'); }
    [[nodiscard]] BatchResult replacements() const { return ask('r'); }

private:
    [[nodiscard]] BatchResult ask(char what) const
    {
        BatchResult result{};
        if (write(link_, &what, 1) != 1 || read(link_, &result, sizeof result) != sizeof result)
            abort();
        return result;
    }
    int link_;
    pid_t child_;
};

// --- rows --------------------------------------------------------------------------------------

// Iterations are counted out, so that the blocks are set up once.
template <typename Work, typename Batch>
void add_row(const char *operation, const char *who, size_t live, Batch batch)
{
    const auto run = [live, batch](benchmark::State &state) {
        Work work(live);
        for (auto _ : state) state.SetIterationTime(batch(work).seconds);
    };
    benchmark::RegisterBenchmark(bench::row(operation, who, live).c_str(), run)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond)
        ->Iterations(bench::quick() ? 30 : 300);
}

template <typename Work>
void add_rows(const char *who, size_t live)
{
    add_row<Work>("pairs", who, live, [](Work &work) { return work.pairs(); });
    add_row<Work>("replace", who, live, [](Work &work) { return work.replacements(); });
}

template <typename Allocator>
void add_rows(size_t live)
{
    add_rows<Churn<Allocator>>(Allocator::kName, live);
}

struct Off {
    static void *allocate(size_t size) { return vn_memcheck_malloc(malloc, size, "pair", 1); }
    static void release(void *block) { vn_memcheck_free(free, block, "pair:2"); }
};

struct Libc {
    static void *allocate(size_t size) { return malloc(size); }
    static void release(void *block) { free(block); }
};

// With the tracker off the two differ by a few instructions, which is much less than what other
// programs on the machine make of one moment and the next. So they are timed in turns, and each row
// takes its part of the result; when that is gone, both are timed anew.
class InTurns {
public:
    enum Who : size_t { kVnlib, kLibc };

    explicit InTurns(size_t size) : size_(size) {}

    // The median time of a pair of calls.
    double take(Who who)
    {
        if (!seconds_[who].has_value()) measure();
        return *std::exchange(seconds_[who], std::nullopt);
    }

private:
    static constexpr size_t kTurns = 101, kPairs = 10'000;

    void measure()
    {
        std::array<double, kTurns> vnlib, libc;
        for (size_t i = 0; i < kTurns; ++i) {
            vnlib[i] = turn<Off>();
            libc[i] = turn<Libc>();
        }
        seconds_ = {median(vnlib) / kPairs, median(libc) / kPairs};
    }
    template <typename Allocator>
    [[gnu::noinline]] double turn() const
    {
        const double begin = bench::processor_time();
        for (size_t i = 0; i < kPairs; ++i) {
            void *block = Allocator::allocate(size_);
            benchmark::DoNotOptimize(block);
            Allocator::release(block);
        }
        return bench::processor_time() - begin;
    }
    static double median(std::array<double, kTurns> &turns)
    {
        std::nth_element(turns.begin(), turns.begin() + kTurns / 2, turns.end());
        return turns[kTurns / 2];
    }

    size_t size_;
    std::array<std::optional<double>, 2> seconds_;
};

void add_row_in_turns(const char *name, InTurns::Who who, size_t size,
                      const std::shared_ptr<InTurns> &turns)
{
    const auto run = [turns, who](benchmark::State &state) {
        for (auto _ : state) state.SetIterationTime(turns->take(who));
    };
    benchmark::RegisterBenchmark(bench::row("off", name, size).c_str(), run)
        ->UseManualTime()
        ->Iterations(1);
}

void add_rows()
{
    for (const size_t size : {16u, 64u, 1000u}) {
        const auto turns = std::make_shared<InTurns>(size);
        add_row_in_turns("vnlib", InTurns::kVnlib, size, turns);
        add_row_in_turns("libc", InTurns::kLibc, size, turns);
    }
    for (const size_t live : kLive) {
        add_rows<Vnlib>(live);
        add_rows<Limit>(live);
#ifdef VN_BENCH_TALLOC
        add_rows<Talloc>(live);
#endif
#ifdef VN_BENCH_DMALLOC
        add_rows<Dmalloc>(live);
#endif
        add_rows<Asan>(Asan::kName, live);
    }
}

// --- results -----------------------------------------------------------------------------------

template <typename Work>
uint64_t sum_of_batches()
{
    Work work(100);
    uint64_t sum = 0;
    for (int batch = 0; batch < 5; ++batch) sum += work.pairs().sum + work.replacements().sum;
    return sum;
}

// What one allocation draws.
template <typename Allocator>
std::string drawn()
{
    int ends[2];
    if (pipe(ends) != 0) abort();
    Allocator allocator;
    const int screen = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    void *const block = allocator.allocate(1);
    dup2(screen, STDOUT_FILENO);
    allocator.release(block);
    close(screen);
    close(ends[1]);
    char text[4096];
    const ssize_t length = read(ends[0], text, sizeof text);
    close(ends[0]);
    return std::string(text, length > 0 ? static_cast<size_t>(length) : 0);
}

bool peers_agree()
{
    const uint64_t sum = sum_of_batches<Churn<Vnlib>>();
    bool agree = sum_of_batches<Churn<Limit>>() == sum && sum_of_batches<Asan>() == sum;
#ifdef VN_BENCH_TALLOC
    agree = agree && sum_of_batches<Churn<Talloc>>() == sum;
#endif
#ifdef VN_BENCH_DMALLOC
    agree = agree && sum_of_batches<Churn<Dmalloc>>() == sum;
#endif
    return agree && drawn<Vnlib>() == drawn<Limit>();
}

} // namespace

int main(int argc, char **argv)
{
    __gnu_cxx::stdio_filebuf<char> report(dup(STDOUT_FILENO), std::ios::out);
    std::streambuf *const before = std::cout.rdbuf(&report);
    const int screen = open("/dev/null", O_WRONLY);
    dup2(screen, STDOUT_FILENO);
    add_rows();
    const int result = bench::run(argc, argv, peers_agree);
    std::cout.rdbuf(before);
    return result;
}
