// The XML parser beside expat, libxml2's SAX interface (pulling a file itself, and pushed) and
// GLib's GMarkup. Everyone reads a document of 1 MiB from a file, the way its interface offers, and
// counts what it is told. "mixed" is short elements with attributes, "text" one long element.
#include "bench.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <unistd.h>

#include "vnlib/sax.h"

#ifdef VN_BENCH_EXPAT
#include <expat.h>
#endif
#ifdef VN_BENCH_LIBXML2
#include <libxml/parser.h>
#endif
#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif

namespace {

constexpr size_t kDocumentSize = 1 << 20;
constexpr size_t kChunk = 65536; // what push parsers are fed with

struct Seen {
    size_t starts = 0, ends = 0, attributes = 0, text = 0;
    bool operator==(const Seen &) const = default;
};

// ---- documents ----

std::string mixed()
{
    std::string document = "<root>\n";
    for (int i = 0; document.size() < kDocumentSize - 200; ++i) {
        const std::string number = std::to_string(i);
        document += "  <item id=\"" + number + "\" name=\"node number " + number +
                    "\"><title>Some title text here</title><size>" + std::to_string(i * 37) +
                    "</size><flag/></item>\n";
    }
    return document + "</root>";
}

std::string text()
{
    std::string document = "<root>";
    while (document.size() < kDocumentSize - 200) {
        document +=
            "The quick brown fox jumps over the lazy dog and runs away from it all day long.\n";
    }
    return document + "</root>";
}

// A document in a file of its own for as long as the program runs.
class Document {
public:
    Document(const char *label, const std::string &content) : label_(label), size_(content.size())
    {
        const int fd = mkstemp(path_);
        if (fd < 0 ||
            write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
            abort();
        close(fd);
    }
    ~Document() { unlink(path_); }
    Document(const Document &) = delete;
    Document &operator=(const Document &) = delete;
    [[nodiscard]] const char *label() const { return label_; }
    [[nodiscard]] const char *path() const { return path_; }
    [[nodiscard]] size_t size() const { return size_; }

private:
    const char *label_;
    char path_[32] = "/tmp/sax_benchXXXXXX";
    size_t size_;
};

using File = std::unique_ptr<FILE, int (*)(FILE *)>;
File open(const Document &document)
{
    return {fopen(document.path(), "r"), fclose};
}

// ---- parsers ----

Seen vnlib(const Document &document)
{
    sax_callbacks callbacks{};
    callbacks.start_element = [](const char *, const sax_attribute *attribute, void *user) {
        auto *seen = static_cast<Seen *>(user);
        ++seen->starts;
        for (; attribute != nullptr; attribute = attribute->next) ++seen->attributes;
    };
    callbacks.end_element = [](const char *, void *user) { ++static_cast<Seen *>(user)->ends; };
    callbacks.text = [](const char *, size_t length, void *user) {
        static_cast<Seen *>(user)->text += length;
    };
    Seen seen;
    const File file = open(document);
    sax_parse_file(file.get(), &callbacks, &seen);
    return seen;
}

// Attributes as a null-terminated list of names and values.
template <typename Text>
size_t count_pairs(const Text *pairs)
{
    size_t count = 0;
    for (; pairs != nullptr && pairs[2 * count] != nullptr;) ++count;
    return count;
}

#ifdef VN_BENCH_EXPAT
Seen expat(const Document &document)
{
    Seen seen;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &seen);
    XML_SetElementHandler(
        parser,
        [](void *user, const XML_Char *, const XML_Char **attributes) {
            auto *counts = static_cast<Seen *>(user);
            ++counts->starts;
            counts->attributes += count_pairs(attributes);
        },
        [](void *user, const XML_Char *) { ++static_cast<Seen *>(user)->ends; });
    XML_SetCharacterDataHandler(parser, [](void *user, const XML_Char *, int length) {
        static_cast<Seen *>(user)->text += static_cast<size_t>(length);
    });
    const File file = open(document);
    for (size_t got = 1; got > 0;) {
        got = fread(XML_GetBuffer(parser, kChunk), 1, kChunk, file.get());
        XML_ParseBuffer(parser, static_cast<int>(got), got == 0);
    }
    XML_ParserFree(parser);
    return seen;
}
#endif

#ifdef VN_BENCH_LIBXML2
xmlSAXHandler libxml2_handler()
{
    xmlSAXHandler handler{};
    handler.startElement = [](void *user, const xmlChar *, const xmlChar **attributes) {
        auto *seen = static_cast<Seen *>(user);
        ++seen->starts;
        seen->attributes += count_pairs(attributes);
    };
    handler.endElement = [](void *user, const xmlChar *) { ++static_cast<Seen *>(user)->ends; };
    handler.characters = [](void *user, const xmlChar *, int length) {
        static_cast<Seen *>(user)->text += static_cast<size_t>(length);
    };
    return handler;
}

Seen libxml2_file(const Document &document)
{
    xmlSAXHandler handler = libxml2_handler();
    Seen seen;
    xmlSAXUserParseFile(&handler, &seen, document.path());
    return seen;
}

Seen libxml2_push(const Document &document)
{
    xmlSAXHandler handler = libxml2_handler();
    Seen seen;
    const File file = open(document);
    static char chunk[kChunk];
    size_t got = fread(chunk, 1, 4, file.get()); // enough to see the encoding
    xmlParserCtxtPtr parser =
        xmlCreatePushParserCtxt(&handler, &seen, chunk, static_cast<int>(got), nullptr);
    do {
        got = fread(chunk, 1, kChunk, file.get());
        xmlParseChunk(parser, chunk, static_cast<int>(got), got == 0);
    } while (got > 0);
    xmlFreeParserCtxt(parser);
    return seen;
}
#endif

#ifdef VN_BENCH_GLIB
Seen gmarkup(const Document &document)
{
    GMarkupParser callbacks{};
    callbacks.start_element = [](GMarkupParseContext *, const gchar *, const gchar **names,
                                 const gchar **, gpointer user, GError **) {
        auto *seen = static_cast<Seen *>(user);
        ++seen->starts;
        for (; *names != nullptr; ++names) ++seen->attributes;
    };
    callbacks.end_element = [](GMarkupParseContext *, const gchar *, gpointer user, GError **) {
        ++static_cast<Seen *>(user)->ends;
    };
    callbacks.text = [](GMarkupParseContext *, const gchar *, gsize length, gpointer user,
                        GError **) { static_cast<Seen *>(user)->text += length; };
    Seen seen;
    GMarkupParseContext *context =
        g_markup_parse_context_new(&callbacks, static_cast<GMarkupParseFlags>(0), &seen, nullptr);
    const File file = open(document);
    static char chunk[kChunk];
    while (const size_t got = fread(chunk, 1, kChunk, file.get())) {
        g_markup_parse_context_parse(context, chunk, static_cast<gssize>(got), nullptr);
    }
    g_markup_parse_context_end_parse(context, nullptr);
    g_markup_parse_context_free(context);
    return seen;
}
#endif

struct Parser {
    const char *name;
    Seen (*parse)(const Document &document);
};
constexpr Parser kParsers[] = {
    {"vnlib", vnlib},
#ifdef VN_BENCH_LIBXML2
    {"libxml2-file", libxml2_file},
    {"libxml2-push", libxml2_push},
#endif
#ifdef VN_BENCH_EXPAT
    {"expat", expat},
#endif
#ifdef VN_BENCH_GLIB
    {"gmarkup", gmarkup},
#endif
};

Document *documents()
{
    static Document all[] = {{"mixed", mixed()}, {"text", text()}};
    return all;
}

bool peers_agree()
{
    for (const Document *document = documents(); document < documents() + 2; ++document) {
        for (const Parser &parser : kParsers) {
            if (parser.parse(*document) != vnlib(*document)) {
                fprintf(stderr, "%s sees something else in %s\n", parser.name, document->label());
                return false;
            }
        }
    }
    return true;
}

void parse(benchmark::State &state, const Parser &parser, const Document &document)
{
    for (auto _ : state) benchmark::DoNotOptimize(parser.parse(document));
    state.SetBytesProcessed(
        static_cast<int64_t>(static_cast<size_t>(state.iterations()) * document.size()));
}

} // namespace

int main(int argc, char **argv)
{
    for (const Document *document = documents(); document < documents() + 2; ++document) {
        for (const Parser &parser : kParsers) {
            benchmark::RegisterBenchmark(
                bench::row(std::string("parse_") + document->label(), parser.name, document->size())
                    .c_str(),
                [parser, document](benchmark::State &state) { parse(state, parser, *document); });
        }
    }
    return bench::run(argc, argv, peers_agree);
}
