#include "vnlib/corelink.h"

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <pthread.h>
#include <syslog.h>
#include <thread>

#include "support/capture.h"
#include "support/corelink_shape.h"
#include "support/tracked.h"
#include "vnlib/log.h"
#include "vnlib/memcheck.h"

using shape::add;
using shape::children;
using shape::empty_tree;
using shape::LoneNode;
using shape::members;
using shape::Tree;
using shape::well_linked;

namespace {

clparse_node *resolve_to_itself(clparse_node *node, void *)
{
    return node;
}

int release_nothing(clparse_node *, void *)
{
    return 0;
}

// Everything a constructor promises about a fresh node.
void expect_fresh(const clparse_node *node, const char *tag, uint32_t type)
{
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->tag, tag);
    EXPECT_NE(node->tag, tag) << "the tag is a copy";
    EXPECT_EQ(node->type, type);
    EXPECT_EQ(node->parent, nullptr);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->prev, nullptr);
    EXPECT_EQ(node->ref.count, 0);
    EXPECT_EQ(node->ref.release, nullptr);
    EXPECT_EQ(node->ref.arg, nullptr);
}

// Runs `body` on a thread with little stack, as small devices have it.
void on_a_small_stack(void (*body)())
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void *work) -> void * {
                      reinterpret_cast<void (*)()>(work)();
                      return nullptr;
                  },
                  reinterpret_cast<void *>(body)),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// `levels` structs, each in the one before.
clparse_node *nested(unsigned levels)
{
    clparse_node *const outermost = clparse_create_struct_node("level");
    clparse_node *inner = outermost;
    for (unsigned i = 1; i < levels; ++i) inner = add(inner, clparse_create_array_node("level"));
    add(inner, clparse_create_string_node("leaf", "text"));
    return outermost;
}

std::string log_of(void (*body)())
{
    return test::run_in_child([body] {
               vn_log_init("test", LOG_DEBUG, LOG_PERROR, LOG_USER, 0);
               body();
           })
        .err;
}

} // namespace

TEST(CorelinkRecord, KeepsItsFieldsInOrder)
{
    EXPECT_EQ(offsetof(clparse_node, tag), 0u);
    EXPECT_EQ(offsetof(clparse_node, type), sizeof(void *));
    EXPECT_EQ(offsetof(clparse_node, value), 2 * sizeof(void *));
    EXPECT_EQ(offsetof(clparse_node, ref), offsetof(clparse_node, value) + 4 * sizeof(void *));
    EXPECT_EQ(offsetof(clparse_node, parent), offsetof(clparse_node, ref) + sizeof(vn_reference));
    EXPECT_EQ(offsetof(clparse_node, next), offsetof(clparse_node, parent) + sizeof(void *));
    EXPECT_EQ(offsetof(clparse_node, prev), offsetof(clparse_node, next) + sizeof(void *));
    EXPECT_EQ(offsetof(clparse_head, scanner), 0u);
    EXPECT_LT(offsetof(clparse_head, root), offsetof(clparse_head, cursor));
}

TEST(CorelinkCreate, MakesAStringOfCopies)
{
    const LoneNode node(clparse_create_string_node("name", "value"));
    expect_fresh(node.get(), "name", 1);
    EXPECT_STREQ(node->value.text, "value");
}

TEST(CorelinkCreate, MakesANumberOf64Bits)
{
    const LoneNode node(clparse_create_number_node("size", 0xFEDC'BA98'7654'3210u));
    expect_fresh(node.get(), "size", 2);
    EXPECT_EQ(node->value.number, 0xFEDC'BA98'7654'3210u);
}

TEST(CorelinkCreate, KeepsTheLow8BitsOfAFlag)
{
    const LoneNode node(clparse_create_boolean_node("on", 0x302));
    expect_fresh(node.get(), "on", 3);
    EXPECT_EQ(node->value.boolean, 2);
    const LoneNode cut(clparse_create_boolean_node("off", 0x100));
    EXPECT_EQ(cut->value.boolean, 0);
}

TEST(CorelinkCreate, MakesContainersWithAnEmptyRing)
{
    const LoneNode object(clparse_create_struct_node("object"));
    expect_fresh(object.get(), "object", 4);
    const LoneNode array(clparse_create_array_node("array"));
    expect_fresh(array.get(), "array", 5);
    for (const clparse_node *container : {object.get(), array.get()}) {
        const clparse_node *const sentinel = container->value.children;
        ASSERT_NE(sentinel, nullptr);
        EXPECT_EQ(sentinel->next, sentinel);
        EXPECT_EQ(sentinel->prev, sentinel);
    }
}

TEST(CorelinkCreate, KeepsTheFourWordsOfAFunction)
{
    int second = 0, priv = 0;
    clparse_node *const node =
        clparse_create_function_node("call", resolve_to_itself, &second, release_nothing, &priv);
    expect_fresh(node, "call", 6);
    EXPECT_EQ(node->value.function.resolve, resolve_to_itself);
    EXPECT_EQ(node->value.function.second, &second);
    EXPECT_EQ(node->value.function.release, release_nothing);
    EXPECT_EQ(node->value.function.priv, &priv);
    const Tree tree = empty_tree();
    add(&tree->root, node);
}

TEST(CorelinkCreate, NeedsATag)
{
    EXPECT_EQ(clparse_create_string_node(nullptr, "text"), nullptr);
    EXPECT_EQ(clparse_create_number_node(nullptr, 1), nullptr);
    EXPECT_EQ(clparse_create_boolean_node(nullptr, 1), nullptr);
    EXPECT_EQ(clparse_create_struct_node(nullptr), nullptr);
    EXPECT_EQ(clparse_create_array_node(nullptr), nullptr);
    EXPECT_EQ(clparse_create_function_node(nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
}

TEST(CorelinkCreate, NeedsATextForAString)
{
    EXPECT_EQ(clparse_create_string_node("xx", nullptr), nullptr);
}

TEST(CorelinkCreate, TakesEmptyTexts)
{
    const LoneNode node(clparse_create_string_node("", ""));
    EXPECT_STREQ(node->tag, "");
    EXPECT_STREQ(node->value.text, "");
}

TEST(CorelinkHead, StartsAsAnEmptyStructNamedHead)
{
    clparse_head *head = nullptr;
    ASSERT_EQ(clparse_init_head(&head), 0);
    EXPECT_EQ(head->scanner, nullptr);
    EXPECT_EQ(head->cursor, nullptr);
    clparse_node *const root = clparse_get_head(head);
    EXPECT_EQ(root, &head->root);
    EXPECT_STREQ(root->tag, "head");
    EXPECT_EQ(root->type, 4u);
    EXPECT_EQ(root->parent, nullptr);
    EXPECT_TRUE(children(root).empty());
    clparse_stop(head);
}

TEST(CorelinkHead, NullIsAnsweredSafely)
{
    EXPECT_EQ(clparse_init_head(nullptr), -1);
    EXPECT_EQ(clparse_get_head(nullptr), nullptr);
    clparse_stop(nullptr);
}

TEST(CorelinkHead, StopKeepsErrno)
{
    clparse_head *head = nullptr;
    clparse_init_head(&head);
    errno = EXDEV;
    clparse_stop(head);
    EXPECT_EQ(errno, EXDEV);
}

TEST(CorelinkAppend, LinksAtTheEndInOrder)
{
    const Tree tree = empty_tree();
    clparse_node *const root = &tree->root;
    clparse_node *const first = clparse_create_number_node("first", 1);
    clparse_node *const second = clparse_create_number_node("second", 2);
    clparse_node *const third = clparse_create_array_node("third");
    errno = EXDEV;
    for (clparse_node *node : {first, second, third})
        EXPECT_EQ(clparse_append_child(root, node), 0);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(children(root), (std::vector<clparse_node *>{first, second, third}));
    EXPECT_EQ(root->value.children->next, first);
    EXPECT_EQ(root->value.children->prev, third);
    EXPECT_TRUE(well_linked(root));
    EXPECT_EQ(clparse_append_child(third, clparse_create_boolean_node("in", 1)), 0);
    EXPECT_EQ(members(root), "first:1 second:2 third:[in:true]");
}

TEST(CorelinkAppend, RefusesNull)
{
    const LoneNode node(clparse_create_struct_node("node"));
    errno = 0;
    EXPECT_EQ(clparse_append_child(nullptr, node.get()), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(clparse_append_child(node.get(), nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(clparse_append_child(nullptr, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(CorelinkAppend, RefusesParentsThatAreNoContainers)
{
    const LoneNode child(clparse_create_number_node("child", 7));
    const clparse_node before = *child;
    const LoneNode parents[] = {
        LoneNode(clparse_create_string_node("parent", "text")),
        LoneNode(clparse_create_number_node("parent", 1)),
        LoneNode(clparse_create_boolean_node("parent", 1)),
        LoneNode(clparse_create_function_node("parent", nullptr, nullptr, nullptr, nullptr)),
    };
    for (const LoneNode &parent : parents) {
        errno = 0;
        EXPECT_EQ(clparse_append_child(parent.get(), child.get()), -1);
        EXPECT_EQ(errno, ENOTDIR) << "type " << parent->type;
        EXPECT_EQ(child->tag, before.tag);
        EXPECT_EQ(child->type, before.type);
        EXPECT_EQ(child->value.number, before.value.number);
        EXPECT_EQ(child->parent, before.parent);
        EXPECT_EQ(child->next, before.next);
        EXPECT_EQ(child->prev, before.prev);
        EXPECT_EQ(parent->next, nullptr);
    }
    EXPECT_EQ(parents[1]->value.number, 1u);
}

TEST(CorelinkAppend, MovesANodeThatIsInAListAlready)
{
    const Tree tree = empty_tree();
    clparse_node *const object = add(&tree->root, clparse_create_struct_node("object"));
    clparse_node *const moved = add(&tree->root, clparse_create_number_node("moved", 1));
    EXPECT_EQ(clparse_append_child(object, moved), 0);
    EXPECT_EQ(members(&tree->root), "object:{moved:1}");
    EXPECT_TRUE(well_linked(&tree->root));
    EXPECT_TRUE(well_linked(object));
}

TEST(CorelinkAppend, RefusesANodeAsItsOwnParent)
{
    const LoneNode node(clparse_create_struct_node("node"));
    errno = 0;
    EXPECT_EQ(clparse_append_child(node.get(), node.get()), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(CorelinkGetChild, TakesTheFirstChildAway)
{
    const LoneNode parent(clparse_create_struct_node("parent"));
    clparse_node *const a = add(parent.get(), clparse_create_number_node("aa", 1));
    clparse_node *const b = add(parent.get(), clparse_create_number_node("bb", 2));
    clparse_node *const c = add(parent.get(), clparse_create_number_node("cc", 3));
    const LoneNode first(clparse_get_child(parent.get()));
    const LoneNode second(clparse_get_child(parent.get()));
    EXPECT_EQ(first.get(), a);
    EXPECT_EQ(second.get(), b);
    EXPECT_EQ(children(parent.get()), (std::vector<clparse_node *>{c}));
    EXPECT_EQ(first->next, first.get());
    EXPECT_EQ(first->prev, first.get());
    EXPECT_EQ(first->parent, parent.get());
    EXPECT_TRUE(well_linked(parent.get()));
}

TEST(CorelinkGetChild, IsNullWhereThereIsNone)
{
    const LoneNode object(clparse_create_struct_node("object"));
    const LoneNode array(clparse_create_array_node("array"));
    const LoneNode number(clparse_create_number_node("number", 1));
    EXPECT_EQ(clparse_get_child(object.get()), nullptr);
    EXPECT_EQ(clparse_get_child(array.get()), nullptr);
    EXPECT_EQ(clparse_get_child(number.get()), nullptr);
    EXPECT_EQ(clparse_get_child(nullptr), nullptr);
}

TEST(CorelinkGetChild, GivesANodeThatCanBeAppendedElsewhere)
{
    const Tree tree = empty_tree();
    const LoneNode parent(clparse_create_struct_node("parent"));
    add(parent.get(), clparse_create_number_node("aa", 1));
    EXPECT_EQ(clparse_append_child(&tree->root, clparse_get_child(parent.get())), 0);
    EXPECT_EQ(members(&tree->root), "aa:1");
    EXPECT_TRUE(well_linked(&tree->root));
}

TEST(CorelinkRemoveChild, UnlinksAndReleasesTheNode)
{
    const Tree tree = empty_tree();
    add(&tree->root, clparse_create_string_node("aa", "text"));
    clparse_node *const middle = add(&tree->root, clparse_create_string_node("bb", "text"));
    add(&tree->root, clparse_create_number_node("cc", 3));
    EXPECT_EQ(clparse_remove_child(middle), 0);
    EXPECT_EQ(members(&tree->root), "aa:\"text\" cc:3");
    EXPECT_TRUE(well_linked(&tree->root));
}

TEST(CorelinkRemoveChild, RefusesNull)
{
    errno = 0;
    EXPECT_EQ(clparse_remove_child(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(CorelinkRemoveChild, TakesANodeThatIsInNoList)
{
    EXPECT_EQ(clparse_remove_child(clparse_create_number_node("alone", 1)), 0);
}

TEST(CorelinkRemoveChild, ReleasesAFunctionsPrivatePointer)
{
    void *const priv = vn_memcheck_malloc(vn_malloc, 10, "test", 1); // else the leak checker tells
    const Tree tree = empty_tree();
    clparse_node *const node =
        add(&tree->root, clparse_create_function_node("call", nullptr, nullptr, nullptr, priv));
    EXPECT_EQ(clparse_remove_child(node), 0);
    EXPECT_EQ(clparse_remove_child(
                  clparse_create_function_node("call", nullptr, nullptr, nullptr, nullptr)),
              0);
}

TEST(CorelinkRemoveChild, LeavesAContainersChildrenToTheirHolder)
{
    const Tree tree = empty_tree();
    clparse_node *const object = add(&tree->root, clparse_create_struct_node("object"));
    const LoneNode first(add(object, clparse_create_number_node("first", 1)));
    const LoneNode second(add(object, clparse_create_string_node("second", "text")));
    EXPECT_EQ(clparse_remove_child(object), 0);
    EXPECT_TRUE(children(&tree->root).empty());
    for (const clparse_node *left : {first.get(), second.get()}) {
        EXPECT_EQ(left->next, left);
        EXPECT_EQ(left->prev, left);
        EXPECT_EQ(left->parent, nullptr);
    }
    EXPECT_STREQ(clparse_get_node_value_s(second.get()), "text");
}

TEST(CorelinkDeleteNode, ReleasesAWholeSubtree)
{
    const Tree tree = empty_tree();
    clparse_node *const object = add(&tree->root, clparse_create_struct_node("object"));
    clparse_node *const array = add(object, clparse_create_array_node("array"));
    add(array, clparse_create_string_node("text", "text"));
    add(array, clparse_create_struct_node("empty"));
    add(object, clparse_create_boolean_node("flag", 1));
    add(&tree->root, clparse_create_number_node("stays", 1));
    EXPECT_EQ(clparse_delete_node(object), 0);
    EXPECT_EQ(members(&tree->root), "stays:1");
    EXPECT_EQ(clparse_delete_node(children(&tree->root)[0]), 0);
    EXPECT_EQ(members(&tree->root), "");
}

TEST(CorelinkDeleteNode, RefusesNull)
{
    errno = 0;
    EXPECT_EQ(clparse_delete_node(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(CorelinkDeleteNode, ReleasesPrivatePointersBelow)
{
    clparse_node *const object = clparse_create_struct_node("object");
    clparse_node *const inner = add(object, clparse_create_array_node("inner"));
    for (clparse_node *parent : {object, inner})
        add(parent, clparse_create_function_node("call", nullptr, nullptr, nullptr,
                                                 vn_memcheck_malloc(vn_malloc, 8, "test", 1)));
    EXPECT_EQ(clparse_delete_node(object), 0);
}

// One node of each kind, in a struct; the function node's private pointer is a block too. The test
// itself must not look into the nodes: those that are tracked are four bytes off their alignment.
struct OneOfEach {
    clparse_node *parent = clparse_create_struct_node("parent");
    clparse_node *children[5] = {
        add(parent, clparse_create_string_node("string", "text")),
        add(parent, clparse_create_number_node("number", 1)),
        add(parent, clparse_create_boolean_node("boolean", 1)),
        add(parent, clparse_create_array_node("array")),
        add(parent,
            clparse_create_function_node("call", resolve_to_itself, nullptr, release_nothing,
                                         vn_memcheck_malloc(vn_malloc, 8, "test", 1)))};
};

TEST(CorelinkDeleteNode, LeavesNothingBehind)
{
    EXPECT_EQ(test::left_behind_by([] { clparse_delete_node(OneOfEach().parent); }), 0);
}

TEST(CorelinkRemoveChild, LeavesNothingOfTheNodeBehind)
{
    EXPECT_EQ(test::left_behind_by([] {
                  const OneOfEach nodes;
                  for (clparse_node *const child : nodes.children) clparse_remove_child(child);
                  clparse_remove_child(nodes.parent);
              }),
              0);
}

TEST(CorelinkStop, LeavesPrivatePointersToTheirOwner)
{
    char priv[] = "still here"; // not a block: releasing it would end the test
    clparse_head *head = nullptr;
    clparse_init_head(&head);
    clparse_node *const object = add(&head->root, clparse_create_struct_node("object"));
    for (clparse_node *parent : {&head->root, object})
        add(parent, clparse_create_function_node("call", nullptr, nullptr, nullptr, priv));
    clparse_stop(head);
    EXPECT_STREQ(priv, "still here");
}

TEST(CorelinkStop, ReleasesNodesOfUnknownTypes)
{
    const Tree tree = empty_tree();
    for (const uint32_t type : {0u, 7u, 0xFFFF'FFFFu}) {
        clparse_node *const node = clparse_create_number_node("strange", 0x1234);
        node->type = type;
        add(&tree->root, node);
    }
}

TEST(CorelinkStop, ReleasesAStringWithoutAText)
{
    const Tree tree = empty_tree();
    clparse_node *const node = add(&tree->root, clparse_create_string_node("aa", "text"));
    clparse_set_node_value_s(node, nullptr);
}

TEST(CorelinkDepth, ReleasesManyLevelsOnASmallStack)
{
    on_a_small_stack([] {
        clparse_head *head = nullptr;
        clparse_init_head(&head);
        add(&head->root, nested(100'000));
        clparse_stop(head);
        EXPECT_EQ(clparse_delete_node(nested(100'000)), 0);
    });
}

TEST(CorelinkType, IsTheCode)
{
    const LoneNode node(clparse_create_boolean_node("node", 1));
    EXPECT_EQ(clparse_get_node_type(node.get()), 3u);
    node->type = 99;
    EXPECT_EQ(clparse_get_node_type(node.get()), 99u);
    EXPECT_EQ(clparse_get_node_type(nullptr), 0u);
}

TEST(CorelinkTag, IsNotACopy)
{
    const LoneNode node(clparse_create_boolean_node("node", 1));
    EXPECT_EQ(clparse_get_node_tag(node.get()), node->tag);
}

TEST(CorelinkTag, OfNullIsReportedAndNull)
{
    const std::string log = log_of([] { EXPECT_EQ(clparse_get_node_tag(nullptr), nullptr); });
    EXPECT_THAT(log, testing::EndsWith("ERROR: assert node != ((void *)0) corelink:1657\r\n"));
}

TEST(CorelinkFuncPriv, IsThePrivatePointer)
{
    int priv = 0;
    const Tree tree = empty_tree();
    clparse_node *const node =
        add(&tree->root, clparse_create_function_node("call", nullptr, nullptr, nullptr, &priv));
    EXPECT_EQ(clparse_get_func_priv(node), &priv);
}

TEST(CorelinkFuncPriv, DoesNotLookAtTheType)
{
    const LoneNode node(clparse_create_number_node("number", 5));
    int word = 0;
    node->value.function.priv = &word;
    EXPECT_EQ(clparse_get_func_priv(node.get()), &word);
}

TEST(CorelinkFuncPriv, OfNullIsReportedAndNull)
{
    const std::string log = log_of([] { EXPECT_EQ(clparse_get_func_priv(nullptr), nullptr); });
    EXPECT_THAT(log, testing::EndsWith("ERROR: assert node != ((void *)0) corelink:1668\r\n"));
}

TEST(CorelinkValue, OfAnotherTypeIsTheNeutralOne)
{
    const LoneNode string(clparse_create_string_node("string", "text"));
    const LoneNode number(clparse_create_number_node("number", 0x1'2345'6789));
    const LoneNode boolean(clparse_create_boolean_node("boolean", 1));
    errno = EXDEV;
    EXPECT_EQ(clparse_get_node_value_s(string.get()), string->value.text);
    EXPECT_EQ(clparse_get_node_value_s(number.get()), nullptr);
    EXPECT_EQ(clparse_get_node_value_s(nullptr), nullptr);
    EXPECT_EQ(clparse_get_node_value_n(number.get()), 0x2345'6789u);
    EXPECT_EQ(clparse_get_node_value_n(boolean.get()), 0xFFFF'FFFFu);
    EXPECT_EQ(clparse_get_node_value_n(nullptr), 0xFFFF'FFFFu);
    EXPECT_EQ(clparse_get_node_value_b(boolean.get()), 1);
    EXPECT_EQ(clparse_get_node_value_b(number.get()), 0);
    EXPECT_EQ(clparse_get_node_value_b(nullptr), 0);
    EXPECT_EQ(errno, EXDEV);
}

TEST(CorelinkSetText, ReplacesTheCopy)
{
    const LoneNode node(clparse_create_string_node("node", "old"));
    std::string text = "new";
    EXPECT_EQ(clparse_set_node_value_s(node.get(), text.c_str()), 0);
    text = "xxx";
    EXPECT_STREQ(node->value.text, "new");
}

TEST(CorelinkSetText, TakesNullForNoText)
{
    const LoneNode node(clparse_create_string_node("node", "old"));
    EXPECT_EQ(clparse_set_node_value_s(node.get(), nullptr), 0);
    EXPECT_EQ(node->value.text, nullptr);
    EXPECT_EQ(clparse_set_node_value_s(node.get(), nullptr), 0);
    EXPECT_EQ(clparse_set_node_value_s(node.get(), "back"), 0);
    EXPECT_STREQ(node->value.text, "back");
}

TEST(CorelinkSetText, TakesTheNodesOwnText)
{
    const LoneNode node(clparse_create_string_node("node", "prefix and rest"));
    EXPECT_EQ(clparse_set_node_value_s(node.get(), node->value.text + 7), 0);
    EXPECT_STREQ(node->value.text, "and rest");
}

TEST(CorelinkSetNumber, IsWidenedWithItsSign)
{
    const LoneNode node(clparse_create_number_node("node", 5));
    EXPECT_EQ(clparse_set_node_value_n(node.get(), -1), 0);
    EXPECT_EQ(node->value.number, UINT64_MAX);
    EXPECT_EQ(clparse_get_node_value_n(node.get()), 0xFFFF'FFFFu);
    EXPECT_EQ(clparse_set_node_value_n(node.get(), INT32_MIN), 0);
    EXPECT_EQ(node->value.number, 0xFFFF'FFFF'8000'0000u);
    EXPECT_EQ(clparse_set_node_value_n(node.get(), 7), 0);
    EXPECT_EQ(node->value.number, 7u);
}

TEST(CorelinkSetFlag, KeepsTheLow8Bits)
{
    const LoneNode node(clparse_create_boolean_node("node", 0));
    EXPECT_EQ(clparse_set_node_value_b(node.get(), 0x1FE), 0);
    EXPECT_EQ(node->value.boolean, 0xFE);
}

TEST(CorelinkSet, RefusesOtherTypesWithoutErrno)
{
    const LoneNode string(clparse_create_string_node("string", "text"));
    const LoneNode number(clparse_create_number_node("number", 5));
    errno = EXDEV;
    EXPECT_EQ(clparse_set_node_value_s(number.get(), "text"), -1);
    EXPECT_EQ(clparse_set_node_value_n(string.get(), 1), -1);
    EXPECT_EQ(clparse_set_node_value_b(number.get(), 1), -1);
    EXPECT_EQ(clparse_set_node_value_s(nullptr, "text"), -1);
    EXPECT_EQ(clparse_set_node_value_n(nullptr, 1), -1);
    EXPECT_EQ(clparse_set_node_value_b(nullptr, 1), -1);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(number->value.number, 5u);
    EXPECT_STREQ(string->value.text, "text");
}
