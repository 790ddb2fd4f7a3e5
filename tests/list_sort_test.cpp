#include "vnlib/list_sort.h"

#include <algorithm>
#include <cstddef>
#include <random>
#include <utility>

namespace {

// An item as callers write them; the link is not at its start on purpose.
struct Item {
    int key = 0;
    int serial = 0;
    list_link link{};
};

Item &item_of(list_link *link)
{
    return *reinterpret_cast<Item *>(reinterpret_cast<char *>(link) - offsetof(Item, link));
}

struct Comparison {
    int a, b;
    bool operator==(const Comparison &) const = default;
};
std::vector<Comparison> comparisons; // serial numbers, in the order of the calls

int ascending(list_link *a, list_link *b)
{
    comparisons.push_back({item_of(a).serial, item_of(b).serial});
    return item_of(b).key - item_of(a).key;
}

int all_equal(list_link *, list_link *)
{
    return 0;
}

void make_empty(list_link &head)
{
    head.next = head.prev = &head;
}

void add_tail(list_link &head, list_link &link)
{
    link.prev = head.prev;
    link.next = &head;
    head.prev->next = &link;
    head.prev = &link;
}

class List {
public:
    explicit List(const std::vector<int> &keys) : items_(keys.size())
    {
        make_empty(head);
        for (size_t i = 0; i < keys.size(); ++i) {
            items_[i].key = keys[i];
            items_[i].serial = static_cast<int>(i);
            add_tail(head, items_[i].link);
        }
    }
    [[nodiscard]] int count() const { return static_cast<int>(items_.size()); }

    // The serial numbers along the next links; fails the test when a prev link is wrong.
    std::vector<int> serials()
    {
        std::vector<int> result;
        for (list_link *link = head.next; link != &head; link = link->next) {
            EXPECT_EQ(link->prev->next, link);
            EXPECT_EQ(link->next->prev, link);
            result.push_back(item_of(link).serial);
        }
        return result;
    }

    list_link head{};

private:
    std::vector<Item> items_;
};

// The sort in its plainest words: move the halves to heads of their own, sort them, move the items
// back one at a time.
void move_first_to_tail(list_link &from, list_link &to)
{
    list_link &link = *from.next;
    from.next = link.next;
    from.next->prev = &from;
    add_tail(to, link);
}

void plain_sort(list_link &head, int count, int (*compare)(list_link *, list_link *))
{
    if (count < 2) return;
    list_link first, second;
    make_empty(first);
    make_empty(second);
    for (int i = 0; i < count / 2; ++i) move_first_to_tail(head, first);
    while (head.next != &head) move_first_to_tail(head, second);
    plain_sort(first, count / 2, compare);
    plain_sort(second, count - count / 2, compare);
    while (first.next != &first && second.next != &second)
        move_first_to_tail(compare(first.next, second.next) > 0 ? first : second, head);
    while (first.next != &first) move_first_to_tail(first, head);
    while (second.next != &second) move_first_to_tail(second, head);
}

std::vector<int> random_keys(size_t count, unsigned different, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<int> keys(count);
    for (int &key : keys) key = static_cast<int>(random() % different);
    return keys;
}

TEST(ListSort, LeavesAnEmptyListAndASingleItemUntouched)
{
    List none({});
    __list_sort(&none.head, 0, ascending);
    EXPECT_EQ(none.head.next, &none.head);
    EXPECT_EQ(none.head.prev, &none.head);

    List one({7});
    comparisons.clear();
    __list_sort(&one.head, 1, ascending);
    EXPECT_EQ(one.serials(), std::vector<int>{0});
    EXPECT_TRUE(comparisons.empty());
}

TEST(ListSort, LeavesTheListUntouchedForACountBelowTwo)
{
    List list({3, 1, 2});
    for (const int count : {1, 0, -1, -100}) __list_sort(&list.head, count, ascending);
    EXPECT_EQ(list.serials(), (std::vector<int>{0, 1, 2}));
}

TEST(ListSort, PutsTheItemFirstForWhichTheComparisonIsPositive)
{
    List list({3, 1, 2});
    __list_sort(&list.head, 3, ascending);
    EXPECT_EQ(list.serials(), (std::vector<int>{1, 2, 0}));
}

TEST(ListSort, SwapsTwoItemsThatCompareEqual)
{
    List list({5, 5});
    __list_sort(&list.head, 2, ascending);
    EXPECT_EQ(list.serials(), (std::vector<int>{1, 0}));
}

TEST(ListSort, ReversesAListOfEqualItems)
{
    List list(std::vector<int>(9, 4));
    __list_sort(&list.head, list.count(), all_equal);
    EXPECT_EQ(list.serials(), (std::vector<int>{8, 7, 6, 5, 4, 3, 2, 1, 0}));
}

TEST(ListSort, GivesTheComparisonTheItemOfTheEarlierHalfFirst)
{
    List list({1, 2, 3, 4, 5});
    comparisons.clear();
    __list_sort(&list.head, 5, ascending);
    const std::vector<Comparison> expected = {{0, 1}, {3, 4}, {2, 3}, {0, 2}, {1, 2}};
    EXPECT_EQ(comparisons, expected);
}

TEST(ListSort, MakesTheComparisonsAndTheOrderOfThePlainSort)
{
    for (const unsigned different : {1u, 2u, 5u, 1000u, 1000000u})
        for (size_t count = 0; count < 140; ++count) {
            const std::vector<int> keys =
                random_keys(count, different, static_cast<unsigned>(count) * 31 + different);
            List sorted(keys), expected(keys);
            comparisons.clear();
            __list_sort(&sorted.head, sorted.count(), ascending);
            const std::vector<Comparison> made = comparisons;
            comparisons.clear();
            plain_sort(expected.head, expected.count(), ascending);
            ASSERT_EQ(made, comparisons) << count << " items of " << different;
            ASSERT_EQ(sorted.serials(), expected.serials()) << count << " items of " << different;
        }
}

// Long chains are merged in a way of their own, with links that lead ahead.
TEST(ListSort, MakesTheComparisonsAndTheOrderOfThePlainSortInLongLists)
{
    for (const size_t count : {16'383u, 16'384u, 40'001u}) {
        const std::vector<int> keys = random_keys(count, 5000, 3);
        List sorted(keys), expected(keys);
        comparisons.clear();
        __list_sort(&sorted.head, sorted.count(), ascending);
        const std::vector<Comparison> made = std::exchange(comparisons, {});
        plain_sort(expected.head, expected.count(), ascending);
        ASSERT_TRUE(made == comparisons) << count;
        ASSERT_TRUE(sorted.serials() == expected.serials()) << count;
    }
    comparisons = {};
}

TEST(ListSort, LosesNothingOfALongListWhenTheCountIsWrong)
{
    for (const int count : {16'384, 29'999, 30'001, 100'000}) {
        List list(random_keys(30'000, 1000, 5));
        __list_sort(&list.head, count, ascending);
        std::vector<int> serials = list.serials();
        ASSERT_EQ(serials.size(), 30'000u) << count;
        std::sort(serials.begin(), serials.end());
        EXPECT_EQ(serials.back(), 29'999) << count;
    }
    comparisons = {};
}

TEST(ListSort, SortsLongLists)
{
    const std::vector<int> keys = random_keys(200'000, 1'000'000'000, 7);
    List list(keys);
    __list_sort(&list.head, list.count(), ascending);
    const std::vector<int> serials = list.serials();
    ASSERT_EQ(serials.size(), keys.size());
    EXPECT_TRUE(std::is_sorted(serials.begin(), serials.end(), [&](int a, int b) {
        return keys[static_cast<size_t>(a)] < keys[static_cast<size_t>(b)];
    }));
    comparisons.clear();
    comparisons.shrink_to_fit();
}

TEST(ListSort, LosesNothingWhenTheCountIsWrong)
{
    for (const int count : {2, 3, 4, 6, 9, 100}) {
        List list({5, 1, 4, 2, 3});
        __list_sort(&list.head, count, ascending);
        std::vector<int> serials = list.serials();
        std::sort(serials.begin(), serials.end());
        EXPECT_EQ(serials, (std::vector<int>{0, 1, 2, 3, 4})) << count;
    }
}

TEST(ListSort, KeepsTheOrderOfThePlainSortWhenTheCountIsTooSmall)
{
    for (const int count : {2, 3, 4, 5, 6}) {
        const std::vector<int> keys = {5, 1, 4, 2, 3, 6, 0};
        List list(keys), expected(keys);
        __list_sort(&list.head, count, ascending);
        plain_sort(expected.head, count, ascending);
        EXPECT_EQ(list.serials(), expected.serials()) << count;
    }
}

TEST(ListSort, IgnoresAMissingListOrComparison)
{
    List list({2, 1});
    __list_sort(nullptr, 2, ascending);
    __list_sort(&list.head, 2, nullptr);
    EXPECT_EQ(list.serials(), (std::vector<int>{0, 1}));
}

} // namespace
