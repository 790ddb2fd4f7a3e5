#include "corelink_peers.h"

#include <cstring>
#include <malloc.h>
#include <map>

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

// Writes a document in all three notations at once.
class Writer {
public:
    Writer() { document_.json = "{"; }

    void open_struct(const char *name) { open(name, "{", "{", "{"); }
    void open_array(const char *name) { open(name, "[", "[", "("); } // of values of any kind
    void close_struct() { close("}", "}", "}"); }
    void close_array() { close("]", "]", ")"); }
    void number(const char *name, size_t value) { leaf(name, std::to_string(value)); }
    void flag(const char *name, bool value) { leaf(name, value ? "true" : "false"); }
    void text(const char *name, const std::string &value) { leaf(name, '"' + value + '"'); }
    [[nodiscard]] size_t size() const { return document_.corelink.size(); }

    Document finish()
    {
        document_.json += '}';
        document_.size = size();
        return std::move(document_);
    }

private:
    void key(const char *name)
    {
        const char *const comma = first_ ? "" : ",";
        document_.corelink += comma;
        document_.json += comma;
        document_.libconfig += comma;
        first_ = false;
        if (name == nullptr) return;
        document_.corelink.append(name).append("=");
        document_.json.append("\"").append(name).append("\":");
        document_.libconfig.append(name).append("=");
    }
    void leaf(const char *name, const std::string &value)
    {
        key(name);
        document_.corelink += value;
        document_.json += value;
        document_.libconfig += value;
    }
    void open(const char *name, const char *corelink, const char *json, const char *libconfig)
    {
        key(name);
        document_.corelink += corelink;
        document_.json += json;
        document_.libconfig += libconfig;
        first_ = true;
    }
    void close(const char *corelink, const char *json, const char *libconfig)
    {
        document_.corelink += corelink;
        document_.json += json;
        document_.libconfig += libconfig;
        first_ = false;
    }

    Document document_;
    bool first_ = true;
};

// ---- the library ----

void add_corelink(Content &content, const clparse_node &node)
{
    switch (node.type) {
    case CLPARSE_STRING:
        ++content.texts;
        content.text_length += std::strlen(node.value.text);
        break;
    case CLPARSE_NUMBER: content.sum += node.value.number; break;
    case CLPARSE_BOOLEAN: content.flags += node.value.boolean; break;
    default: {
        ++content.containers;
        const clparse_node *const list = node.value.children;
        for (const clparse_node *child = list->next; child != list; child = child->next) {
            add_corelink(content, *child);
        }
    }
    }
}

constexpr Reader kVnlib = {
    "vnlib",
    [](const Document &document) -> void * { return clparse_start(document.corelink.c_str()); },
    [](void *tree) { clparse_stop(static_cast<clparse_head *>(tree)); },
    [](void *tree) {
        Content content;
        add_corelink(content, static_cast<clparse_head *>(tree)->root);
        return content;
    }};

// ---- jansson ----

#ifdef VN_BENCH_JANSSON
void add_jansson(Content &content, json_t *value)
{
    switch (json_typeof(value)) {
    case JSON_STRING:
        ++content.texts;
        content.text_length += json_string_length(value);
        break;
    case JSON_INTEGER: content.sum += static_cast<uint64_t>(json_integer_value(value)); break;
    case JSON_OBJECT: {
        ++content.containers;
        for (void *at = json_object_iter(value); at != nullptr;
             at = json_object_iter_next(value, at))
            add_jansson(content, json_object_iter_value(at));
        break;
    }
    case JSON_ARRAY:
        ++content.containers;
        for (size_t i = 0; i < json_array_size(value); ++i)
            add_jansson(content, json_array_get(value, i));
        break;
    default: content.flags += json_is_true(value);
    }
}

constexpr Reader kJansson = {"jansson",
                             [](const Document &document) -> void * {
                                 return json_loadb(document.json.data(), document.json.size(), 0,
                                                   nullptr);
                             },
                             [](void *tree) { json_decref(static_cast<json_t *>(tree)); },
                             [](void *tree) {
                                 Content content;
                                 add_jansson(content, static_cast<json_t *>(tree));
                                 return content;
                             }};
#endif

// ---- cJSON ----

#ifdef VN_BENCH_CJSON
void add_cjson(Content &content, const cJSON *value)
{
    if (cJSON_IsString(value)) {
        ++content.texts;
        content.text_length += std::strlen(value->valuestring);
    } else if (cJSON_IsNumber(value)) {
        content.sum += static_cast<uint64_t>(value->valuedouble);
    } else if (cJSON_IsBool(value)) {
        content.flags += cJSON_IsTrue(value) ? 1 : 0;
    } else {
        ++content.containers;
        for (const cJSON *child = value->child; child != nullptr; child = child->next)
            add_cjson(content, child);
    }
}

constexpr Reader kCjson = {"cjson",
                           [](const Document &document) -> void * {
                               return cJSON_ParseWithLength(document.json.data(),
                                                            document.json.size());
                           },
                           [](void *tree) { cJSON_Delete(static_cast<cJSON *>(tree)); },
                           [](void *tree) {
                               Content content;
                               add_cjson(content, static_cast<const cJSON *>(tree));
                               return content;
                           }};
#endif

// ---- libconfig ----

#ifdef VN_BENCH_LIBCONFIG
void add_libconfig(Content &content, const config_setting_t *setting)
{
    switch (config_setting_type(setting)) {
    case CONFIG_TYPE_STRING:
        ++content.texts;
        content.text_length += std::strlen(config_setting_get_string(setting));
        break;
    case CONFIG_TYPE_INT:
        content.sum += static_cast<uint64_t>(config_setting_get_int(setting));
        break;
    case CONFIG_TYPE_BOOL:
        content.flags += static_cast<size_t>(config_setting_get_bool(setting));
        break;
    default:
        ++content.containers;
        for (int i = 0; i < config_setting_length(setting); ++i)
            add_libconfig(content, config_setting_get_elem(setting, static_cast<unsigned>(i)));
    }
}

constexpr Reader kLibconfig = {"libconfig",
                               [](const Document &document) -> void * {
                                   auto *const config = new config_t;
                                   config_init(config);
                                   config_read_string(config, document.libconfig.c_str());
                                   return config;
                               },
                               [](void *tree) {
                                   auto *const config = static_cast<config_t *>(tree);
                                   config_destroy(config);
                                   delete config;
                               },
                               [](void *tree) {
                                   Content content;
                                   add_libconfig(
                                       content, config_root_setting(static_cast<config_t *>(tree)));
                                   return content;
                               }};
#endif

constexpr Reader kReaders[] = {
    kVnlib,
#ifdef VN_BENCH_JANSSON
    kJansson,
#endif
#ifdef VN_BENCH_CJSON
    kCjson,
#endif
#ifdef VN_BENCH_LIBCONFIG
    kLibconfig,
#endif
};

Document make_records(size_t size)
{
    Writer writer;
    writer.open_array("records");
    for (size_t i = 0; i == 0 || writer.size() + 60 < size; ++i) {
        writer.open_struct(nullptr);
        writer.text("name", "storage node number " + std::to_string(i));
        writer.number("port", 8000 + i % 1000);
        writer.flag("enabled", i % 3 != 0);
        writer.open_array("channels");
        for (size_t channel = 1; channel <= 3; ++channel) writer.number(nullptr, channel * i % 97);
        writer.close_array();
        writer.open_struct("place");
        writer.text("room", "east wing");
        writer.number("rack", i % 40);
        writer.close_struct();
        writer.close_struct();
    }
    writer.close_array();
    return writer.finish();
}

} // namespace

const Document &records(size_t size)
{
    static std::map<size_t, Document> made;
    const auto [place, is_new] = made.try_emplace(size);
    if (is_new) place->second = make_records(size);
    return place->second;
}

Document level(size_t members, size_t first)
{
    Writer writer;
    for (size_t i = first; i < first + members; ++i) {
        const std::string name = "member" + std::to_string(i);
        if (i % 2 == 0)
            writer.number(name.c_str(), i);
        else
            writer.text(name.c_str(), "value of " + name);
    }
    return writer.finish();
}

Document sections(size_t count, size_t entries)
{
    Writer writer;
    for (size_t i = 0; i < count; ++i) {
        writer.open_struct(("section" + std::to_string(i)).c_str());
        for (size_t j = 0; j < entries; ++j)
            writer.number(("entry" + std::to_string(j)).c_str(), i * entries + j);
        writer.close_struct();
    }
    return writer.finish();
}

void settle_heap()
{
    malloc_trim(0);
}

std::span<const Reader> readers()
{
    return kReaders;
}

} // namespace bench
