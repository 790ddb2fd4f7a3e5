// Runs the churn of memcheck_bench under AddressSanitizer; see churn.h.
#include "churn.h"

#include <cstdlib>
#include <unistd.h>

extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options()
{
    return "detect_leaks=0";
}

namespace {

struct Libc {
    static void *allocate(size_t size) { return malloc(size); }
    static void release(void *block) { free(block); }
};

} // namespace

int main(int, char **argv)
{
    bench::Churn<Libc> churn(strtoul(argv[1], nullptr, 10));
    for (char what; read(STDIN_FILENO, &what, 1) == 1;) {
        const bench::BatchResult result = what == 'p' ? churn.pairs() : churn.replacements();
        if (write(STDOUT_FILENO, &result, sizeof result) != sizeof result) return 1;
    }
    _exit(0); // the blocks need not be given back one by one
}
