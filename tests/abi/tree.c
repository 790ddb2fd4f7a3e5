#include "check.h"

#include <pthread.h>

static uint64_t sum;

static int add_key(struct rb_node **tree, void *data, void *arg, uint32_t key_low,
                   uint32_t key_high)
{
    CHECK(tree != NULL && data != NULL && arg == &sum);
    sum += ((uint64_t)key_high << 32) + key_low;
    return (int)key_low;
}

static int released;

static void release(void *data)
{
    CHECK(data != NULL);
    ++released;
}

int main(void)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    struct rb_node nodes[4];
    struct rb_node *root = NULL;
    struct rb_node *tree = NULL;
    void *data[4] = {NULL, NULL, NULL, NULL};
    uint64_t keys[4] = {0, 0, 0, 0};
    uint32_t i = 0;

    for (i = 1; i <= 3; ++i) tree = rb_create_node(tree, i, 0, &nodes[i]);
    CHECK(tree != NULL && rb_count_nodes(tree) == 3 && rb_count_nodes(NULL) == 0);
    CHECK(rb_create_node(tree, 2, 0, &nodes[0]) == tree && rb_search_tree(tree, 2, 0) == &nodes[2]);
    errno = 0;
    CHECK(rb_search_tree(tree, 2, 1) == NULL && errno == ENOENT);
    CHECK(rb_get_node_list_data(tree, data, 2) == 3);
    CHECK(data[0] == &nodes[1] && data[1] == &nodes[3] && data[2] == &nodes[2]);
    CHECK(rb_get_node_list(tree, keys, 3) == 3 && keys[0] == 1 && keys[1] == 3 && keys[2] == 2);
    CHECK(rb_get_node_list(tree, NULL, 3) == 0);
    CHECK(work_treenode_locked(&tree, add_key, &sum, &mutex) == 3 && sum == 6);
    tree = rb_delete_node(tree, 2, 0);
    CHECK(tree != NULL && rb_count_nodes(tree) == 2);
    CHECK(rb_destroy_tree(&tree, release) == 0 && tree == NULL && released == 2);
    tree = rb_create_node(NULL, 0, 1, &nodes[0]);
    CHECK(rb_delete_node(tree, 0, 1) == NULL);

    memset(nodes, 0, sizeof nodes);
    for (i = 0; i < 4; ++i) nodes[i].key_low = (i * 5 + 2) % 4; /* 2, 3, 0, 1 */
    for (i = 0; i < 4; ++i) generic_insert_node(&root, &nodes[i]);
    CHECK(root == &nodes[0] && nodes[0].link[1] == &nodes[1] && nodes[0].link[0] == &nodes[2]);
    CHECK(generic_find_node(&root, 1, 0) == &nodes[2].link[1]);
    CHECK(generic_find_node(&root, 9, 0) == NULL);
    generic_rotate_tree_left(&root);
    CHECK(root == &nodes[1] && root->link[0] == &nodes[0]);
    generic_rotate_tree_right(&root);
    CHECK(root == &nodes[0] && root->link[1] == &nodes[1]);
    generic_remove_node(&root);
    CHECK(root != NULL && root->key_low == 1);
    return report("tree");
}
