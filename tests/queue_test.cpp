// The queue's callbacks are plain functions, so the tests keep what they see in globals that a
// fixture resets: who was called, with what, in which order.
#include "vnlib/queue.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <random>

namespace {

using Strings = std::vector<std::string>;

void *item(uintptr_t number)
{
    return reinterpret_cast<void *>(number);
}

uintptr_t number_of(const void *data)
{
    return reinterpret_cast<uintptr_t>(data);
}

std::string text_of(const void *data)
{
    return std::to_string(number_of(data));
}

// --- recording callbacks -------------------------------------------------------------------------

Strings calls;                             // "match 5 7": what was called with which values
std::function<int(void *)> release_answer; // what each callback answers for an item
std::function<int(void *)> clean_answer;   // (slots: for the element or null)
std::function<int(void *, unsigned)> filter_answer;
std::function<int(void *)> work_answer;
std::function<int(void *)> select_answer;
q_queue *worked_on; // the queue that the work function was given

int match(void *data, uintptr_t key)
{
    calls.push_back("match " + text_of(data) + " " + std::to_string(key));
    return number_of(data) == key ? -7 : 0; // any value but 0 is a match
}

int release(void *data, void *arg)
{
    calls.push_back("release " + text_of(data) + " " + text_of(arg));
    return release_answer(data);
}

int clean(void *what, void *arg)
{
    calls.push_back("clean " + text_of(arg));
    return clean_answer(what);
}

int filter(void *data, void *arg, unsigned list)
{
    calls.push_back("filter " + text_of(data) + " " + text_of(arg) + " " + std::to_string(list));
    return filter_answer(data, list);
}

int work(q_queue *queue, void *what, void *arg)
{
    calls.push_back("work " + text_of(arg));
    worked_on = queue;
    return work_answer(what);
}

int selects(void *data, void *arg)
{
    calls.push_back("select " + text_of(data) + " " + text_of(arg));
    return select_answer(data);
}

int equal_keys(void *data, uintptr_t key)
{
    return number_of(data) == key;
}

int give_up(void *, void *)
{
    return Q_RELEASE_FREE;
}

// --- looking at a queue through its public records -----------------------------------------------

using Items = std::vector<uintptr_t>;

Items items_of(const q_queue *queue, unsigned list)
{
    Items items;
    const q_element *const head = &queue->lists[list];
    for (const q_element *at = head->next; at != head; at = at->next) {
        EXPECT_EQ(at->next->prev, at);
        EXPECT_EQ(at->prev->next, at);
        items.push_back(number_of(at->data));
    }
    EXPECT_EQ(head->data, nullptr);
    return items;
}

Items slots_of(const q_queue *queue)
{
    Items items;
    for (unsigned i = 0; i < queue->slot_count; ++i) {
        const q_element *const element = queue->slots[i];
        if (element != nullptr) {
            EXPECT_EQ(element->next, nullptr);
            EXPECT_EQ(element->prev, nullptr);
        }
        items.push_back(element != nullptr ? number_of(element->data) : 0);
    }
    return items;
}

class QueueTest : public testing::Test {
protected:
    QueueTest()
    {
        calls.clear();
        worked_on = nullptr;
        release_answer = [](void *) { return Q_RELEASE_FREE; };
        clean_answer = [](void *) { return 1; };
        filter_answer = [](void *, unsigned) { return 0; };
        work_answer = [](void *) { return 0; };
        select_answer = [](void *) { return 1; };
    }
    ~QueueTest() override
    {
        release_answer = [](void *) { return Q_RELEASE_FREE; };
        if (queue != nullptr) {
            EXPECT_EQ(q_exit(queue, nullptr), 0);
        }
    }
    QueueTest(const QueueTest &) = delete;
    QueueTest &operator=(const QueueTest &) = delete;

    void start(unsigned slots, unsigned lists, q_filter_fn with_filter = nullptr)
    {
        queue = q_init(slots, lists, match, release, clean, with_filter);
        ASSERT_NE(queue, nullptr);
    }
    void fill_list(unsigned list, const Items &items)
    {
        for (const uintptr_t number : items)
            ASSERT_NE(q_add_list(queue, item(number), list, nullptr), nullptr);
    }
    void fill_slots(const Items &items)
    {
        for (uintptr_t i = 0; i < items.size(); ++i) {
            if (items[i] != 0) {
                ASSERT_NE(q_add_queue(queue, item(items[i]), i, nullptr), nullptr);
            }
        }
    }
    // What `call` makes the callbacks see.
    Strings calls_of(const std::function<void()> &call)
    {
        calls.clear();
        call();
        return calls;
    }

    q_queue *queue = nullptr;
};

class QueueInit : public QueueTest {};
class QueueAdd : public QueueTest {};
class QueueMove : public QueueTest {};
class QueueRefer : public QueueTest {};
class QueueWork : public QueueTest {};
class QueueCount : public QueueTest {};
class QueueDump : public QueueTest {};
class QueueDelete : public QueueTest {};
class QueueClean : public QueueTest {};
class QueueErrno : public QueueTest {};
class QueueExit : public QueueTest {};

// --- q_init --------------------------------------------------------------------------------------

TEST_F(QueueInit, RefusesNoSlots)
{
    EXPECT_EQ(q_init(0, 1, match, release, clean, nullptr), nullptr);
}

TEST_F(QueueInit, RefusesANullMatch)
{
    EXPECT_EQ(q_init(1, 1, nullptr, release, clean, nullptr), nullptr);
}

TEST_F(QueueInit, RefusesBothReleaseAndCleanNull)
{
    EXPECT_EQ(q_init(1, 1, match, nullptr, nullptr, filter), nullptr);
}

TEST_F(QueueInit, TakesEitherReleaseOrCleanAlone)
{
    queue = q_init(1, 1, match, release, nullptr, nullptr);
    ASSERT_NE(queue, nullptr);
    EXPECT_EQ(q_exit(queue, nullptr), 0);
    queue = q_init(1, 1, match, nullptr, clean, nullptr);
    ASSERT_NE(queue, nullptr);
}

TEST_F(QueueInit, StoresItsSixValuesAndMakesEverythingEmpty)
{
    start(3, 2, filter);
    EXPECT_EQ(queue->slot_count, 3u);
    EXPECT_EQ(queue->list_count, 2u);
    EXPECT_EQ(queue->match, match);
    EXPECT_EQ(queue->release, release);
    EXPECT_EQ(queue->clean, clean);
    EXPECT_EQ(queue->filter, filter);
    EXPECT_EQ(slots_of(queue), Items({0, 0, 0}));
    for (unsigned list = 0; list < 2; ++list) {
        EXPECT_EQ(queue->lists[list].next, &queue->lists[list]);
        EXPECT_EQ(queue->lists[list].prev, &queue->lists[list]);
        EXPECT_EQ(queue->lists[list].data, nullptr);
    }
}

TEST_F(QueueInit, NeedsNoLists)
{
    start(2, 0);
    EXPECT_EQ(queue->list_count, 0u);
    EXPECT_EQ(q_add_list(queue, item(1), 0, nullptr), nullptr);
    EXPECT_NE(q_add_queue(queue, item(1), 0, nullptr), nullptr);
}

TEST_F(QueueInit, KeepsTheFieldsInOrderInOneBlock)
{
    EXPECT_EQ(offsetof(q_queue, list_count), 0u);
    EXPECT_EQ(offsetof(q_queue, lists), sizeof(void *));
    EXPECT_EQ(offsetof(q_queue, release), 2 * sizeof(void *));
    EXPECT_EQ(offsetof(q_queue, match), 3 * sizeof(void *));
    EXPECT_EQ(offsetof(q_queue, clean), 4 * sizeof(void *));
    EXPECT_EQ(offsetof(q_queue, filter), 5 * sizeof(void *));
    EXPECT_EQ(offsetof(q_queue, slot_count), 6 * sizeof(void *));
    EXPECT_EQ(offsetof(q_queue, slots), 7 * sizeof(void *));
    EXPECT_EQ(offsetof(q_element, next), 0u);
    EXPECT_EQ(offsetof(q_element, prev), sizeof(void *));
    EXPECT_EQ(offsetof(q_element, data), 2 * sizeof(void *));
}

// --- adding --------------------------------------------------------------------------------------

TEST_F(QueueAdd, PutsTheItemIntoTheSlotOfItsKeyModuloTheSlotCount)
{
    start(5, 0);
    q_element *const added = q_add_queue(queue, item(42), 13, nullptr);
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(queue->slots[3], added);
    EXPECT_EQ(added->data, item(42));
    EXPECT_EQ(added->next, nullptr);
    EXPECT_EQ(added->prev, nullptr);
}

TEST_F(QueueAdd, TakesKeysOfPointerWidth)
{
    start(7, 0);
    ASSERT_NE(q_add_queue(queue, item(1), UINTPTR_MAX, nullptr), nullptr);
    EXPECT_NE(queue->slots[UINTPTR_MAX % 7], nullptr);
}

TEST_F(QueueAdd, PutsKeyZeroIntoSlotZero)
{
    start(4, 0);
    ASSERT_NE(q_add_queue(queue, item(9), 0, nullptr), nullptr);
    EXPECT_EQ(slots_of(queue), Items({9, 0, 0, 0}));
}

TEST_F(QueueAdd, RefusesAnOccupiedSlotAndLeavesItsItem)
{
    start(4, 0, filter);
    ASSERT_NE(q_add_queue(queue, item(1), 3, nullptr), nullptr);
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_add_queue(queue, item(2), 3 + 4, nullptr), nullptr); }),
              Strings()); // the filter is not asked for nothing
    EXPECT_EQ(slots_of(queue), Items({0, 0, 0, 1}));
}

TEST_F(QueueAdd, AsksTheFilterWithNoListForASlot)
{
    start(4, 0, filter);
    EXPECT_EQ(calls_of([&] { q_add_queue(queue, item(5), 2, item(77)); }),
              Strings({"filter 5 77 " + std::to_string(UINT_MAX)}));
    EXPECT_EQ(slots_of(queue), Items({0, 0, 5, 0}));
}

TEST_F(QueueAdd, KeepsOutOfASlotWhatTheFilterRefuses)
{
    start(4, 0, filter);
    filter_answer = [](void *, unsigned) { return -1; };
    EXPECT_EQ(q_add_queue(queue, item(5), 2, nullptr), nullptr);
    EXPECT_EQ(q_queuecount(queue), 0u);
}

TEST_F(QueueAdd, AsksTheFilterWithTheListIndexForAList)
{
    start(1, 3, filter);
    EXPECT_EQ(calls_of([&] { q_add_list(queue, item(5), 2, item(77)); }),
              Strings({"filter 5 77 2"}));
    EXPECT_EQ(items_of(queue, 2), Items({5}));
}

TEST_F(QueueAdd, KeepsOutOfAListWhatTheFilterRefuses)
{
    start(1, 3, filter);
    filter_answer = [](void *, unsigned list) { return list == 1; };
    EXPECT_EQ(q_add_list(queue, item(5), 1, nullptr), nullptr);
    EXPECT_NE(q_add_list(queue, item(5), 2, nullptr), nullptr);
    EXPECT_EQ(items_of(queue, 1), Items());
}

TEST_F(QueueAdd, RefusesTheSlotThatItsFilterHasFilled)
{
    start(1, 0, filter);
    filter_answer = [this](void *data, unsigned) {
        if (data == item(1)) q_add_queue(queue, item(2), 0, nullptr);
        return 0;
    };
    EXPECT_EQ(q_add_queue(queue, item(1), 0, nullptr), nullptr);
    EXPECT_EQ(slots_of(queue), Items({2}));
}

TEST_F(QueueAdd, AppendsToAListAtItsTail)
{
    start(1, 2);
    fill_list(1, {1, 2, 3});
    EXPECT_EQ(items_of(queue, 0), Items());
    EXPECT_EQ(items_of(queue, 1), Items({1, 2, 3}));
    EXPECT_EQ(q_add_list(queue, item(4), 1, nullptr), queue->lists[1].prev);
}

TEST_F(QueueAdd, RefusesAListIndexOutOfRangeWithoutAskingTheFilter)
{
    start(1, 2, filter);
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_add_list(queue, item(1), 2, nullptr), nullptr); }),
              Strings());
}

TEST_F(QueueAdd, RefusesANullQueue)
{
    EXPECT_EQ(q_add_queue(nullptr, item(1), 0, nullptr), nullptr);
    EXPECT_EQ(q_add_list(nullptr, item(1), 0, nullptr), nullptr);
}

TEST_F(QueueAdd, HoldsNullData)
{
    start(1, 1);
    EXPECT_NE(q_add_queue(queue, nullptr, 0, nullptr), nullptr);
    EXPECT_NE(q_add_list(queue, nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(q_queuecount(queue), 1u);
    EXPECT_EQ(q_listcount(queue, 0), 1u);
}

// --- moving --------------------------------------------------------------------------------------

TEST_F(QueueMove, TakesASlotsElementToTheTailOfAList)
{
    start(4, 2);
    fill_list(1, {8});
    const q_element *const element = q_add_queue(queue, item(5), 2, nullptr);
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_q2l(queue, 1, 2 + 4), 0); }),
              Strings()); // match is not asked
    EXPECT_EQ(items_of(queue, 1), Items({8, 5}));
    EXPECT_EQ(queue->lists[1].prev, element);
    EXPECT_EQ(slots_of(queue), Items({0, 0, 0, 0}));
}

TEST_F(QueueMove, FromAnEmptySlotFails)
{
    start(4, 2);
    EXPECT_EQ(q_q2l(queue, 0, 1), -1);
}

TEST_F(QueueMove, FromASlotToAListOutOfRangeFails)
{
    start(4, 2);
    fill_slots({1, 2, 3, 4});
    EXPECT_EQ(q_q2l(queue, 2, 0), -1);
    EXPECT_EQ(q_q2l(nullptr, 0, 0), -1);
    EXPECT_EQ(slots_of(queue), Items({1, 2, 3, 4}));
}

TEST_F(QueueMove, FromListToListTakesTheFirstMatchToTheTail)
{
    start(1, 2);
    fill_list(0, {1, 2, 3});
    fill_list(1, {9});
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_l2l(queue, 0, 1, 2), 0); }),
              Strings({"match 1 2", "match 2 2"}));
    EXPECT_EQ(items_of(queue, 0), Items({1, 3}));
    EXPECT_EQ(items_of(queue, 1), Items({9, 2}));
}

TEST_F(QueueMove, WithinOneListTakesTheItemToItsTail)
{
    start(1, 1);
    fill_list(0, {1, 2, 3});
    EXPECT_EQ(q_l2l(queue, 0, 0, 1), 0);
    EXPECT_EQ(items_of(queue, 0), Items({2, 3, 1}));
}

TEST_F(QueueMove, FromListToListFailsWhenNothingMatches)
{
    start(1, 2);
    fill_list(0, {1, 2, 3});
    EXPECT_EQ(q_l2l(queue, 0, 1, 4), -1);
    EXPECT_EQ(items_of(queue, 0), Items({1, 2, 3}));
}

TEST_F(QueueMove, FromListToListFailsForAnIndexOutOfRange)
{
    start(1, 2);
    fill_list(0, {1});
    EXPECT_EQ(q_l2l(queue, 0, 2, 1), -1);
    EXPECT_EQ(q_l2l(queue, 2, 0, 1), -1);
    EXPECT_EQ(q_l2l(nullptr, 0, 0, 1), -1);
    EXPECT_EQ(items_of(queue, 0), Items({1}));
}

// --- searching -----------------------------------------------------------------------------------

TEST_F(QueueRefer, LooksIntoTheSlotFirst)
{
    start(4, 1);
    fill_list(0, {6});
    const q_element *const element = q_add_queue(queue, item(6), 6, nullptr);
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_refer_element(queue, 6, 0), element); }),
              Strings({"match 6 6"}));
    EXPECT_EQ(q_refer(queue, 6, 0), item(6));
}

TEST_F(QueueRefer, GoesOnToTheListsInOrderFrontToBack)
{
    start(4, 2);
    fill_slots({0, 0, 5, 0});
    fill_list(0, {1, 2});
    fill_list(1, {3, 6, 6});
    EXPECT_EQ(
        calls_of([&] { EXPECT_EQ(q_refer_element(queue, 6, 0), queue->lists[1].next->next); }),
        Strings({"match 5 6", "match 1 6", "match 2 6", "match 3 6", "match 6 6"}));
}

TEST_F(QueueRefer, FindsNothing)
{
    start(4, 2);
    fill_list(0, {1, 2});
    EXPECT_EQ(q_refer_element(queue, 6, 0), nullptr);
    EXPECT_EQ(q_refer(queue, 6, 0), nullptr);
    EXPECT_EQ(q_refer_list(queue, 0, 6), nullptr);
}

TEST_F(QueueRefer, WithFlagOneNeverLooksAtTheSlot)
{
    start(4, 1);
    fill_slots({0, 0, 6, 0});
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_refer(queue, 6, 1), nullptr); }), Strings());
    EXPECT_EQ(q_refer(queue, 6, 1 | 4), nullptr);
    fill_list(0, {6});
    EXPECT_EQ(q_refer_element(queue, 6, 1), queue->lists[0].next);
}

TEST_F(QueueRefer, WithFlagTwoNeverLooksAtTheLists)
{
    start(4, 1);
    fill_list(0, {6});
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_refer(queue, 6, 2), nullptr); }), Strings());
    fill_slots({0, 0, 6, 0});
    EXPECT_EQ(q_refer(queue, 6, 2), item(6));
    EXPECT_EQ(q_refer(queue, 6, 1 | 2), nullptr);
}

TEST_F(QueueRefer, WithFlagFourTakesTheSlotsElementUnasked)
{
    start(4, 0);
    fill_slots({0, 0, 99, 0});
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_refer(queue, 6, 4), item(99)); }), Strings());
    EXPECT_EQ(q_refer(queue, 6, 2 | 4), item(99));
    EXPECT_EQ(q_refer(queue, 7, 4), nullptr); // an empty slot has nothing to take
}

TEST_F(QueueRefer, WithFlagFourStillSearchesTheListsWhenTheSlotIsEmpty)
{
    start(4, 1);
    fill_list(0, {5, 6});
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_refer(queue, 6, 4), item(6)); }),
              Strings({"match 5 6", "match 6 6"}));
}

TEST_F(QueueRefer, InOneListFindsTheFirstMatchThereOnly)
{
    start(4, 2);
    fill_slots({0, 0, 6, 0});
    fill_list(0, {6});
    fill_list(1, {5, 6, 6});
    EXPECT_EQ(q_refer_list_element(queue, 1, 6), queue->lists[1].next->next);
    EXPECT_EQ(q_refer_list(queue, 1, 6), item(6));
    EXPECT_EQ(q_refer_list_element(queue, 0, 5), nullptr);
}

TEST_F(QueueRefer, RefusesANullQueueAndAListIndexOutOfRange)
{
    start(4, 2);
    EXPECT_EQ(q_refer_element(nullptr, 6, 0), nullptr);
    EXPECT_EQ(q_refer(nullptr, 6, 4), nullptr);
    EXPECT_EQ(q_refer_list_element(nullptr, 0, 6), nullptr);
    EXPECT_EQ(q_refer_list(nullptr, 0, 6), nullptr);
    EXPECT_EQ(q_refer_list_element(queue, 2, 6), nullptr);
    EXPECT_EQ(q_refer_list(queue, 2, 6), nullptr);
}

// --- walking -------------------------------------------------------------------------------------

TEST_F(QueueWork, VisitsEverySlotInOrderEmptyOnesIncluded)
{
    start(3, 0);
    fill_slots({1, 0, 4});
    std::vector<void *> seen;
    work_answer = [&](void *element) {
        seen.push_back(element);
        return 1 << seen.size();
    };
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_work_queue(queue, work, item(3)), 2 | 4 | 8); }),
              Strings({"work 3", "work 3", "work 3"}));
    EXPECT_EQ(seen, std::vector<void *>({queue->slots[0], nullptr, queue->slots[2]}));
    EXPECT_EQ(worked_on, queue);
}

TEST_F(QueueWork, VisitsAListsDataFrontToBack)
{
    start(1, 2);
    fill_list(1, {1, 2, 4});
    Items seen;
    work_answer = [&](void *data) {
        seen.push_back(number_of(data));
        return static_cast<int>(number_of(data));
    };
    EXPECT_EQ(q_work_list(queue, 1, work, nullptr), 1 | 2 | 4);
    EXPECT_EQ(seen, Items({1, 2, 4}));
    EXPECT_EQ(q_work_list(queue, 0, work, nullptr), 0);
}

TEST_F(QueueWork, IsNotStoppedByAnyResult)
{
    start(2, 1);
    fill_list(0, {1, 2});
    work_answer = [](void *) { return -1; };
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_work_all(queue, work, nullptr), -1); }).size(), 4u);
}

TEST_F(QueueWork, OnAllVisitsSlotsThenEveryListInOrder)
{
    start(2, 2);
    fill_slots({0, 16});
    fill_list(0, {1, 2});
    fill_list(1, {4});
    std::vector<void *> seen;
    work_answer = [&](void *what) {
        seen.push_back(what);
        return 1 << seen.size();
    };
    EXPECT_EQ(q_work_all(queue, work, nullptr), 2 | 4 | 8 | 16 | 32);
    EXPECT_EQ(seen, std::vector<void *>({nullptr, queue->slots[1], item(1), item(2), item(4)}));
}

TEST_F(QueueWork, OnAllHandsItsArgumentOn)
{
    start(1, 1);
    fill_list(0, {1});
    EXPECT_EQ(calls_of([&] { q_work_all(queue, work, item(9)); }), Strings({"work 9", "work 9"}));
}

TEST_F(QueueWork, MayRemoveTheCurrentElement)
{
    start(1, 2);
    fill_list(0, {1, 2, 3, 4});
    work_answer = [this](void *data) { // 1 and 3 move away, 2 and 4 are deleted
        if (number_of(data) % 2 == 1) return q_l2l(queue, 0, 1, number_of(data));
        select_answer = [data](void *other) { return other == data; };
        return q_delete_list(queue, 0, selects, nullptr, nullptr) << 4;
    };
    EXPECT_EQ(q_work_list(queue, 0, work, nullptr), Q_RELEASE_FREE << 4);
    EXPECT_EQ(items_of(queue, 0), Items());
    EXPECT_EQ(items_of(queue, 1), Items({1, 3}));
}

TEST_F(QueueWork, OnSlotsMayRemoveTheCurrentElement)
{
    start(3, 1);
    fill_slots({1, 2, 3});
    work_answer = [this](void *what) {
        return q_q2l(queue, 0, number_of(static_cast<q_element *>(what)->data) - 1);
    };
    EXPECT_EQ(q_work_queue(queue, work, nullptr), 0);
    EXPECT_EQ(items_of(queue, 0), Items({1, 2, 3}));
}

TEST_F(QueueWork, RefusesANullQueueOrFunction)
{
    start(1, 1);
    EXPECT_EQ(q_work_queue(nullptr, work, nullptr), -1);
    EXPECT_EQ(q_work_queue(queue, nullptr, nullptr), -1);
    EXPECT_EQ(q_work_list(nullptr, 0, work, nullptr), -1);
    EXPECT_EQ(q_work_list(queue, 0, nullptr, nullptr), -1);
    EXPECT_EQ(q_work_list(queue, 1, work, nullptr), -1);
    EXPECT_EQ(q_work_all(nullptr, work, nullptr), -1);
    EXPECT_EQ(q_work_all(queue, nullptr, nullptr), -1);
    EXPECT_EQ(calls, Strings());
}

TEST_F(QueueCount, OfSlotsAndLists)
{
    start(4, 2);
    EXPECT_EQ(q_queuecount(queue), 0u);
    EXPECT_EQ(q_listcount(queue, 0), 0u);
    fill_slots({1, 0, 3, 0});
    fill_list(1, {7, 8, 9});
    EXPECT_EQ(q_queuecount(queue), 2u);
    EXPECT_EQ(q_listcount(queue, 0), 0u);
    EXPECT_EQ(q_listcount(queue, 1), 3u);
}

TEST_F(QueueCount, OfWhatIsNotThereIsZero)
{
    start(1, 1);
    EXPECT_EQ(q_queuecount(nullptr), 0u);
    EXPECT_EQ(q_listcount(nullptr, 0), 0u);
    EXPECT_EQ(q_listcount(queue, 1), 0u);
}

// --- dumping -------------------------------------------------------------------------------------

Strings dumped;

void dump_slot(void *data, void *arg, const char *label, q_element *element)
{
    EXPECT_EQ(element->data, data);
    dumped.push_back(std::string(label) + "=" + text_of(data) + "/" + text_of(arg));
}

void dump_item(void *data, void *arg, const char *label)
{
    dumped.push_back(std::string(label) + "=" + text_of(data) + "/" + text_of(arg));
}

TEST_F(QueueDump, LabelsOccupiedSlotsWithFourHexDigits)
{
    dumped.clear();
    start(0x1abcd + 1, 0);
    for (const uintptr_t key : {0x1u, 0xabu, 0xabcdu, 0x1abcdu})
        q_add_queue(queue, item(key), key, nullptr);
    q_dump_queue(queue, dump_slot, item(6));
    EXPECT_EQ(dumped, Strings({"Elm:0001=1/6", "Elm:00ab=171/6", "Elm:abcd=43981/6",
                               "Elm:1abcd=109517/6"}));
}

TEST_F(QueueDump, LabelsItemsWithTheirListInHex)
{
    dumped.clear();
    start(1, 32);
    fill_list(31, {4, 5});
    q_dump_list(queue, 31, dump_item, item(6));
    q_dump_list(queue, 30, dump_item, item(6));
    EXPECT_EQ(dumped, Strings({"List 1f=4/6", "List 1f=5/6"}));
}

TEST_F(QueueDump, IgnoresNullsAndIndexesOutOfRange)
{
    dumped.clear();
    start(1, 1);
    fill_slots({1});
    fill_list(0, {2});
    q_dump_queue(nullptr, dump_slot, nullptr);
    q_dump_queue(queue, nullptr, nullptr);
    q_dump_list(nullptr, 0, dump_item, nullptr);
    q_dump_list(queue, 0, nullptr, nullptr);
    q_dump_list(queue, 1, dump_item, nullptr);
    EXPECT_EQ(dumped, Strings());
}

// --- deleting ------------------------------------------------------------------------------------

TEST_F(QueueDelete, InSlotsStopsAtTheFirstReleasedItem)
{
    start(4, 0);
    fill_slots({0, 2, 3, 4});
    select_answer = [](void *data) { return number_of(data) >= 3 ? -2 : 0; };
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_delete_queue(queue, selects, item(50), item(60)), 1); }),
              Strings({"select 2 50", "select 3 50", "release 3 60"}));
    EXPECT_EQ(slots_of(queue), Items({0, 2, 0, 4}));
}

TEST_F(QueueDelete, InSlotsGoesOnAfterThree)
{
    start(3, 0);
    fill_slots({1, 2, 3});
    release_answer = [](void *data) { return number_of(data) == 3 ? 1 : 3; };
    EXPECT_EQ(q_delete_queue(queue, selects, nullptr, nullptr), 1);
    EXPECT_EQ(slots_of(queue), Items({1, 2, 0}));
}

TEST_F(QueueDelete, InSlotsReturnsZeroHavingVisitedAll)
{
    start(3, 0);
    fill_slots({1, 2, 3});
    release_answer = [](void *) { return 3; };
    EXPECT_EQ(q_delete_queue(queue, selects, nullptr, nullptr), 0);
    EXPECT_EQ(slots_of(queue), Items({1, 2, 3}));
}

TEST_F(QueueDelete, InSlotsReturnsAnyOtherAnswerAndKeepsTheElement)
{
    start(3, 0);
    fill_slots({1, 2, 3});
    for (const int answer : {0, 2, 4, -1, -9}) {
        release_answer = [answer](void *) { return answer; };
        EXPECT_EQ(
            calls_of([&] { EXPECT_EQ(q_delete_queue(queue, selects, nullptr, nullptr), answer); }),
            Strings({"select 1 0", "release 1 0"}));
    }
    EXPECT_EQ(slots_of(queue), Items({1, 2, 3}));
}

TEST_F(QueueDelete, InSlotsRefusesNulls)
{
    start(1, 1);
    EXPECT_EQ(q_delete_queue(nullptr, selects, nullptr, nullptr), -1);
    EXPECT_EQ(q_delete_queue(queue, nullptr, nullptr, nullptr), -1);
    q_queue *const without_release = q_init(1, 1, match, nullptr, clean, nullptr);
    EXPECT_EQ(q_delete_queue(without_release, selects, nullptr, nullptr), -1);
    EXPECT_EQ(q_delete_list(without_release, 0, selects, nullptr, nullptr), -1);
    EXPECT_EQ(q_delete(without_release, selects, nullptr, nullptr), -1);
    q_exit(without_release, nullptr);
}

TEST_F(QueueDelete, InAListStopsAtTheFirstReleasedItem)
{
    start(1, 1);
    fill_list(0, {1, 2, 3});
    select_answer = [](void *data) { return number_of(data) >= 2; };
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_delete_list(queue, 0, selects, item(50), item(60)), 1); }),
              Strings({"select 1 50", "select 2 50", "release 2 60"}));
    EXPECT_EQ(items_of(queue, 0), Items({1, 3}));
}

TEST_F(QueueDelete, InAListReturnsTheLastReleaseResultHavingVisitedAll)
{
    start(1, 1);
    fill_list(0, {1, 2, 3});
    release_answer = [](void *) { return 3; };
    EXPECT_EQ(q_delete_list(queue, 0, selects, nullptr, nullptr), 3);
    select_answer = [](void *) { return 0; };
    EXPECT_EQ(q_delete_list(queue, 0, selects, nullptr, nullptr), 0);
    EXPECT_EQ(items_of(queue, 0), Items({1, 2, 3}));
}

TEST_F(QueueDelete, InAListReturnsAnyOtherAnswerAndKeepsTheElement)
{
    start(1, 1);
    fill_list(0, {1, 2, 3});
    for (const int answer : {0, 2, 4, -1, -9}) {
        release_answer = [answer](void *) { return answer; };
        EXPECT_EQ(calls_of([&] {
                      EXPECT_EQ(q_delete_list(queue, 0, selects, nullptr, nullptr), answer);
                  }),
                  Strings({"select 1 0", "release 1 0"}));
    }
    EXPECT_EQ(items_of(queue, 0), Items({1, 2, 3}));
}

TEST_F(QueueDelete, InAListRefusesNullsAndAnIndexOutOfRange)
{
    start(1, 1);
    EXPECT_EQ(q_delete_list(nullptr, 0, selects, nullptr, nullptr), -1);
    EXPECT_EQ(q_delete_list(queue, 0, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(q_delete_list(queue, 1, selects, nullptr, nullptr), -1);
}

TEST_F(QueueDelete, EverywhereEndsWithTheSlotsResult)
{
    start(1, 1);
    fill_slots({1});
    fill_list(0, {2});
    EXPECT_EQ(q_delete(queue, selects, nullptr, nullptr), 1);
    EXPECT_EQ(slots_of(queue), Items({0}));
    EXPECT_EQ(items_of(queue, 0), Items({2}));
}

TEST_F(QueueDelete, EverywhereGoesOnThroughTheListsWhileTheyGiveZero)
{
    start(1, 3);
    fill_list(0, {1});
    fill_list(1, {2});
    fill_list(2, {3});
    release_answer = [](void *data) { return number_of(data) == 1 ? 0 : 1; };
    EXPECT_EQ(q_delete(queue, selects, nullptr, nullptr), 1);
    EXPECT_EQ(items_of(queue, 0), Items({1}));
    EXPECT_EQ(items_of(queue, 1), Items());
    EXPECT_EQ(items_of(queue, 2), Items({3}));
}

TEST_F(QueueDelete, EverywhereIsEndedByAListsThree)
{
    start(1, 2);
    fill_list(0, {1});
    fill_list(1, {2});
    release_answer = [](void *data) { return number_of(data) == 1 ? 3 : 1; };
    EXPECT_EQ(q_delete(queue, selects, nullptr, nullptr), 3);
    EXPECT_EQ(items_of(queue, 1), Items({2}));
}

TEST_F(QueueDelete, EverywhereReturnsZeroWhenNothingIsSelectedOrThereAreNoLists)
{
    start(1, 2);
    fill_list(0, {1});
    select_answer = [](void *) { return 0; };
    EXPECT_EQ(q_delete(queue, selects, nullptr, nullptr), 0);
    EXPECT_EQ(q_delete(nullptr, selects, nullptr, nullptr), -1);
    q_queue *const without_lists = q_init(1, 0, match, release, nullptr, nullptr);
    EXPECT_EQ(q_delete(without_lists, selects, nullptr, nullptr), 0);
    q_exit(without_lists, nullptr);
}

TEST_F(QueueDelete, EverywhereHandsBothArgumentsOn)
{
    start(1, 1);
    fill_slots({1});
    fill_list(0, {2});
    release_answer = [](void *data) { return number_of(data) == 1 ? 3 : 1; };
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_delete(queue, selects, item(50), item(60)), 1); }),
              Strings({"select 1 50", "release 1 60", "select 2 50", "release 2 60"}));
}

TEST_F(QueueDelete, SparesAnElementThatItsCallbacksMovedAway)
{
    start(1, 1);
    fill_slots({1});
    select_answer = [this](void *) { return q_q2l(queue, 0, 0) == 0; };
    EXPECT_EQ(q_delete_queue(queue, selects, nullptr, nullptr), 1);
    EXPECT_EQ(items_of(queue, 0), Items({1}));
}

// --- cleaning ------------------------------------------------------------------------------------

TEST_F(QueueClean, OfSlotsAsksForEverySlotAndEmptiesIt)
{
    start(3, 0);
    fill_slots({1, 0, 3});
    std::vector<const void *> seen;
    const std::vector<const void *> all = {queue->slots[0], nullptr, queue->slots[2]};
    clean_answer = [&](void *element) {
        seen.push_back(element);
        return element != nullptr ? 10 : 0;
    };
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_clean_queue(queue, item(4)), 20); }),
              Strings({"clean 4", "clean 4", "clean 4"}));
    EXPECT_EQ(seen, all);
    EXPECT_EQ(slots_of(queue), Items({0, 0, 0}));
}

TEST_F(QueueClean, OfSlotsFreesTheElementAlsoForZero)
{
    start(2, 0);
    fill_slots({1, 2});
    clean_answer = [](void *) { return 0; };
    EXPECT_EQ(q_clean_queue(queue, nullptr), 0);
    EXPECT_EQ(q_queuecount(queue), 0u);
}

TEST_F(QueueClean, OfSlotsStopsAtTwoWithTheCountSoFar)
{
    start(3, 0);
    fill_slots({1, 2, 3});
    clean_answer = [n = 0](void *) mutable { return ++n == 2 ? 2 : 5; };
    EXPECT_EQ(q_clean_queue(queue, nullptr), 5);
    EXPECT_EQ(slots_of(queue), Items({0, 2, 3}));
}

TEST_F(QueueClean, OfSlotsReturnsANegativeResultAtOnce)
{
    start(3, 0);
    fill_slots({1, 2, 3});
    clean_answer = [n = 0](void *) mutable { return ++n == 2 ? -5 : 1; };
    EXPECT_EQ(q_clean_queue(queue, nullptr), -5);
    EXPECT_EQ(slots_of(queue), Items({0, 2, 3}));
}

TEST_F(QueueClean, OfAListGoesFromTheTailToTheFrontAndReturnsZeroNotTheCount)
{
    start(1, 1);
    fill_list(0, {1, 2, 3});
    Items seen;
    clean_answer = [&](void *data) {
        seen.push_back(number_of(data));
        return 1;
    };
    EXPECT_EQ(q_clean_list(queue, 0, nullptr), 0);
    EXPECT_EQ(seen, Items({3, 2, 1}));
    EXPECT_EQ(items_of(queue, 0), Items());
}

TEST_F(QueueClean, OfAListKeepsWhatAnswersZero)
{
    start(1, 1);
    fill_list(0, {1, 2, 3});
    clean_answer = [](void *data) { return data == item(2) ? 0 : 3; };
    EXPECT_EQ(q_clean_list(queue, 0, nullptr), 0);
    EXPECT_EQ(items_of(queue, 0), Items({2}));
}

TEST_F(QueueClean, OfAListStopsAtTwoWithTheCountSoFar)
{
    start(1, 1);
    fill_list(0, {1, 2, 3, 4});
    clean_answer = [](void *data) { return data == item(2) ? 2 : 7; };
    EXPECT_EQ(q_clean_list(queue, 0, nullptr), 14);
    EXPECT_EQ(items_of(queue, 0), Items({1, 2}));
}

TEST_F(QueueClean, OfAListReturnsANegativeResultAtOnce)
{
    start(1, 1);
    fill_list(0, {1, 2, 3, 4});
    clean_answer = [](void *data) { return data == item(2) ? -4 : 7; };
    EXPECT_EQ(q_clean_list(queue, 0, nullptr), -4);
    EXPECT_EQ(items_of(queue, 0), Items({1, 2}));
}

TEST_F(QueueClean, RefusesNullsAndAnIndexOutOfRange)
{
    start(1, 1);
    EXPECT_EQ(q_clean_queue(nullptr, nullptr), -1);
    EXPECT_EQ(q_clean_list(nullptr, 0, nullptr), -1);
    EXPECT_EQ(q_clean_list(queue, 1, nullptr), -1);
    EXPECT_EQ(q_clean(nullptr, nullptr), -1);
    q_queue *const without_clean = q_init(1, 1, match, release, nullptr, nullptr);
    EXPECT_EQ(q_clean_queue(without_clean, nullptr), -1);
    EXPECT_EQ(q_clean_list(without_clean, 0, nullptr), -1);
    EXPECT_EQ(q_clean(without_clean, nullptr), -1);
    q_exit(without_clean, nullptr);
}

TEST_F(QueueClean, EverywhereEmptiesTheListsAfterTheSlotsAndReturnsTheSlotsCount)
{
    start(3, 2);
    fill_slots({1, 0, 3});
    fill_list(0, {4});
    fill_list(1, {5, 6});
    EXPECT_EQ(q_clean(queue, nullptr), 3);
    EXPECT_EQ(q_queuecount(queue) + q_listcount(queue, 0) + q_listcount(queue, 1), 0u);
}

TEST_F(QueueClean, EverywhereGoesOnAfterASlotResultOfZero)
{
    start(1, 1);
    fill_list(0, {4});
    clean_answer = [](void *what) { return what == nullptr ? 0 : 1; };
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_clean(queue, item(7)), 0); }),
              Strings({"clean 7", "clean 7"}));
    EXPECT_EQ(items_of(queue, 0), Items());
}

TEST_F(QueueClean, EverywhereIsEndedByASlotResultOfTwo)
{
    start(2, 1);
    fill_list(0, {4});
    EXPECT_EQ(q_clean(queue, nullptr), 2); // a count of two says the same as a stop
    EXPECT_EQ(items_of(queue, 0), Items({4}));
}

TEST_F(QueueClean, EverywhereIsEndedByANegativeSlotResult)
{
    start(2, 1);
    fill_list(0, {4});
    clean_answer = [](void *) { return -3; };
    EXPECT_EQ(q_clean(queue, nullptr), -3);
    EXPECT_EQ(items_of(queue, 0), Items({4}));
}

TEST_F(QueueClean, EverywhereReturnsTheSumBeforeAListResultOfTwo)
{
    start(1, 2);
    fill_list(0, {4, 5, 6});
    fill_list(1, {7});
    clean_answer = [](void *what) { // the slot counts 9, list 0 stops after two ones
        return what == nullptr ? 9 : what == item(4) ? 2 : 1;
    };
    EXPECT_EQ(q_clean(queue, nullptr), 9);
    EXPECT_EQ(items_of(queue, 0), Items({4}));
    EXPECT_EQ(items_of(queue, 1), Items({7}));
}

TEST_F(QueueClean, EverywhereAddsTheCountOfAnInterruptedListAndGoesOn)
{
    start(1, 2);
    fill_list(0, {4, 5});
    fill_list(1, {7});
    clean_answer = [](void *what) { return what == nullptr ? 9 : what == item(4) ? 2 : 30; };
    EXPECT_EQ(q_clean(queue, nullptr), 39);
    EXPECT_EQ(items_of(queue, 0), Items({4}));
    EXPECT_EQ(items_of(queue, 1), Items());
}

TEST_F(QueueClean, EverywhereReturnsANegativeListResult)
{
    start(1, 2);
    fill_list(0, {4});
    fill_list(1, {7});
    clean_answer = [](void *what) { return what == item(4) ? -6 : 1; };
    EXPECT_EQ(q_clean(queue, nullptr), -6);
    EXPECT_EQ(items_of(queue, 1), Items({7}));
}

TEST_F(QueueClean, EverywhereWithoutListsReturnsTheSlotsResult)
{
    start(5, 0);
    EXPECT_EQ(q_clean(queue, nullptr), 5);
}

// --- refusals ------------------------------------------------------------------------------------

TEST_F(QueueErrno, IsInvalidForEveryRefusedArgument)
{
    const auto errno_of = [](auto &&call) {
        errno = 0;
        call();
        return errno;
    };
    queue = q_init(1, 1, match, release, nullptr, nullptr);
    q_queue *const releasing = queue;
    const std::vector<std::function<void()>> refused = {
        [] { q_init(0, 1, match, release, clean, nullptr); },
        [] { q_init(1, 1, nullptr, release, clean, nullptr); },
        [] { q_init(1, 1, match, nullptr, nullptr, nullptr); },
        [] { q_exit(nullptr, nullptr); },
        [] { q_add_queue(nullptr, item(1), 0, nullptr); },
        [] { q_add_list(nullptr, item(1), 0, nullptr); },
        [&] { q_add_list(releasing, item(1), 1, nullptr); },
        [] { q_q2l(nullptr, 0, 0); },
        [&] { q_q2l(releasing, 1, 0); },
        [&] { q_l2l(releasing, 0, 1, 0); },
        [&] { q_l2l(releasing, 1, 0, 0); },
        [] { q_refer_element(nullptr, 0, 0); },
        [] { q_refer(nullptr, 0, 0); },
        [&] { q_refer_list_element(releasing, 1, 0); },
        [] { q_refer_list(nullptr, 0, 0); },
        [&] { q_work_queue(releasing, nullptr, nullptr); },
        [&] { q_work_list(releasing, 1, work, nullptr); },
        [] { q_work_all(nullptr, work, nullptr); },
        [&] { q_delete_queue(releasing, nullptr, nullptr, nullptr); },
        [&] { q_delete_list(releasing, 1, selects, nullptr, nullptr); },
        [] { q_delete(nullptr, selects, nullptr, nullptr); },
        [&] { q_clean_queue(releasing, nullptr); },
        [] { q_clean_list(nullptr, 0, nullptr); },
        [&] { q_clean(releasing, nullptr); },
    };
    for (size_t i = 0; i < refused.size(); ++i) EXPECT_EQ(errno_of(refused[i]), EINVAL) << i;
    EXPECT_EQ(calls, Strings());
}

TEST_F(QueueErrno, IsLeftAloneByOtherAnswers)
{
    start(1, 1);
    errno = 0;
    EXPECT_EQ(q_q2l(queue, 0, 0), -1);
    EXPECT_EQ(q_l2l(queue, 0, 0, 1), -1);
    EXPECT_EQ(q_refer(queue, 1, 0), nullptr);
    EXPECT_NE(q_add_queue(queue, item(1), 0, nullptr), nullptr);
    EXPECT_EQ(q_add_queue(queue, item(2), 0, nullptr), nullptr);
    EXPECT_EQ(errno, 0);
}

// --- q_exit --------------------------------------------------------------------------------------

TEST_F(QueueExit, RefusesANullQueue)
{
    EXPECT_EQ(q_exit(nullptr, nullptr), -1);
}

TEST_F(QueueExit, ShowsTheReleaseCallbackTheSlotsThenTheListsInOrder)
{
    start(3, 2);
    fill_slots({1, 0, 2});
    fill_list(0, {3, 4});
    fill_list(1, {5});
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_exit(queue, item(8)), 0); }),
              Strings({"release 1 8", "release 2 8", "release 3 8", "release 4 8", "release 5 8"}));
    queue = nullptr;
}

TEST_F(QueueExit, FreesSlotElementsWhateverTheAnswer)
{
    start(2, 0); // the leak checker watches
    fill_slots({1, 2});
    release_answer = [](void *) { return 0; };
    EXPECT_EQ(q_exit(queue, nullptr), 0);
    queue = nullptr;
}

TEST_F(QueueExit, LeavesListElementsThatAreNotReleasedToTheCaller)
{
    start(1, 2);
    fill_list(0, {1, 2, 3, 4});
    q_element *const second = queue->lists[0].next->next;
    q_element *const fourth = queue->lists[0].prev;
    release_answer = [](void *data) { return number_of(data) % 2 == 1 ? 1 : 3; };
    EXPECT_EQ(q_exit(queue, nullptr), 0);
    queue = nullptr;
    EXPECT_EQ(second->data, item(2));
    EXPECT_EQ(fourth->data, item(4));
    EXPECT_EQ(second->prev, nullptr);
    EXPECT_EQ(second->next, fourth);
    EXPECT_EQ(fourth->prev, second);
    EXPECT_EQ(fourth->next, nullptr);
    free(second);
    free(fourth);
}

TEST_F(QueueExit, FreesEverythingWithoutAReleaseCallback)
{
    q_queue *const without_release = q_init(2, 2, match, nullptr, clean, nullptr);
    q_add_queue(without_release, item(1), 0, nullptr);
    q_add_list(without_release, item(2), 0, nullptr);
    q_add_list(without_release, item(3), 1, nullptr);
    EXPECT_EQ(q_exit(without_release, nullptr), 0);
    EXPECT_EQ(calls, Strings());
}

TEST_F(QueueExit, SparesASlotElementThatItsCallbackMovedToAList)
{
    start(1, 1);
    fill_slots({1});
    release_answer = [this](void *) {
        q_q2l(queue, 0, 0); // fails the second time, for the list
        return 1;
    };
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(q_exit(queue, nullptr), 0); }),
              Strings({"release 1 0", "release 1 0"}));
    queue = nullptr;
}

// --- a long life, beside a model -----------------------------------------------------------------

// What a queue holds, in the standard library's words. Items are numbers, each its own key.
struct Model {
    std::vector<uintptr_t> slots; // 0 is empty
    std::vector<std::list<uintptr_t>> lists;

    Model(size_t slot_count, size_t list_count) : slots(slot_count), lists(list_count) {}

    bool add_queue(uintptr_t number)
    {
        uintptr_t &slot = slots[number % slots.size()];
        return slot == 0 && (slot = number) != 0;
    }
    int q2l(unsigned list, uintptr_t number)
    {
        uintptr_t &slot = slots[number % slots.size()];
        if (list >= lists.size() || slot == 0) return -1;
        lists[list].push_back(std::exchange(slot, 0));
        return 0;
    }
    int l2l(unsigned from, unsigned to, uintptr_t number)
    {
        if (from >= lists.size() || to >= lists.size()) return -1;
        const auto at = std::ranges::find(lists[from], number);
        if (at == lists[from].end()) return -1;
        lists[to].splice(lists[to].end(), lists[from], at);
        return 0;
    }
    uintptr_t refer(uintptr_t number, unsigned flags) const
    {
        const uintptr_t slot = slots[number % slots.size()];
        if ((flags & 1) == 0 && slot != 0 && ((flags & 4) != 0 || slot == number)) return slot;
        if ((flags & 2) != 0) return 0;
        for (const auto &list : lists)
            if (std::ranges::find(list, number) != list.end()) return number;
        return 0;
    }
    int remove(uintptr_t number)
    {
        for (uintptr_t &slot : slots)
            if (slot == number) return slot = 0, 1;
        for (auto &list : lists) {
            const auto at = std::ranges::find(list, number);
            if (at == list.end()) continue;
            list.erase(at);
            return 1;
        }
        return 0;
    }
};

int is_it(void *data, void *wanted)
{
    return data == wanted;
}

int clean_odd(void *data, void *)
{
    return static_cast<int>(number_of(data) % 2);
}

void expect_same(const q_queue *queue, const Model &model)
{
    ASSERT_EQ(slots_of(queue), model.slots);
    for (unsigned i = 0; i < model.lists.size(); ++i)
        ASSERT_EQ(items_of(queue, i), Items(model.lists[i].begin(), model.lists[i].end()));
}

TEST(QueueModel, AgreesThroughLongRandomLives)
{
    std::mt19937 random(4);
    const auto below = [&random](unsigned limit) {
        return static_cast<unsigned>(random() % limit);
    };
    for (int life = 0; life < 20; ++life) {
        const unsigned slots = 1 + below(40), lists = below(5);
        q_queue *const queue = q_init(slots, lists, equal_keys, give_up, clean_odd, nullptr);
        Model model(slots, lists);
        for (int step = 0; step < 1000; ++step) {
            const uintptr_t number = 1 + below(200), fresh = 1000 + static_cast<uintptr_t>(step);
            const unsigned list = below(6), other = below(6), flags = below(8);
            switch (below(8)) {
            case 0:
                ASSERT_EQ(q_add_queue(queue, item(fresh), fresh, nullptr) != nullptr,
                          model.add_queue(fresh));
                break;
            case 1:
                ASSERT_EQ(q_add_queue(queue, item(number), number, nullptr) != nullptr,
                          model.add_queue(number));
                break;
            case 2:
                ASSERT_EQ(q_add_list(queue, item(fresh), list, nullptr) != nullptr, list < lists);
                if (list < lists) model.lists[list].push_back(fresh);
                break;
            case 3: ASSERT_EQ(q_q2l(queue, list, number), model.q2l(list, number)); break;
            case 4:
                ASSERT_EQ(q_l2l(queue, list, other, number), model.l2l(list, other, number));
                break;
            case 5:
                ASSERT_EQ(number_of(q_refer(queue, number, flags)), model.refer(number, flags));
                break;
            case 6:
                ASSERT_EQ(q_delete(queue, is_it, item(number), nullptr), model.remove(number));
                break;
            default:
                if (below(20) != 0 || list >= lists) break;
                ASSERT_EQ(q_clean_list(queue, list, nullptr), 0);
                model.lists[list].remove_if([](uintptr_t n) { return n % 2 == 1; });
            }
            expect_same(queue, model);
        }
        ASSERT_EQ(q_exit(queue, nullptr), 0);
    }
}

} // namespace
