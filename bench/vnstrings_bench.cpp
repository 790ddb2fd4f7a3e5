// vnstrings_bench.cpp - escaped, decoded and formatted strings. Every row ends with what its
// callers end with: a string in a block of its own, which is then released. Ours escapes a growable
// string in place, so making that string from the same text is part of its rows.
#include "vnlib/vnstrings.h"

#include <cstdlib>
#include <cstring>
#include <random>

#include "bench.h"
#include "vnlib/memcheck.h"

#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif
#ifdef VN_BENCH_LIBXML2
#include <libxml/entities.h>
#include <libxml/xmlmemory.h>
#endif
#ifdef VN_BENCH_APR
#include <apr_escape.h>
#endif

namespace {

// --- texts
// -----------------------------------------------------------------------------------------

// Letters and blanks, and in one place of `distance` a character of `special`.
std::string text_of(size_t size, const std::string &special, unsigned distance)
{
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyz ";
    std::mt19937 random(1);
    std::string text(size, '\0');
    for (char &c : text)
        c = random() % distance == 0 ? special[random() % special.size()]
                                     : kPlain[random() % kPlain.size()];
    return text;
}

std::string hex_of(size_t size)
{
    std::mt19937 random(1);
    std::string text(size, '\0');
    for (char &c : text) c = "0123456789abcdef"[random() % 16];
    return text;
}

// --- escaping and decoding
// -------------------------------------------------------------------------

// Each returns a string that its `release` takes.
struct Escaper {
    const char *who;
    char *(*escape)(const std::string &text);
    void (*release)(char *text);
};

char *growable(const std::string &text)
{
    auto *const copy = static_cast<char *>(vn_memcheck_malloc(malloc, text.size() + 1, "bench", 1));
    return static_cast<char *>(memcpy(copy, text.c_str(), text.size() + 1));
}

void release(char *text)
{
    vn_memcheck_free(vn_free, text, "bench:2");
}

char *our_quotes(const std::string &text)
{
    char *escaped = growable(text);
    replace_quotes(&escaped);
    return escaped;
}

template <bool kKeepApostrophes>
char *our_entities(const std::string &text)
{
    char *escaped = growable(text);
    replace_xml_entities(&escaped, kKeepApostrophes);
    return escaped;
}

#ifdef VN_BENCH_GLIB
void release_glib(char *text)
{
    g_free(text);
}
char *glib_quotes(const std::string &text)
{
    return g_strescape(text.c_str(), nullptr);
}
char *glib_entities(const std::string &text)
{
    return g_markup_escape_text(text.c_str(), static_cast<gssize>(text.size()));
}
#endif

#ifdef VN_BENCH_LIBXML2
void release_libxml2(char *text)
{
    xmlFree(text);
}
char *libxml2_entities(const std::string &text)
{
    return reinterpret_cast<char *>(
        xmlEncodeSpecialChars(nullptr, reinterpret_cast<const xmlChar *>(text.c_str())));
}
#endif

#ifdef VN_BENCH_APR
// Asked for the size first, as without a pool.
template <auto kEscape, int kFlag>
char *apr(const std::string &text)
{
    apr_size_t size = 0;
    const auto length = static_cast<apr_ssize_t>(text.size());
    if (kEscape(nullptr, text.c_str(), length, kFlag, &size) != APR_SUCCESS) // nothing to escape
        return strdup(text.c_str());
    auto *const escaped = static_cast<char *>(malloc(size));
    kEscape(escaped, text.c_str(), length, kFlag, nullptr);
    return escaped;
}
#endif

void add_escapers(const char *operation, const std::vector<Escaper> &escapers,
                  const std::string &special)
{
    for (const size_t size : {16u, 64u, 256u, 1024u, 16384u, 1u << 20})
        for (const auto &[rate, distance] : {std::pair{"", 20u}, std::pair{"-none", ~0u}}) {
            const std::string text = text_of(size, special, distance);
            char *const expected = escapers.front().escape(text);
            for (const auto &[who, escape, release] : escapers) {
                char *const escaped = escape(text);
                bench::require(strcmp(escaped, expected) == 0, std::string(operation) + " " + who);
                release(escaped);
                benchmark::RegisterBenchmark(
                    bench::row(std::string(operation) + rate, who, size).c_str(),
                    [=](benchmark::State &state) {
                        for (auto _ : state) release(escape(text));
                        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
                    });
            }
            release(expected);
        }
}

using Decode = size_t (*)(const std::string &text, uint8_t *out);

size_t our_hex(const std::string &text, uint8_t *out)
{
    return static_cast<size_t>(hex_decode(text.c_str(), out, static_cast<unsigned>(text.size())));
}

#ifdef VN_BENCH_GLIB
size_t glib_hex(const std::string &text, uint8_t *out)
{
    size_t count = 0;
    for (const char *c = text.c_str(); *c != '\0'; c += 2) {
        const int high = g_ascii_xdigit_value(c[0]), low = g_ascii_xdigit_value(c[1]);
        if (high < 0 || low < 0) return 0;
        out[count++] = static_cast<uint8_t>(high << 4 | low);
    }
    return count;
}
#endif

#ifdef VN_BENCH_APR
size_t apr_hex(const std::string &text, uint8_t *out)
{
    apr_size_t count = 0;
    apr_unescape_hex(out, text.c_str(), APR_ESCAPE_STRING, 0, &count);
    return count;
}
#endif

void add_hex(const char *who, Decode decode)
{
    for (const size_t size : {16u, 64u, 256u, 1024u, 16384u, 1u << 20}) {
        const std::string text = hex_of(size);
        std::string expected(size, '\0'), decoded(size, '\0');
        expected.resize(our_hex(text, reinterpret_cast<uint8_t *>(expected.data())));
        decoded.resize(decode(text, reinterpret_cast<uint8_t *>(decoded.data())));
        bench::require(decoded == expected && decoded.size() == size / 2, "hex");
        benchmark::RegisterBenchmark(
            bench::row("hex-decode", who, size).c_str(), [=](benchmark::State &state) {
                std::vector<uint8_t> out(size);
                for (auto _ : state) benchmark::DoNotOptimize(decode(text, out.data()));
                state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
            });
    }
}

// --- formatted strings
// -----------------------------------------------------------------------------

constexpr const char *kFormat = "%s: unit %u, %lu bytes at 0x%x";

size_t our_format(const char *name)
{
    char *text = nullptr;
    const int length = __vn_asprintf(&text, "bench", 3, kFormat, name, 7u, 4096ul, 0xBEEFu);
    release(text);
    return static_cast<size_t>(length);
}

size_t c_format(const char *name)
{
    char *text = nullptr;
    const int length = asprintf(&text, kFormat, name, 7u, 4096ul, 0xBEEFu);
    free(text);
    return static_cast<size_t>(length);
}

// From the empty string on.
size_t our_appends(size_t count)
{
    char *text = growable("");
    for (size_t i = 0; i < count; ++i) vn_aasprintf(&text, "%s=%zu,", "key", i);
    const size_t length = strlen(text);
    release(text);
    return length;
}

#ifdef VN_BENCH_GLIB
size_t glib_format(const char *name)
{
    GString *const text = g_string_new(nullptr);
    g_string_printf(text, kFormat, name, 7u, 4096ul, 0xBEEFu);
    const size_t length = text->len;
    g_string_free(text, TRUE);
    return length;
}

size_t glib_appends(size_t count)
{
    GString *const text = g_string_new("");
    for (size_t i = 0; i < count; ++i) g_string_append_printf(text, "%s=%zu,", "key", i);
    const size_t length = text->len;
    g_string_free(text, TRUE);
    return length;
}
#endif

void add_format(const char *who, size_t (*format)(const char *))
{
    for (const size_t size : {10u, 100u, 1000u}) {
        const std::string name = text_of(size, "-", 10);
        bench::require(format(name.c_str()) == our_format(name.c_str()), "format");
        benchmark::RegisterBenchmark(bench::row("format", who, size).c_str(),
                                     [=](benchmark::State &state) {
                                         for (auto _ : state)
                                             benchmark::DoNotOptimize(format(name.c_str()));
                                     });
    }
}

void add_appends(const char *who, size_t (*append)(size_t))
{
    for (const size_t count : {1u, 10u, 100u, 1000u}) {
        bench::require(append(count) == our_appends(count), "append");
        benchmark::RegisterBenchmark(
            bench::row("append", who, count).c_str(), [=](benchmark::State &state) {
                for (auto _ : state) benchmark::DoNotOptimize(append(count));
                state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(count));
            });
    }
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<Escaper> quotes = {{"vnlib", our_quotes, release}};
    std::vector<Escaper> entities = {{"vnlib", our_entities<false>, release}};
    std::vector<Escaper> but_apostrophes = {{"vnlib", our_entities<true>, release}};
    add_hex("vnlib", our_hex);
    add_format("vnlib", our_format);
    add_format("asprintf", c_format);
    add_appends("vnlib", our_appends);
#ifdef VN_BENCH_GLIB
    quotes.push_back({"glib", glib_quotes, release_glib});
    entities.push_back({"glib", glib_entities, release_glib});
    add_hex("glib", glib_hex);
    add_format("glib", glib_format);
    add_appends("glib", glib_appends);
#endif
#ifdef VN_BENCH_LIBXML2
    but_apostrophes.push_back({"libxml2", libxml2_entities, release_libxml2});
#endif
#ifdef VN_BENCH_APR
    quotes.push_back({"apr", apr<apr_escape_echo, 1>, release});
    but_apostrophes.push_back({"apr", apr<apr_escape_entity, 0>, release});
    add_hex("apr", apr_hex);
#endif
    add_escapers("escape-quotes", quotes, "\"");
    add_escapers("escape-entities", entities, "<>&\"'");
    add_escapers("escape-entities-but-apostrophes", but_apostrophes, "<>&\"");
    return bench::run(argc, argv, bench::all_agree);
}
