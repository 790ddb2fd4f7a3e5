#include "check.h"

struct item {
    struct list_link link;
    int key;
};

static int by_key(struct list_link *a, struct list_link *b)
{
    return ((struct item *)b)->key - ((struct item *)a)->key;
}

static int all_equal(struct list_link *a, struct list_link *b)
{
    (void)a;
    (void)b;
    return 0;
}

static void append(struct list_link *head, struct list_link *link)
{
    link->prev = head->prev;
    link->next = head;
    head->prev->next = link;
    head->prev = link;
}

int main(void)
{
    struct list_link head = {&head, &head};
    struct item items[5] = {{{NULL, NULL}, 3},
                            {{NULL, NULL}, 1},
                            {{NULL, NULL}, 5},
                            {{NULL, NULL}, 2},
                            {{NULL, NULL}, 4}};
    struct list_link *link = NULL;
    int expected = 1;
    int i = 0;

    CHECK(hash_str("") == 0x811C9DC5u && hash_buf("abc", 0) == 0x811C9DC5u);
    CHECK(hash_str("a") == 0xE40C292Cu && hash_buf("a", 1) == 0xE40C292Cu);
    CHECK(hash_str_64(NULL) == 0xCBF29CE484222325u);
    CHECK(hash_str_64("a") == 0xAF63DC4C8601EC8Cu && hash_buf_64("a", 1) == 0xAF63DC4C8601EC8Cu);
    CHECK(hash_buf_64(NULL, 0) == 0xCBF29CE484222325u);

    for (i = 0; i < 5; ++i) append(&head, &items[i].link);
    __list_sort(&head, 5, by_key); /* positive for an earlier, smaller element: ascending */
    for (link = head.next; link != &head; link = link->next, ++expected)
        CHECK(((struct item *)link)->key == expected);
    CHECK(expected == 6);

    head.next = head.prev = &head;
    append(&head, &items[0].link);
    append(&head, &items[1].link);
    __list_sort(&head, 2, all_equal);
    CHECK(head.next == &items[1].link && head.prev == &items[0].link);
    CHECK(items[1].link.next == &items[0].link && items[0].link.prev == &items[1].link);
    return report("hash and list sort");
}
