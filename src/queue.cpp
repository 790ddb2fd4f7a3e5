// queue.cpp - a fixed array of slots and a fixed number of circular lists.
//
//     q_queue | ... | slots: [e] [ ] [e] ...        a slot owns one element or is null
//         lists --> [head 0] [head 1] ...
//                      |  ^
//                      v  |                         a head is an element without data; an
//                     [e]<->[e]                     empty list is a head linked to itself
//
// Invariant: an element is in exactly one place, a slot or a list, and linked only in a list.
// Beware:    callbacks may move or delete the element they are called with. So a walk reads the
//            next link before it visits, and a slot is read again after a callback.
#include "vnlib/queue.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace vn::queue {
namespace {

// The elements of a list, in the direction of the link given. Each step's link is read before the
// element is visited: the visit may unlink it.
template <q_element *q_element::*Link>
class Walk {
public:
    explicit Walk(q_element &head) : head_(&head) {}

    class Iterator {
    public:
        explicit Iterator(q_element *at) : at_(at), next_(at->*Link) {}
        q_element &operator*() const { return *at_; }
        Iterator &operator++() { return *this = Iterator(next_); }
        bool operator!=(const Iterator &other) const { return at_ != other.at_; }

    private:
        q_element *at_;
        q_element *next_;
    };

    [[nodiscard]] Iterator begin() const { return Iterator(head_->*Link); }
    [[nodiscard]] Iterator end() const { return Iterator(head_); }

private:
    q_element *head_;
};

using FrontToBack = Walk<&q_element::next>;
using BackToFront = Walk<&q_element::prev>;

void append(q_element &head, q_element &element)
{
    element.next = &head;
    element.prev = head.prev;
    head.prev->next = &element;
    head.prev = &element;
}

void unlink(q_element &element)
{
    element.prev->next = element.next;
    element.next->prev = element.prev;
    element.next = element.prev = nullptr;
}

void unlink_and_free(q_element &element)
{
    unlink(element);
    std::free(&element);
}

q_element *new_element(void *data)
{
    auto *const element = static_cast<q_element *>(std::malloc(sizeof(q_element)));
    if (element != nullptr) *element = {nullptr, nullptr, data};
    return element;
}

// What a function answers to an argument that it cannot work with. Cold, so that the usual way
// through refer() saves no registers for it.
template <typename Failure>
[[gnu::cold, gnu::noinline]] Failure invalid(Failure failure)
{
    errno = EINVAL;
    return failure;
}

// --- places in a queue ---------------------------------------------------------------------------

std::span<q_element *> slots_of(q_queue &queue)
{
    return {queue.slots, queue.slot_count};
}

std::span<q_element> heads_of(q_queue &queue)
{
    return {queue.lists, queue.list_count};
}

// Most keys are small. One that numbers a slot needs no division, and half as wide a division takes
// a fraction of the time on many processors; some have none at all.
q_element *&slot_of(q_queue &queue, uintptr_t key)
{
    if (key < queue.slot_count) return queue.slots[key];
    const auto small = static_cast<uint32_t>(key);
    return queue.slots[small == key ? small % queue.slot_count : key % queue.slot_count];
}

// The head of a list, or null when there is no such list.
q_element *head_of(q_queue *queue, unsigned list)
{
    return queue != nullptr && list < queue->list_count ? &queue->lists[list] : nullptr;
}

void empty_slot(q_element *&slot)
{
    std::free(slot);
    slot = nullptr;
}

q_element *first_match(const q_queue &queue, q_element &head, uintptr_t key)
{
    for (q_element &element : FrontToBack(head))
        if (queue.match(element.data, key) != 0) return &element;
    return nullptr;
}

// Kept out of refer(), whose usual way ends at the slot and should save no registers.
[[gnu::noinline]] q_element *first_match_in_lists(q_queue &queue, uintptr_t key)
{
    for (q_element &head : heads_of(queue))
        if (q_element *const element = first_match(queue, head, key)) return element;
    return nullptr;
}

bool refuses(const q_queue &queue, void *data, void *arg, unsigned list)
{
    return queue.filter != nullptr && queue.filter(data, arg, list) != 0;
}

void *data_of(const q_element *element)
{
    return element != nullptr ? element->data : nullptr;
}

// Inline: both calls that search are made for every item that a program handles.
inline q_element *refer(q_queue *queue, uintptr_t key, unsigned flags)
{
    if (queue == nullptr) return invalid(nullptr);
    if ((flags & Q_REFER_NO_SLOT) == 0) {
        q_element *const element = slot_of(*queue, key);
        if (element != nullptr &&
            ((flags & Q_REFER_UNASKED) != 0 || queue->match(element->data, key) != 0)) {
            return element;
        }
    }
    return (flags & Q_REFER_NO_LISTS) == 0 ? first_match_in_lists(*queue, key) : nullptr;
}

// --- life of a queue -----------------------------------------------------------------------------

// The object with all slots empty. Slots may number 2^32 - 1, more than a 32-bit size can hold.
q_queue *allocate_queue(uint32_t slots)
{
    size_t bytes;
    if (__builtin_mul_overflow(slots, sizeof(void *), &bytes) ||
        __builtin_add_overflow(bytes, sizeof(q_queue), &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    return static_cast<q_queue *>(std::calloc(1, bytes));
}

bool allocate_heads(q_queue &queue, uint32_t lists)
{
    if (lists == 0) return true;
    queue.lists = static_cast<q_element *>(std::calloc(lists, sizeof(q_element)));
    if (queue.lists == nullptr) return false;
    queue.list_count = lists;
    for (q_element &head : heads_of(queue)) head.next = head.prev = &head;
    return true;
}

void exit_slots(q_queue &queue, void *arg)
{
    for (q_element *&slot : slots_of(queue)) {
        const q_element *const element = slot;
        if (element == nullptr) continue;
        if (queue.release != nullptr) queue.release(element->data, arg);
        if (slot == element) empty_slot(slot);
    }
}

void exit_list(const q_queue &queue, q_element &head, void *arg)
{
    for (q_element &element : FrontToBack(head))
        if (queue.release == nullptr || queue.release(element.data, arg) == Q_RELEASE_FREE)
            unlink_and_free(element);
}

// What is left in the list is the caller's from now on: its ends must not point to a freed head.
void cut_loose(const q_element &head)
{
    q_element *const first = head.next;
    q_element *const last = head.prev;
    first->prev = nullptr;
    last->next = nullptr;
}

} // namespace
} // namespace vn::queue

using namespace vn::queue;

extern "C" {

q_queue *q_init(unsigned slots, unsigned lists, q_match_fn match, q_release_fn release,
                q_clean_fn clean, q_filter_fn filter)
{
    if (slots == 0 || match == nullptr || (release == nullptr && clean == nullptr))
        return invalid(nullptr);
    q_queue *const queue = allocate_queue(slots);
    if (queue == nullptr) return nullptr;
    if (!allocate_heads(*queue, lists)) {
        std::free(queue);
        return nullptr;
    }
    queue->release = release;
    queue->match = match;
    queue->clean = clean;
    queue->filter = filter;
    queue->slot_count = slots;
    return queue;
}

int q_exit(q_queue *queue, void *arg)
{
    if (queue == nullptr) return invalid(-1);
    exit_slots(*queue, arg);
    for (q_element &head : heads_of(*queue)) exit_list(*queue, head, arg);
    for (const q_element &head : heads_of(*queue)) cut_loose(head);
    std::free(queue->lists);
    std::free(queue);
    return 0;
}

// --- adding and moving ---------------------------------------------------------------------------

q_element *q_add_queue(q_queue *queue, void *data, uintptr_t key, void *arg)
{
    if (queue == nullptr) return invalid(nullptr);
    q_element *&slot = slot_of(*queue, key);
    if (slot != nullptr || refuses(*queue, data, arg, UINT_MAX)) return nullptr;
    if (slot != nullptr) return nullptr; // filled by the filter
    return slot = new_element(data);
}

q_element *q_add_list(q_queue *queue, void *data, unsigned list, void *arg)
{
    q_element *const head = head_of(queue, list);
    if (head == nullptr) return invalid(nullptr);
    if (refuses(*queue, data, arg, list)) return nullptr;
    q_element *const element = new_element(data);
    if (element != nullptr) append(*head, *element);
    return element;
}

int q_q2l(q_queue *queue, unsigned list, uintptr_t key)
{
    q_element *const head = head_of(queue, list);
    if (head == nullptr) return invalid(-1);
    q_element *&slot = slot_of(*queue, key);
    if (slot == nullptr) return -1;
    append(*head, *slot);
    slot = nullptr;
    return 0;
}

int q_l2l(q_queue *queue, unsigned from, unsigned to, uintptr_t key)
{
    q_element *const source = head_of(queue, from);
    q_element *const target = head_of(queue, to);
    if (source == nullptr || target == nullptr) return invalid(-1);
    q_element *const element = first_match(*queue, *source, key);
    if (element == nullptr) return -1;
    unlink(*element);
    append(*target, *element);
    return 0;
}

// --- searching -----------------------------------------------------------------------------------

q_element *q_refer_element(q_queue *queue, uintptr_t key, unsigned flags)
{
    return refer(queue, key, flags);
}

void *q_refer(q_queue *queue, uintptr_t key, unsigned flags)
{
    return data_of(refer(queue, key, flags));
}

q_element *q_refer_list_element(q_queue *queue, unsigned list, uintptr_t key)
{
    q_element *const head = head_of(queue, list);
    return head != nullptr ? first_match(*queue, *head, key) : invalid<q_element *>(nullptr);
}

void *q_refer_list(q_queue *queue, unsigned list, uintptr_t key)
{
    return data_of(q_refer_list_element(queue, list, key));
}

// --- walking -------------------------------------------------------------------------------------

int q_work_queue(q_queue *queue, q_work_fn work, void *arg)
{
    if (queue == nullptr || work == nullptr) return invalid(-1);
    int all = 0;
    for (q_element *const element : slots_of(*queue)) all |= work(queue, element, arg);
    return all;
}

int q_work_list(q_queue *queue, unsigned list, q_work_fn work, void *arg)
{
    q_element *const head = head_of(queue, list);
    if (head == nullptr || work == nullptr) return invalid(-1);
    int all = 0;
    for (const q_element &element : FrontToBack(*head)) all |= work(queue, element.data, arg);
    return all;
}

int q_work_all(q_queue *queue, q_work_fn work, void *arg)
{
    if (queue == nullptr) return invalid(-1);
    int all = q_work_queue(queue, work, arg);
    for (unsigned list = 0; list < queue->list_count; ++list)
        all |= q_work_list(queue, list, work, arg);
    return all;
}

unsigned q_listcount(q_queue *queue, unsigned list)
{
    q_element *const head = head_of(queue, list);
    if (head == nullptr) return 0;
    unsigned count = 0;
    for (const q_element *element = head->next; element != head; element = element->next) ++count;
    return count;
}

unsigned q_queuecount(q_queue *queue)
{
    if (queue == nullptr) return 0;
    const auto occupied = [](const q_element *element) { return element != nullptr; };
    const std::span slots = slots_of(*queue);
    return static_cast<unsigned>(std::count_if(slots.begin(), slots.end(), occupied));
}

void q_dump_queue(q_queue *queue, q_dump_queue_fn dump, void *arg)
{
    if (queue == nullptr || dump == nullptr) return;
    for (unsigned index = 0; index < queue->slot_count; ++index) {
        q_element *const element = queue->slots[index];
        if (element == nullptr) continue;
        char label[sizeof "Elm:ffffffff"];
        std::snprintf(label, sizeof label, "Elm:%.4x", index);
        dump(element->data, arg, label, element);
    }
}

void q_dump_list(q_queue *queue, unsigned list, q_dump_list_fn dump, void *arg)
{
    q_element *const head = head_of(queue, list);
    if (head == nullptr || dump == nullptr) return;
    char label[sizeof "List ffffffff"];
    std::snprintf(label, sizeof label, "List %x", list);
    for (const q_element &element : FrontToBack(*head)) dump(element.data, arg, label);
}

// --- deleting one item ---------------------------------------------------------------------------

int q_delete_queue(q_queue *queue, q_select_fn select, void *select_arg, void *release_arg)
{
    if (queue == nullptr || select == nullptr || queue->release == nullptr) return invalid(-1);
    for (q_element *&slot : slots_of(*queue)) {
        const q_element *const element = slot;
        if (element == nullptr) continue;
        void *const data = element->data;
        if (select(data, select_arg) == 0) continue;
        const int answer = queue->release(data, release_arg);
        if (answer == Q_RELEASE_FREE && slot == element) empty_slot(slot);
        if (answer != Q_RELEASE_GO_ON) return answer;
    }
    return 0;
}

int q_delete_list(q_queue *queue, unsigned list, q_select_fn select, void *select_arg,
                  void *release_arg)
{
    q_element *const head = head_of(queue, list);
    if (head == nullptr || select == nullptr || queue->release == nullptr) return invalid(-1);
    int answer = 0;
    for (q_element &element : FrontToBack(*head)) {
        void *const data = element.data;
        if (select(data, select_arg) == 0) continue;
        answer = queue->release(data, release_arg);
        if (answer == Q_RELEASE_FREE) unlink_and_free(element);
        if (answer != Q_RELEASE_GO_ON) return answer;
    }
    return answer;
}

int q_delete(q_queue *queue, q_select_fn select, void *select_arg, void *release_arg)
{
    int result = q_delete_queue(queue, select, select_arg, release_arg);
    if (result != 0) return result;
    for (unsigned list = 0; result == 0 && list < queue->list_count; ++list)
        result = q_delete_list(queue, list, select, select_arg, release_arg);
    return result;
}

// --- cleaning ------------------------------------------------------------------------------------

int q_clean_queue(q_queue *queue, void *arg)
{
    if (queue == nullptr || queue->clean == nullptr) return invalid(-1);
    unsigned count = 0; // unsigned: the callback's numbers may add up to anything
    for (q_element *&slot : slots_of(*queue)) {
        const int cleaned = queue->clean(slot, arg);
        if (cleaned < 0) return cleaned;
        if (cleaned == Q_CLEAN_STOP) break;
        count += static_cast<unsigned>(cleaned);
        empty_slot(slot);
    }
    return static_cast<int>(count);
}

int q_clean_list(q_queue *queue, unsigned list, void *arg)
{
    q_element *const head = head_of(queue, list);
    if (head == nullptr || queue->clean == nullptr) return invalid(-1);
    unsigned count = 0;
    for (q_element &element : BackToFront(*head)) {
        const int cleaned = queue->clean(element.data, arg);
        if (cleaned < 0) return cleaned;
        if (cleaned == Q_CLEAN_STOP) return static_cast<int>(count);
        if (cleaned == 0) continue;
        count += static_cast<unsigned>(cleaned);
        unlink_and_free(element);
    }
    return 0; // callers take 0 for "nothing left to come back for"
}

int q_clean(q_queue *queue, void *arg)
{
    const int slots = q_clean_queue(queue, arg);
    if (slots < 0 || slots == Q_CLEAN_STOP) return slots;
    auto sum = static_cast<unsigned>(slots);
    for (unsigned list = 0; list < queue->list_count; ++list) {
        const int cleaned = q_clean_list(queue, list, arg);
        if (cleaned < 0) return cleaned;
        if (cleaned == Q_CLEAN_STOP) break;
        sum += static_cast<unsigned>(cleaned);
    }
    return static_cast<int>(sum);
}

} // extern "C"
