// Writing a document: as text in everyone's own notation, and as XML. libxml2's writer and GString
// have no trees; they are given the library's and told to write the same XML from it.
#include "bench.h"
#include "corelink_peers.h"

#include <cinttypes>
#include <cstdlib>
#include <cstring>

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
#ifdef VN_BENCH_LIBXML2
#include <libxml/xmlwriter.h>
#endif
#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif

namespace bench {

namespace {

constexpr size_t kSizes[] = {1 << 10, 100 << 10, 10 << 20};
constexpr size_t kGrowth[] = {10'000, 1'000'000, 100'000'000};

// ---- text ----

char *text_vnlib(void *tree)
{
    char *text = nullptr;
    clparse_get_corelink(static_cast<clparse_head *>(tree), &text, 0);
    return text;
}

char *text_paths(void *tree)
{
    char *text = nullptr;
    clparse_get_corelink(static_cast<clparse_head *>(tree), &text, 1);
    return text;
}

#ifdef VN_BENCH_JANSSON
char *text_jansson(void *tree)
{
    return json_dumps(static_cast<json_t *>(tree), JSON_COMPACT);
}
#endif

#ifdef VN_BENCH_CJSON
char *text_cjson(void *tree)
{
    return cJSON_PrintUnformatted(static_cast<cJSON *>(tree));
}
#endif

#ifdef VN_BENCH_LIBCONFIG
char *text_libconfig(void *tree)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&text, &size);
    config_write(static_cast<config_t *>(tree), stream);
    fclose(stream);
    return text;
}
#endif

// ---- XML, of a corelink tree ----

char *xml_vnlib(void *tree)
{
    char *text = nullptr;
    clparse_get_xml(static_cast<clparse_head *>(tree), &text, 1);
    return text;
}

[[maybe_unused]] const char *kind_of(const clparse_node &node)
{
    constexpr const char *kKinds[] = {"null", "string", "number", "boolean", "struct", "array"};
    return kKinds[node.type];
}

[[maybe_unused]] const char *name_of(const clparse_node &node)
{
    return node.parent->type == CLPARSE_ARRAY ? "li" : node.tag;
}

#ifdef VN_BENCH_GLIB
void gstring_members(GString *out, const clparse_node &container, size_t depth)
{
    const clparse_node *const list = container.value.children;
    for (const clparse_node *node = list->next; node != list; node = node->next) {
        const char *const name = name_of(*node);
        for (size_t i = 0; i < depth; ++i) g_string_append_c(out, '\t');
        g_string_append_printf(out, "<%s type=\"%s\">", name, kind_of(*node));
        if (node->type == CLPARSE_STRING) {
            gchar *const escaped = g_markup_escape_text(node->value.text, -1);
            g_string_append(out, escaped);
            g_free(escaped);
        } else if (node->type == CLPARSE_NUMBER) {
            g_string_append_printf(out, "%" G_GUINT64_FORMAT, node->value.number);
        } else if (node->type == CLPARSE_BOOLEAN) {
            g_string_append(out, node->value.boolean != 0 ? "true" : "false");
        } else {
            g_string_append_c(out, '\n');
            gstring_members(out, *node, depth + 1);
            for (size_t i = 0; i < depth; ++i) g_string_append_c(out, '\t');
        }
        g_string_append_printf(out, "</%s>\n", name);
    }
}

char *xml_gstring(void *tree)
{
    GString *const out = g_string_new("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<corelink>\n");
    gstring_members(out, static_cast<clparse_head *>(tree)->root, 1);
    g_string_append(out, "</corelink>");
    return g_string_free(out, FALSE);
}
#endif

#ifdef VN_BENCH_LIBXML2
const xmlChar *xml_text(const char *text)
{
    return reinterpret_cast<const xmlChar *>(text);
}

void libxml2_members(xmlTextWriterPtr out, const clparse_node &container)
{
    const clparse_node *const list = container.value.children;
    for (const clparse_node *node = list->next; node != list; node = node->next) {
        xmlTextWriterStartElement(out, xml_text(name_of(*node)));
        xmlTextWriterWriteAttribute(out, xml_text("type"), xml_text(kind_of(*node)));
        if (node->type == CLPARSE_STRING) {
            xmlTextWriterWriteString(out, xml_text(node->value.text));
        } else if (node->type == CLPARSE_NUMBER) {
            xmlTextWriterWriteFormatString(out, "%" PRIu64, node->value.number);
        } else if (node->type == CLPARSE_BOOLEAN) {
            xmlTextWriterWriteString(out, xml_text(node->value.boolean != 0 ? "true" : "false"));
        } else {
            libxml2_members(out, *node);
        }
        xmlTextWriterFullEndElement(out);
    }
}

char *xml_libxml2(void *tree)
{
    xmlBufferPtr buffer = xmlBufferCreate();
    xmlTextWriterPtr out = xmlNewTextWriterMemory(buffer, 0);
    xmlTextWriterSetIndent(out, 1);
    xmlTextWriterSetIndentString(out, xml_text("\t"));
    xmlTextWriterStartDocument(out, nullptr, "UTF-8", nullptr);
    xmlTextWriterStartElement(out, xml_text("corelink"));
    libxml2_members(out, static_cast<clparse_head *>(tree)->root);
    xmlTextWriterEndDocument(out);
    xmlFreeTextWriter(out);
    auto *const text = reinterpret_cast<char *>(xmlBufferDetach(buffer));
    xmlBufferFree(buffer);
    return text;
}
#endif

struct Form {
    const char *operation, *row, *reader;
    char *(*write)(void *tree);
};
constexpr Form kForms[] = {
    {"text", "vnlib", "vnlib", text_vnlib},
#ifdef VN_BENCH_JANSSON
    {"text", "jansson", "jansson", text_jansson},
#endif
#ifdef VN_BENCH_CJSON
    {"text", "cjson", "cjson", text_cjson},
#endif
#ifdef VN_BENCH_LIBCONFIG
    {"text", "libconfig", "libconfig", text_libconfig},
#endif
    {"text_paths", "vnlib", "vnlib", text_paths},
    {"xml", "vnlib", "vnlib", xml_vnlib},
#ifdef VN_BENCH_LIBXML2
    {"xml", "libxml2", "vnlib", xml_libxml2},
#endif
#ifdef VN_BENCH_GLIB
    {"xml", "gstring", "vnlib", xml_gstring},
#endif
};

const Reader &reader_of(const Form &form)
{
    size_t i = 0;
    while (form.reader != std::string(readers()[i].name)) ++i;
    return readers()[i];
}

void write(benchmark::State &state, const Form &form, size_t size)
{
    settle_heap();
    const Reader &reader = reader_of(form);
    void *const tree = reader.parse(records(size));
    for (auto _ : state) {
        char *const text = form.write(tree);
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
    reader.release(tree);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

std::string written(const Form &form, const Document &document)
{
    void *const tree = reader_of(form).parse(document);
    char *const text = form.write(tree);
    const std::string result = text;
    std::free(text);
    reader_of(form).release(tree);
    return result.substr(0, result.find_last_not_of('\n') + 1); // libxml2 ends the last line
}

} // namespace

bool write_agrees()
{
    const Document &document = records(kSizes[0]);
    const std::string xml = written({"xml", "vnlib", "vnlib", xml_vnlib}, document);
    for (const Form &form : kForms) {
        const std::string text = written(form, document);
        const std::string operation = form.operation, reader = form.reader;
        const bool same = operation == "xml"      ? text == xml
                          : operation != "text"   ? true
                          : reader == "vnlib"     ? text == document.corelink
                          : reader == "libconfig" ? text.size() > document.libconfig.size()
                                                  : text == document.json;
        if (same) continue;
        std::fprintf(stderr, "%s writes another %s:\n%s\n", form.row, form.operation, text.c_str());
        return false;
    }
    return true;
}

void add_write_rows()
{
    for (const Form &form : kForms) {
        for (const size_t size : kSizes) {
            benchmark::RegisterBenchmark(
                row(form.operation, form.row, size).c_str(),
                [&form, size](benchmark::State &state) { write(state, form, size); });
        }
        if (form.row != std::string("vnlib")) continue;
        for (const size_t size : kGrowth) {
            benchmark::RegisterBenchmark(
                row(std::string(form.operation) + "_growth", form.row, size).c_str(),
                [&form, size](benchmark::State &state) { write(state, form, size); });
        }
    }
}

} // namespace bench
