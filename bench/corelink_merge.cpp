// Merging a level of members into another one. jansson has the same three merges of one level, and
// shares the values that it takes over where the library copies them; cJSON has none.
//
//     select  what both have        json_object_update_existing    half of the source is known
//     update  all of the source     json_object_update             all of it is known
//     insert  all, known or not     json_object_update             half of it is known
//
// "nested" is an update of structs of 30 members each, in jansson json_object_update_recursive.
#include "bench.h"
#include "corelink_peers.h"

#include "vnlib/corelink.h"

#ifdef VN_BENCH_JANSSON
#include <jansson.h>
#endif

namespace bench {

namespace {

constexpr size_t kMembers[] = {30, 1000};
constexpr size_t kGrowth[] = {100, 10'000, 1'000'000};

struct Operation {
    const char *name;
    int (*vnlib)(clparse_head *target, clparse_head *source);
    int (*jansson)(void *target, void *source);
    Document (*target)(size_t members);
    Document (*source)(size_t members);
};

Document whole(size_t members)
{
    return level(members);
}

Document later_half(size_t members)
{
    return level(members, members / 2);
}

Document nested(size_t members)
{
    return sections(members / 30, 30);
}

#ifdef VN_BENCH_JANSSON
template <int (*kUpdate)(json_t *, json_t *)>
int jansson(void *target, void *source)
{
    return kUpdate(static_cast<json_t *>(target), static_cast<json_t *>(source));
}
#define VN_JANSSON(update) jansson<update>
#else
#define VN_JANSSON(update) nullptr
#endif

constexpr Operation kOperations[] = {
    {"select", clparse_select, VN_JANSSON(json_object_update_existing), whole, later_half},
    {"update", clparse_update, VN_JANSSON(json_object_update), whole, whole},
    {"insert", clparse_insert, VN_JANSSON(json_object_update), whole, later_half},
    {"nested", clparse_update, VN_JANSSON(json_object_update_recursive), nested, nested},
};

int merge(const Operation &operation, const Reader &reader, void *target, void *source)
{
    if (&reader != &readers()[0]) return operation.jansson(target, source);
    return operation.vnlib(static_cast<clparse_head *>(target),
                           static_cast<clparse_head *>(source));
}

void merge_rows(benchmark::State &state, const Operation &operation, const Reader &reader,
                size_t members)
{
    settle_heap();
    const Document target_text = operation.target(members), source_text = operation.source(members);
    void *const source = reader.parse(source_text);
    for (auto _ : state) {
        void *const target = reader.parse(target_text);
        time(state, [&] { merge(operation, reader, target, source); });
        reader.release(target);
    }
    reader.release(source);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(members));
}

Content merged(const Operation &operation, const Reader &reader)
{
    void *const target = reader.parse(operation.target(90));
    void *const source = reader.parse(operation.source(90));
    merge(operation, reader, target, source);
    const Content content = reader.content(target);
    reader.release(target);
    reader.release(source);
    return content;
}

bool can_merge(const Reader &reader)
{
    return reader.name == std::string("vnlib") || reader.name == std::string("jansson");
}

} // namespace

bool merge_agrees()
{
    for (const Operation &operation : kOperations) {
        for (const Reader &reader : readers()) {
            if (!can_merge(reader) || merged(operation, reader) == merged(operation, readers()[0]))
                continue;
            std::fprintf(stderr, "%s merges differently: %s\n", reader.name, operation.name);
            return false;
        }
    }
    return true;
}

void add_merge_rows()
{
    const auto add = [](const Operation &operation, const Reader &reader, size_t members) {
        benchmark::RegisterBenchmark(row(operation.name, reader.name, members).c_str(),
                                     [&operation, &reader, members](benchmark::State &state) {
                                         merge_rows(state, operation, reader, members);
                                     })
            ->UseManualTime();
    };
    for (const Operation &operation : kOperations) {
        for (const size_t members : kMembers)
            for (const Reader &reader : readers())
                if (can_merge(reader)) add(operation, reader, members);
        for (const size_t members : kGrowth) add(operation, readers()[0], members);
    }
}

} // namespace bench
