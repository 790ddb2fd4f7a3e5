#include "check.h"

#include <limits.h>

static int match(void *data, uintptr_t key)
{
    return (uintptr_t)data == key;
}

static int give_one(void *data, void *arg)
{
    (void)data;
    ++*(int *)arg;
    return 1;
}

static int refuse_nine(void *data, void *arg, unsigned list)
{
    (void)arg;
    CHECK(list == UINT_MAX || list < 2);
    return (uintptr_t)data == 9;
}

static int count_work(struct q_queue *queue, void *item, void *arg)
{
    CHECK(queue != NULL);
    if (item != NULL) ++*(int *)arg;
    return item != NULL ? 4 : 1;
}

static int choose(void *data, void *arg)
{
    return (uintptr_t)data == *(uintptr_t *)arg;
}

static void dump_slot(void *data, void *arg, const char *label, struct q_element *element)
{
    CHECK(element->data == data);
    strcpy(arg, label);
}

static void dump_item(void *data, void *arg, const char *label)
{
    (void)data;
    strcpy(arg, label);
}

#define DATA(number) ((void *)(uintptr_t)(number))

int main(void)
{
    struct q_queue *queue = q_init(4, 2, match, give_one, give_one, refuse_nine);
    uintptr_t wanted = 3;
    int count = 0;
    char label[32] = "";

    CHECK(q_init(0, 2, match, give_one, give_one, NULL) == NULL);
    CHECK(q_init(4, 2, NULL, give_one, give_one, NULL) == NULL);
    CHECK(q_init(4, 2, match, NULL, NULL, NULL) == NULL);
    CHECK(queue != NULL && queue->list_count == 2 && queue->slot_count == 4);

    CHECK(q_add_queue(queue, DATA(3), 3, NULL) != NULL);
    CHECK(q_add_queue(queue, DATA(7), 7, NULL) == NULL);
    CHECK(q_add_queue(queue, DATA(9), 1, NULL) == NULL);
    CHECK(q_add_list(queue, DATA(5), 0, NULL) != NULL &&
          q_add_list(queue, DATA(6), 0, NULL) != NULL);
    CHECK(q_add_list(queue, DATA(5), 2, NULL) == NULL);
    CHECK(q_queuecount(queue) == 1 && q_listcount(queue, 0) == 2 && q_listcount(queue, 1) == 0);
    CHECK(q_refer(queue, 3, 0) == DATA(3) && q_refer(queue, 5, 0) == DATA(5));
    CHECK(q_refer(queue, 5, 2) == NULL && q_refer(queue, 3, 1) == NULL);
    CHECK(q_refer(queue, 7, 4) == DATA(3));
    CHECK(q_refer_element(queue, 3, 2)->data == DATA(3));
    CHECK(q_refer_list(queue, 0, 6) == DATA(6) && q_refer_list(queue, 1, 6) == NULL);
    CHECK(q_refer_list_element(queue, 0, 6)->data == DATA(6));
    CHECK(q_q2l(queue, 1, 3) == 0 && q_q2l(queue, 1, 3) == -1 && q_l2l(queue, 0, 1, 6) == 0);
    CHECK(q_l2l(queue, 0, 1, 6) == -1);
    CHECK(q_work_queue(queue, count_work, &count) == 1 && count == 0);
    CHECK(q_work_list(queue, 1, count_work, &count) == 4 && count == 2);
    CHECK(q_work_all(queue, count_work, &count) == 5 && count == 5);
    q_dump_list(queue, 1, dump_item, label);
    CHECK_TEXT(label, "List 1");
    CHECK(q_add_queue(queue, DATA(2), 2, NULL) != NULL);
    q_dump_queue(queue, dump_slot, label);
    CHECK_TEXT(label, "Elm:0002");

    count = 0;
    CHECK(q_delete_queue(queue, choose, &wanted, &count) == 0);
    CHECK(q_delete_list(queue, 1, choose, &wanted, &count) == 1 && count == 1);
    wanted = 6;
    CHECK(q_delete(queue, choose, &wanted, &count) == 1 && q_listcount(queue, 1) == 0);
    CHECK(q_clean_list(queue, 0, &count) == 0 && q_listcount(queue, 0) == 0);
    CHECK(q_add_list(queue, DATA(1), 0, NULL) != NULL);
    CHECK(q_clean_queue(queue, &count) == 4 && q_queuecount(queue) == 0);
    CHECK(q_clean(queue, &count) == 4 && q_listcount(queue, 0) == 0);
    CHECK(q_exit(queue, &count) == 0 && q_exit(NULL, NULL) == -1);
    return report("queue");
}
