// startup_bench.cpp - what a program pays for opening the library: the time of dlopen with all its
// relocations, and the memory that the library's mappings have to themselves afterwards. Linked
// with none of the libraries that it opens.
#include "bench.h"

#include <cstring>
#include <dlfcn.h>
#include <fstream>

namespace {

struct Library {
    const char *name;
    const char *file;
};

constexpr Library kLibraries[] = {{"vnlib", VN_BENCH_LIBRARY},
                                  {"talloc", "libtalloc.so.2"},
                                  {"jansson", "libjansson.so.4"},
                                  {"expat", "libexpat.so.1"}};

// Bytes of a file's mappings that were written to, and so are this process's own. Anonymous says
// it: Private_Dirty also has pages of a file that was linked a moment ago and is not on the disk
// yet.
double private_bytes(const char *file)
{
    const char *const slash = std::strrchr(file, '/');
    const std::string name = slash != nullptr ? slash + 1 : file;
    std::ifstream mappings("/proc/self/smaps");
    double kib = 0;
    bool inside = false;
    for (std::string line; std::getline(mappings, line);) {
        const bool is_head = line.find(':') > line.find('-'); // "7f01-7f02 r--p ...", "Rss: ..."
        unsigned value = 0;
        if (is_head) inside = line.find(name) != std::string::npos;
        if (inside && std::sscanf(line.c_str(), "Anonymous: %u", &value) == 1) kib += value;
    }
    return kib * 1024;
}

bool all_can_be_opened()
{
    void *const library = dlopen(VN_BENCH_LIBRARY, RTLD_NOW);
    if (library == nullptr) std::fprintf(stderr, "%s\n", dlerror());
    return library != nullptr && dlclose(library) == 0;
}

void open_library(benchmark::State &state, const char *file)
{
    for (auto _ : state) {
        void *library = nullptr;
        bench::time(state, [&] { library = dlopen(file, RTLD_NOW | RTLD_LOCAL); });
        if (library == nullptr) {
            state.SkipWithError("not installed");
            return;
        }
        dlclose(library);
    }
    void *const library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    state.counters["private_bytes"] = private_bytes(file);
    dlclose(library);
}

} // namespace

int main(int argc, char **argv)
{
    for (const Library &library : kLibraries)
        benchmark::RegisterBenchmark(
            bench::row("open", library.name, 1).c_str(),
            [file = library.file](benchmark::State &state) { open_library(state, file); })
            ->UseManualTime();
    return bench::run(argc, argv, all_can_be_opened);
}
