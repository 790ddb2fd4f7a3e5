#define _GNU_SOURCE
#include "printed.h"

static int resolved;
static int given_back;

static struct clparse_node *resolve(struct clparse_node *node, void *priv)
{
    CHECK(clparse_get_node_type(node) == 6 && clparse_get_func_priv(node) == priv);
    ++resolved;
    return priv;
}

static int give_back(struct clparse_node *node, void *priv)
{
    CHECK(node != NULL && priv != NULL);
    ++given_back;
    return 0;
}

static void drop(char *text)
{
    vn_memcheck_free(vn_free, text, "corelink:drop");
}

static void trees_by_hand(void)
{
    struct clparse_head *head = NULL;
    struct clparse_node *root = NULL;
    struct clparse_node *list = clparse_create_array_node("list");
    struct clparse_node *group = clparse_create_struct_node("group");
    struct clparse_node *number = clparse_create_number_node("number", 0x123456789ABCull);
    struct clparse_node *flag = clparse_create_boolean_node("flag", 0x101);
    struct clparse_node *text = clparse_create_string_node("text", "words");
    struct clparse_node *called = NULL;

    CHECK(clparse_init_head(&head) == 0 && head != NULL);
    root = clparse_get_head(head);
    CHECK(root->type == 4);
    CHECK_TEXT(clparse_get_node_tag(root), "head");
    CHECK(clparse_create_string_node("x", NULL) == NULL &&
          clparse_create_struct_node(NULL) == NULL);
    CHECK(clparse_append_child(root, group) == 0 && clparse_append_child(group, number) == 0);
    CHECK(clparse_append_child(group, flag) == 0 && clparse_append_child(root, list) == 0);
    errno = 0;
    CHECK(clparse_append_child(number, text) == -1 && errno == ENOTDIR);
    errno = 0;
    CHECK(clparse_append_child(NULL, text) == -1 && errno == EINVAL);
    CHECK(clparse_append_child(list, text) == 0 && text->parent == list);

    CHECK(clparse_get_node_value_n(number) == 0x56789ABCu &&
          clparse_get_node_value_n(text) == UINT32_MAX);
    CHECK(clparse_get_node_value_b(flag) == 1 && clparse_get_node_value_b(number) == 0);
    CHECK_TEXT(clparse_get_node_value_s(text), "words");
    CHECK(clparse_get_node_value_s(flag) == NULL);
    CHECK(clparse_set_node_value_n(number, -1) == 0 && clparse_set_node_value_n(text, 1) == -1);
    CHECK(number->value.number == UINT64_MAX);
    CHECK(clparse_set_node_value_b(flag, 0) == 0 && clparse_set_node_value_b(text, 0) == -1);
    CHECK(clparse_set_node_value_s(text, "other") == 0 &&
          clparse_set_node_value_s(flag, "x") == -1);
    CHECK_TEXT(clparse_get_node_value_s(text), "other");

    CHECK(clparse_get_child(list) == text && clparse_get_child(list) == NULL);
    CHECK(clparse_delete_node(text) == 0 && clparse_remove_child(flag) == 0);
    errno = 0;
    CHECK(clparse_remove_child(NULL) == -1 && errno == EINVAL && clparse_delete_node(NULL) == -1);

    called = clparse_create_function_node("called", resolve, NULL, give_back, group);
    CHECK(called != NULL && clparse_append_child(root, called) == 0);
    {
        char *paths = clparse_get_path(head, "called");
        CHECK_TEXT(paths, "called.number");
        CHECK(resolved == 1 && given_back == 1);
        drop(paths);
    }
    clparse_stop(head);
    clparse_stop(NULL);
}

static void text_to_tree_to_text(void)
{
    struct clparse_head *head = clparse_start("count=3,opts={on=true,name=\"a\"},list=[1,2],flag");
    struct clparse_head *source = clparse_start("count=4,opts.on=false");
    struct clparse_head *more = clparse_start("extra=\"new\"");
    uint64_t number = 0;
    unsigned char flag = 9;
    char *text = NULL;

    CHECK(head != NULL && source != NULL && more != NULL);
    CHECK(clparse_start(NULL) == NULL);
    CHECK(clparse_get_node(head, "opts.on") != NULL && clparse_get_node(head, "opts.off") == NULL);
    CHECK(clparse_get_tagtype(clparse_get_head(head), "list.1", 2) != NULL);
    CHECK(clparse_get_type(head, "%s.%d", "list", 0) == 2 && clparse_get_type(head, "flag") == 0);
    CHECK(clparse_get_type(head, "nothing") == -1);
    CHECK(clparse_get_tag(head, &text, "%d", 1) == 0);
    CHECK_TEXT(text, "opts");
    CHECK(clparse_get_bool(head, &flag, "opts.on") == 0 && flag == 1);
    CHECK(clparse_get_number(head, &number, "count") == 0 && number == 3);
    CHECK(clparse_get_number(head, &number, "opts.name") == -1);
    CHECK(clparse_get_string(head, &text, "opts.name") == 0);
    CHECK_TEXT(text, "a");
    drop(text);
    text = clparse_get_path(head, "opts");
    CHECK_TEXT(text, "opts.on,opts.name");
    drop(text);

    CHECK(clparse_update(head, source) == 0 && clparse_update(head, more) == -1);
    CHECK(clparse_select(head, more) == 0 && clparse_insert(head, more) == 0);
    clparse_stop(source);
    clparse_stop(more);
    CHECK(clparse_get_corelink(head, &text, 0) == 0);
    CHECK_TEXT(text, "count=4,opts={on=false,name=\"a\"},list=[1,2],flag,extra=\"new\"");
    drop(text);
    CHECK(clparse_get_corelink(head, &text, 1) == 0);
    CHECK_TEXT(text,
               "count=llu,opts.on=llu,opts.name=\"a\",list.0=llu,list.1=llu,flag,extra=\"new\"");
    drop(text);
    CHECK(clparse_get_xml(head, &text, 0) == 0);
    CHECK_TEXT(
        text,
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><corelink><count type=\"number\">4</count>"
        "<opts type=\"struct\"><on type=\"boolean\">false</on><name type=\"string\">a</name></opts>"
        "<list type=\"array\"><li type=\"number\">1</li><li type=\"number\">2</li></list>"
        "<flag type=\"null\" /><extra type=\"string\">new</extra></corelink>");
    drop(text);
    clparse_stop(head);
}

/* The scanner has no name for its text: a null text is printed, by any C library as "(null)". */
static void parse_nonsense(void)
{
    CHECK(clparse_start("aa=") == NULL);
}

static void array_text(void)
{
    char fixed[8] = "[]";
    char *text = fixed;
    CHECK(cl_cat_array_element(&text, sizeof fixed, "%d", 1) == 0);
    CHECK_TEXT(fixed, "[1]");
    CHECK(cl_cat_array_element(&text, 5, "%d", 22) == -1);
    CHECK_TEXT(fixed, "[1,");
    CHECK(cl_cat_array_element(&text, sizeof fixed, "%d", 1) == -1);
}

int main(void)
{
    trees_by_hand();
    text_to_tree_to_text();
    array_text();
    CHECK_TEXT(
        printed_on(1, parse_nonsense),
        "(null): syntax error\nParent was head\nnear: NULL\nclparse_start: parsing failed: 1\n");
    return report("corelink");
}
