// Reading a number two levels down, by its dotted path. jansson and cJSON have no paths: the path
// is cut for them, in place for jansson, into a copy for cJSON. "format" builds the path with
// printf.
#include "bench.h"
#include "corelink_peers.h"

#include <cstring>
#include <random>
#include <vector>

#include "vnlib/corelink.h"

#ifdef VN_BENCH_JANSSON
#include <jansson.h>
#endif
#ifdef VN_BENCH_CJSON
#include <cJSON.h>
#endif
#ifdef VN_BENCH_LIBCONFIG
#include <libconfig.h>
#endif

namespace bench {

namespace {

constexpr size_t kSiblings[] = {3, 10, 30};
constexpr size_t kGrowth[] = {100, 10'000, 1'000'000};

struct Question {
    size_t section_number, entry_number;
    std::string path;
};

// All entries, in an order that no cache foresees.
std::vector<Question> questions(size_t siblings)
{
    std::vector<Question> all;
    for (size_t i = 0; i < siblings; ++i) {
        for (size_t j = 0; j < siblings; ++j) {
            const std::string section = "section" + std::to_string(i);
            const std::string entry = "entry" + std::to_string(j);
            all.push_back({i, j, section + '.' + entry});
        }
    }
    std::shuffle(all.begin(), all.end(), std::mt19937(1));
    return all;
}

uint64_t ask_vnlib(void *tree, const Question &question)
{
    uint64_t value = 0;
    clparse_get_number(static_cast<clparse_head *>(tree), &value, question.path.c_str());
    return value;
}

uint64_t ask_vnlib_node(void *tree, const Question &question)
{
    const clparse_node *const node = clparse_get_tagtype(
        clparse_get_head(static_cast<clparse_head *>(tree)), question.path.c_str(), CLPARSE_NUMBER);
    return node != nullptr ? node->value.number : 0;
}

uint64_t ask_vnlib_format(void *tree, const Question &question)
{
    uint64_t value = 0;
    clparse_get_number(static_cast<clparse_head *>(tree), &value, "section%zu.entry%zu",
                       question.section_number, question.entry_number);
    return value;
}

#ifdef VN_BENCH_JANSSON
uint64_t ask_jansson(void *tree, const Question &question)
{
    const char *const path = question.path.c_str(), *const dot = std::strchr(path, '.');
    const json_t *const section =
        json_object_getn(static_cast<json_t *>(tree), path, static_cast<size_t>(dot - path));
    return static_cast<uint64_t>(json_integer_value(json_object_get(section, dot + 1)));
}
#endif

#ifdef VN_BENCH_CJSON
uint64_t ask_cjson(void *tree, const Question &question)
{
    char step[32];
    const char *const path = question.path.c_str(), *const dot = std::strchr(path, '.');
    *static_cast<char *>(mempcpy(step, path, static_cast<size_t>(dot - path))) = '\0';
    const cJSON *const section = cJSON_GetObjectItemCaseSensitive(static_cast<cJSON *>(tree), step);
    return static_cast<uint64_t>(
        cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(section, dot + 1)));
}
#endif

#ifdef VN_BENCH_LIBCONFIG
uint64_t ask_libconfig(void *tree, const Question &question)
{
    int value = 0;
    config_lookup_int(static_cast<config_t *>(tree), question.path.c_str(), &value);
    return static_cast<uint64_t>(value);
}
#endif

struct Asker {
    const char *row, *reader;
    uint64_t (*ask)(void *tree, const Question &question);
};
constexpr Asker kAskers[] = {
    {"vnlib", "vnlib", ask_vnlib},
    {"vnlib-node", "vnlib", ask_vnlib_node},
    {"vnlib-format", "vnlib", ask_vnlib_format},
#ifdef VN_BENCH_JANSSON
    {"jansson", "jansson", ask_jansson},
#endif
#ifdef VN_BENCH_CJSON
    {"cjson", "cjson", ask_cjson},
#endif
#ifdef VN_BENCH_LIBCONFIG
    {"libconfig", "libconfig", ask_libconfig},
#endif
};

const Reader &reader_of(const Asker &asker)
{
    size_t i = 0;
    while (asker.reader != std::string(readers()[i].name)) ++i;
    return readers()[i];
}

void number_by_path(benchmark::State &state, const Asker &asker, size_t siblings)
{
    settle_heap();
    const std::vector<Question> all = questions(siblings);
    void *const tree = reader_of(asker).parse(sections(siblings, siblings));
    uint64_t sum = 0;
    for (auto _ : state)
        for (const Question &question : all) sum += asker.ask(tree, question);
    benchmark::DoNotOptimize(sum);
    reader_of(asker).release(tree);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(all.size()));
}

// The last of many siblings: linear in their number.
void last_of_level(benchmark::State &state, size_t members)
{
    settle_heap();
    auto *const tree = static_cast<clparse_head *>(readers()[0].parse(level(members)));
    const std::string path = "member" + std::to_string(members - 1);
    for (auto _ : state) benchmark::DoNotOptimize(clparse_get_node(tree, path.c_str()));
    clparse_stop(tree);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(members));
}

} // namespace

bool query_agrees()
{
    constexpr size_t kFew = 10;
    for (const Asker &asker : kAskers) {
        void *const tree = reader_of(asker).parse(sections(kFew, kFew));
        bool right = true;
        for (const Question &question : questions(kFew)) {
            const size_t expected = question.section_number * kFew + question.entry_number;
            right = right && asker.ask(tree, question) == expected;
        }
        reader_of(asker).release(tree);
        if (right) continue;
        std::fprintf(stderr, "%s finds something else\n", asker.row);
        return false;
    }
    return true;
}

void add_query_rows()
{
    for (const size_t siblings : kSiblings) {
        for (const Asker &asker : kAskers) {
            benchmark::RegisterBenchmark(row("number_by_path", asker.row, siblings).c_str(),
                                         [&asker, siblings](benchmark::State &state) {
                                             number_by_path(state, asker, siblings);
                                         });
        }
    }
    for (const size_t members : kGrowth) {
        benchmark::RegisterBenchmark(
            row("path_growth", "vnlib", members).c_str(),
            [members](benchmark::State &state) { last_of_level(state, members); });
    }
}

} // namespace bench
