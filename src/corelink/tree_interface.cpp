// tree_interface.cpp - the C functions of the node tree: nulls, errno and house quirks.
#include <cerrno>

#include "corelink/tree.h"
#include "log/assertion.h"

using namespace vn::corelink;

namespace {

int refuse(int error)
{
    errno = error;
    return -1;
}

// Lines of the tree's two assertions, which callers look for in the log.
constexpr size_t kTagAssertion = 1657;
constexpr size_t kPrivAssertion = 1668;

bool asserted(const clparse_node *node, size_t line)
{
    if (node == nullptr) vn::log::report_assertion("node != ((void *)0)", "corelink", line);
    return node != nullptr;
}

bool has_type(const clparse_node *node, Type type)
{
    return node != nullptr && type_of(*node) == type;
}

// A new node with a copy of `tag`, charged to the constructor that asks.
clparse_node *new_tagged(Type type, const char *tag, const char *site, unsigned line)
{
    if (tag == nullptr) return nullptr;
    OwnedNode node(new_node());
    if (!node) return nullptr;
    set_type(*node, type);
    node->tag = copy_text(tag, site, line);
    return node->tag == nullptr ? nullptr : node.release();
}

clparse_node *new_container(Type type, const char *tag, const char *site, unsigned line)
{
    OwnedNode node(new_tagged(type, tag, site, line));
    if (!node) return nullptr;
    node->value.children = new_sentinel();
    return node->value.children == nullptr ? nullptr : node.release();
}

} // namespace

extern "C" {

struct clparse_node *clparse_create_string_node(const char *tag, const char *text)
{
    if (text == nullptr) return nullptr;
    OwnedNode node(new_tagged(Type::kString, tag, __func__, __LINE__));
    if (!node) return nullptr;
    node->value.text = copy_text(text, __func__, __LINE__);
    return node->value.text == nullptr ? nullptr : node.release();
}

struct clparse_node *clparse_create_number_node(const char *tag, uint64_t value)
{
    clparse_node *const node = new_tagged(Type::kNumber, tag, __func__, __LINE__);
    if (node != nullptr) node->value.number = value;
    return node;
}

struct clparse_node *clparse_create_boolean_node(const char *tag, int flag)
{
    clparse_node *const node = new_tagged(Type::kBoolean, tag, __func__, __LINE__);
    if (node != nullptr) node->value.boolean = static_cast<unsigned char>(flag);
    return node;
}

struct clparse_node *clparse_create_struct_node(const char *tag)
{
    return new_container(Type::kStruct, tag, __func__, __LINE__);
}

struct clparse_node *clparse_create_array_node(const char *tag)
{
    return new_container(Type::kArray, tag, __func__, __LINE__);
}

struct clparse_node *clparse_create_function_node(const char *tag, clparse_resolve_fn resolve,
                                                  void *second, clparse_release_fn release,
                                                  void *priv)
{
    clparse_node *const node = new_tagged(Type::kFunction, tag, __func__, __LINE__);
    if (node != nullptr) node->value.function = {resolve, second, release, priv};
    return node;
}

int clparse_init_head(struct clparse_head **out)
{
    if (out == nullptr) return -1;
    *out = new_head({__func__, __LINE__, __LINE__, __LINE__});
    return *out == nullptr ? -1 : 0;
}

struct clparse_node *clparse_get_head(struct clparse_head *head)
{
    return head == nullptr ? nullptr : &head->root;
}

void clparse_stop(struct clparse_head *head)
{
    if (head != nullptr) release_head(head, VN_CORELINK_HERE);
}

int clparse_append_child(struct clparse_node *parent, struct clparse_node *child)
{
    if (parent == nullptr || child == nullptr || parent == child) return refuse(EINVAL);
    if (!is_container(*parent) || parent->value.children == nullptr) return refuse(ENOTDIR);
    unlink(*child); // callers promise that it is in no list; a broken promise moves the node
    append(*parent, *child);
    return 0;
}

struct clparse_node *clparse_get_child(struct clparse_node *node)
{
    if (node == nullptr) return nullptr;
    const Children list(*node);
    if (list.empty()) return nullptr;
    clparse_node &first = *list.begin();
    unlink(first);
    return &first;
}

int clparse_remove_child(struct clparse_node *node)
{
    if (node == nullptr) return refuse(EINVAL);
    unlink(*node);
    if (is_container(*node)) orphan_children(*node);
    release_node(node, Privates::kRelease);
    return 0;
}

int clparse_delete_node(struct clparse_node *node)
{
    if (node == nullptr) return refuse(EINVAL);
    unlink(*node);
    release_node(node, Privates::kRelease);
    return 0;
}

uint32_t clparse_get_node_type(const struct clparse_node *node)
{
    return node == nullptr ? uint32_t{CLPARSE_NULL} : node->type;
}

char *clparse_get_node_tag(const struct clparse_node *node)
{
    return asserted(node, kTagAssertion) ? node->tag : nullptr;
}

void *clparse_get_func_priv(const struct clparse_node *node)
{
    return asserted(node, kPrivAssertion) ? node->value.function.priv : nullptr;
}

char *clparse_get_node_value_s(const struct clparse_node *node)
{
    return has_type(node, Type::kString) ? node->value.text : nullptr;
}

uint32_t clparse_get_node_value_n(const struct clparse_node *node)
{
    return has_type(node, Type::kNumber) ? static_cast<uint32_t>(node->value.number) : UINT32_MAX;
}

unsigned char clparse_get_node_value_b(const struct clparse_node *node)
{
    return has_type(node, Type::kBoolean) ? node->value.boolean : 0;
}

int clparse_set_node_value_s(struct clparse_node *node, const char *text)
{
    if (!has_type(node, Type::kString)) return -1;
    char *const copy = text == nullptr ? nullptr : copy_text(text, __func__, __LINE__);
    release_text(node->value.text, VN_CORELINK_HERE); // after the copy: `text` may be the old one
    node->value.text = copy;
    return 0;
}

int clparse_set_node_value_n(struct clparse_node *node, int32_t value)
{
    if (!has_type(node, Type::kNumber)) return -1;
    node->value.number = static_cast<uint64_t>(int64_t{value});
    return 0;
}

int clparse_set_node_value_b(struct clparse_node *node, int flag)
{
    if (!has_type(node, Type::kBoolean)) return -1;
    node->value.boolean = static_cast<unsigned char>(flag);
    return 0;
}
}
