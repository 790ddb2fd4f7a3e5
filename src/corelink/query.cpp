// query.cpp - reaching values by dotted paths.
//
//     servers.0.port      the member servers, its first element, that element's member port
//     3.name              a step that begins with a digit is a position, in structs as well
//
// A lookup keeps no copy of a step and allocates nothing; it descends in a loop, one level a step.
// On the way it takes the first child that a step selects, whatever may follow under another; only
// at the path's end does the wanted type choose among children of the same name.
#include "corelink/query.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "corelink/decimal.h"
#include "corelink/function_node.h"
#include "corelink/names.h"
#include "corelink/text_buffer.h"
#include "corelink/tree.h"
#include "memcheck/debugger.h"
#include "support/small.h"
#include "vnlib/memcheck.h"
#include "vnlib/vnstrings.h"

namespace vn::corelink {

namespace {

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// The leading digits of a text as a position; one that no list can reach when there are too many.
size_t leading_number(const char *text)
{
    constexpr size_t kUnreachable = SIZE_MAX / 16;
    size_t number = 0;
    for (; is_digit(*text) && number < kUnreachable; ++text) {
        number = number * 10 + static_cast<size_t>(*text - '0');
    }
    return number;
}

// One step of a path: a piece of it that ends at a dot or with the path.
class Step {
public:
    explicit Step(const char *path)
        : name_(path), length_(static_cast<size_t>(strchrnul(path, '.') - path))
    {
        if (kSmall) return;
        if (is_last()) {
            whole_name_ = name_;
        } else if (length_ < sizeof copy_) {
            std::memcpy(copy_, name_, length_);
            copy_[length_] = '\0';
            whole_name_ = copy_;
        }
    }
    Step(const Step &) = delete;
    Step &operator=(const Step &) = delete;

    [[nodiscard]] bool is_last() const { return name_[length_] == '\0'; }
    [[nodiscard]] const char *rest() const { return name_ + length_ + 1; }
    [[nodiscard]] bool is_position() const { return is_digit(*name_); }
    [[nodiscard]] size_t position() const { return leading_number(name_); }

    // The name as a text of its own; null when it has too much behind it to be copied.
    [[nodiscard]] const char *whole_name() const { return kSmall ? nullptr : whole_name_; }
    [[nodiscard]] bool is_name(const char *tag) const
    {
        size_t same = 0;
        while (same < length_ && tag[same] == name_[same]) ++same;
        return same == length_ && tag[same] == '\0';
    }

private:
    const char *name_;
    size_t length_;
    const char *whole_name_ = nullptr;
    char copy_[kSmall ? 1 : 32];
};

bool has_type(const clparse_node &node, int type)
{
    return type == kAnyType || node.type == static_cast<uint32_t>(type);
}

// The first child of a type that `selects` takes.
template <typename Selects>
Found first(const clparse_node &container, int type, Selects selects)
{
    size_t position = 0;
    for (clparse_node &child : Children(container)) {
        if (selects(child.tag, position) && has_type(child, type)) return {&child, position};
        ++position;
    }
    return {};
}

// Most tags differ in the first character: then a call would cost more than the look at it. The
// target's processors compare the others sooner than they call, too.
Found find_child(const clparse_node &container, const Step &step, int type)
{
    if (step.is_position()) {
        return first(container, type, [wanted = step.position()](const char *, size_t position) {
            return position == wanted;
        });
    }
    if (const char *const name = step.whole_name(); name != nullptr) {
        return first(container, type, [name, first = *name](const char *tag, size_t) {
            return tag != nullptr && *tag == first && std::strcmp(tag, name) == 0;
        });
    }
    return first(container, type,
                 [&step](const char *tag, size_t) { return tag != nullptr && step.is_name(tag); });
}

// A getter's path. While blocks are tracked it is charged to the getter as long as that works.
class PathText {
public:
    VN_PRINTF(3, 0) PathText(Site getter, const char *format, va_list args)
    {
        if (std::strchr(format, '%') != nullptr) {
            __vn_vasprintf(&block_, getter.function, getter.line, format, args);
        } else if (memcheck::tracking() != nullptr) {
            block_ = copy_text(format, getter.function, getter.line);
        } else {
            text_ = format; // most are plain: as they would come out
        }
    }
    ~PathText()
    {
        if (block_ != nullptr) vn_memcheck_free(std::free, block_, VN_CORELINK_HERE);
    }
    PathText(const PathText &) = delete;
    PathText &operator=(const PathText &) = delete;

    // Null when it cannot be formatted.
    [[nodiscard]] const char *get() const { return block_ != nullptr ? block_ : text_; }

private:
    const char *text_ = nullptr;
    char *block_ = nullptr;
};

clparse_node *find(Site getter, clparse_head *head, int type, const char *format, va_list args)
{
    if (head == nullptr || format == nullptr) return nullptr;
    const PathText path(getter, format, args);
    return look_up(&head->root, path.get(), type).node;
}

} // namespace

Found look_up(clparse_node *container, const char *path, int type)
{
    while (path != nullptr && container != nullptr) {
        const Step step(path);
        const Found found = find_child(*container, step, step.is_last() ? type : kAnyType);
        if (step.is_last()) return found;
        container = found.node;
        path = step.rest();
    }
    return {};
}

namespace {

// The members of a container as `path`.name, separated by commas; of a leaf, its name.
void list_node(TextBuffer &out, const char *path, const clparse_node &node, size_t position)
{
    if (!is_container(node)) {
        out.put(path_name(node, Decimal(position)));
        return;
    }
    size_t member_position = 0;
    for (const clparse_node &member : Children(node)) {
        if (member_position != 0) out.put(',');
        out.put(path).put('.').put(path_name(member, Decimal(member_position)));
        ++member_position;
    }
}

// A function node is listed as what it yields, under its own path.
void list(TextBuffer &out, const char *path, const Found &found)
{
    if (type_of(*found.node) != Type::kFunction) {
        list_node(out, path, *found.node, found.position);
        return;
    }
    const clparse_node *const result = resolve(*found.node);
    if (result != nullptr) list_node(out, path, *result, found.position);
    release_result(found.node);
}

} // namespace

} // namespace vn::corelink

using namespace vn::corelink;

extern "C" clparse_node *clparse_get_tagtype(clparse_node *container, const char *path, int type)
{
    return look_up(container, path, type).node;
}

extern "C" clparse_node *clparse_get_node(clparse_head *head, const char *path)
{
    return head != nullptr ? look_up(&head->root, path, kAnyType).node : nullptr;
}

extern "C" int clparse_get_type(clparse_head *head, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const clparse_node *const node =
        find({"clparse_get_type", __LINE__}, head, kAnyType, format, args);
    va_end(args);
    return node != nullptr ? static_cast<int>(node->type) : -1;
}

extern "C" int clparse_get_tag(clparse_head *head, char **tag, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const clparse_node *const node =
        find({"clparse_get_tag", __LINE__}, head, kAnyType, format, args);
    va_end(args);
    if (node == nullptr || tag == nullptr) return -1;
    *tag = node->tag;
    return 0;
}

extern "C" int clparse_get_bool(clparse_head *head, unsigned char *value, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const clparse_node *const node =
        find({"clparse_get_bool", __LINE__}, head, CLPARSE_BOOLEAN, format, args);
    va_end(args);
    if (node == nullptr || value == nullptr) return -1;
    *value = node->value.boolean;
    return 0;
}

extern "C" int clparse_get_number(clparse_head *head, uint64_t *value, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const clparse_node *const node =
        find({"clparse_get_number", __LINE__}, head, CLPARSE_NUMBER, format, args);
    va_end(args);
    if (node == nullptr || value == nullptr) return -1;
    *value = node->value.number;
    return 0;
}

// Without a place for the copy the call only tells whether there is such a string.
extern "C" int clparse_get_string(clparse_head *head, char **value, const char *format, ...)
{
    if (value != nullptr) *value = nullptr;
    va_list args;
    va_start(args, format);
    const clparse_node *const node =
        find({"clparse_get_string", __LINE__}, head, CLPARSE_STRING, format, args);
    va_end(args);
    if (node == nullptr) return -1;
    if (value != nullptr && node->value.text != nullptr)
        *value = copy_text(node->value.text, "clparse_get_string", __LINE__);
    return 0;
}

extern "C" char *clparse_get_path(clparse_head *head, const char *path)
{
    if (head == nullptr || path == nullptr) return nullptr;
    TextBuffer out({"clparse_get_path", __LINE__});
    const Found found = look_up(&head->root, path, kAnyType);
    if (found.node != nullptr) list(out, path, found);
    return out.finish();
}
