// merge.cpp - select, update and insert: three merges, one walk.
//
//     for each child s of the source container, in order
//         look for s among the children d of the target container, first to last
//             same tag, both containers: merge s into d by this same walk; s is found
//             same tag, s a leaf:        d takes s's type and value; s is found
//         s was not found:  select skips it, update gives up, insert appends it to the target
//
// A function node, on either side, stands for the node that it yields.
//
// The walk keeps its levels on a stack of its own. A level under way holds a share of both lists,
// so that trees which share parts can be merged although a container in one place may become a
// leaf, and lose its members, while they are being read in another.
//
// Invariant: every node that a function node yields is given back with its release callback, on
//            every way out; where the merge ends early, from the innermost level outwards. A target
//            function that yields nothing has nothing to take back.
#include <cstring>
#include <utility>

#include "corelink/function_node.h"
#include "corelink/match_index.h"
#include "corelink/small_stack.h"
#include "corelink/tree.h"
#include "vnlib/log.h"

namespace vn::corelink {

namespace {

// What becomes of a source node that the target does not have.
enum class Missing { kSkip, kGiveUp, kInsert };

enum class Outcome {
    kFound,      // this child of the source is done
    kNotThisOne, // a target child is no match for it
    kMissing,    // none of them is
    kEntered,    // its members have to be merged first, on a level of their own
    kFailed      // the merge is over
};

// An index of a level's children costs as much as a few walks over them. It may pay after so many
// comparisons, when so many searches are still to come.
constexpr size_t kIndexFrom = 16;
constexpr int kIndexFor = 4;

void report_null_node()
{
    __vn_log(3, "%s +%d:NULL clparse node!", "clparse_search_tree", 1135);
}

// Gives a target leaf or container the type of a source leaf with the same tag, and a copy of its
// value; false for a source container. The copy comes first: both may be the same node, or the
// source may lie below the target. A text that cannot be copied is absent.
bool take_value(clparse_node &target, const clparse_node &source)
{
    if (is_container(source)) return false;
    const uint32_t type = source.type;
    decltype(target.value) value;
    value.function = {}; // the widest: nothing of the old value stays, whatever is set below
    switch (type_of(source)) {
    case Type::kString:
        if (source.value.text != nullptr)
            value.text = copy_text(source.value.text, "clparse_dfl_found_action", 1017);
        break;
    case Type::kNumber: value.number = source.value.number; break;
    case Type::kBoolean: value.boolean = source.value.boolean; break;
    default: break;
    }
    if (is_container(target) || type_of(target) == Type::kString)
        release_value(target, Privates::kKeep);
    target.type = type;
    target.value = value;
    return true;
}

// A node with the source's tag and child list, shared, and a text of its own; null without memory.
clparse_node *inserted_copy(const clparse_node &source)
{
    OwnedNode copy(new_node());
    if (!copy) return nullptr;
    copy->type = source.type;
    if (type_of(source) == Type::kString && source.value.text != nullptr) {
        copy->value.text = copy_text(source.value.text, "clparse_insert_new", 1070);
        if (copy->value.text == nullptr) return nullptr;
    }
    if (!share_tag(source)) return nullptr;
    copy->tag = source.tag;
    share_children(source);
    if (type_of(source) != Type::kString) copy->value = source.value;
    return copy.release();
}

// Whether `list` is the node's child list or one below it. Without memory to find out: it may be.
bool leads_to(const clparse_node &node, const clparse_node *list)
{
    SmallStack<const clparse_node *, 32> pending;
    if (!pending.push(&node)) return true;
    while (!pending.empty()) {
        const clparse_node &next = *pending.top();
        pending.pop();
        if (is_container(next) && next.value.children == list) return true;
        for (const clparse_node &child : Children(next))
            if (is_container(child) && !pending.push(&child)) return true;
    }
    return false;
}

class Merge {
public:
    explicit Merge(Missing missing) : missing_(missing) {}
    ~Merge()
    {
        while (!levels_.empty()) leave();
    }
    Merge(const Merge &) = delete;
    Merge &operator=(const Merge &) = delete;

    // 0, or -1: the target then keeps what was done before the failure.
    int run(clparse_node &target, const clparse_node &source);

private:
    struct Level {
        clparse_node *target;          // the container that is merged into,
        clparse_node *target_list;     // the sentinel of its children,
        clparse_node *source_list;     // and that of the source container's
        clparse_node *source_last;     // the last source child; what a merge of a list into itself
                                       // appends behind it is not merged again
        clparse_node *source_entry;    // the source child in hand, as it stands in its list
        clparse_node *source;          // what is merged: that child, or what it yields
        clparse_node *source_function; // the function nodes whose results are in use, or null
        clparse_node *target_function;
        bool shared;            // whether another tree may hold that target container's list
        MatchIndex *index;      // of the target's children, or null
        size_t index_callbacks; // callbacks_ when it was built
        size_t compared;        // target children looked at so far,
        size_t index_when;      // and how many of them are reason to try for an index
    };

    Outcome enter(clparse_node &target, const clparse_node &source);
    void leave();
    Outcome step();
    Outcome search(Level &level);
    Outcome offer(Level &level, clparse_node &entry);
    Outcome join(clparse_node &target, const clparse_node &source);
    Outcome finish(Level &level, Outcome outcome);
    bool supply(Level &level);
    [[nodiscard]] bool would_close_a_ring(const Level &level, const clparse_node &copy) const;
    bool append_copy(Level &level, OwnedNode &copy);
    MatchIndex *index_of(Level &level);
    static bool index_may_pay(const Level &level);
    static void drop_index(Level &level);
    clparse_node *use(clparse_node &entry, clparse_node *&function);
    bool release(clparse_node *&function);

    const Missing missing_;
    size_t callbacks_ = 0; // made so far; each may have changed any tree
    SmallStack<Level, 8> levels_;
};

int Merge::run(clparse_node &target, const clparse_node &source)
{
    Outcome outcome = enter(target, source);
    while (outcome != Outcome::kFailed && !levels_.empty()) outcome = step();
    return outcome == Outcome::kFailed ? -1 : 0;
}

Outcome Merge::enter(clparse_node &target, const clparse_node &source)
{
    clparse_node *const target_list = target.value.children;
    clparse_node *const source_list = source.value.children;
    if (target_list == nullptr) return Outcome::kFailed;
    if (source_list == nullptr || source_list->next == source_list) return Outcome::kFound;
    Level level{};
    level.target = &target;
    level.target_list = target_list;
    level.source_list = source_list;
    level.source_last = source_list->prev;
    level.source_entry = source_list->next;
    level.shared = is_shared(*target_list) || (!levels_.empty() && levels_.top().shared);
    level.index_when = kIndexFrom;
    if (!levels_.push(level)) return Outcome::kFailed;
    hold_list(*target_list);
    hold_list(*source_list);
    return Outcome::kEntered;
}

void Merge::leave()
{
    Level &level = levels_.top();
    release(level.target_function);
    release(level.source_function);
    MatchIndex::destroy(level.index);
    let_go_of_list(*level.source_list);
    let_go_of_list(*level.target_list);
    levels_.pop();
}

// Takes up the next source child. Behind the last one, the child that led to this level is done.
Outcome Merge::step()
{
    Level &level = levels_.top();
    if (level.source_entry == level.source_list || level.source_entry == nullptr) {
        leave();
        return levels_.empty() ? Outcome::kFound : finish(levels_.top(), Outcome::kFound);
    }
    level.source = use(*level.source_entry, level.source_function);
    const Outcome outcome = level.source != nullptr ? search(level) : Outcome::kFound;
    return outcome == Outcome::kEntered ? outcome : finish(level, outcome);
}

Outcome Merge::search(Level &level)
{
    if (MatchIndex *const index = index_of(level)) {
        clparse_node *target;
        const MatchIndex::Answer answer = index->find(*level.source, target);
        if (answer == MatchIndex::Answer::kFound) return join(*target, *level.source);
        if (answer == MatchIndex::Answer::kMissing) return Outcome::kMissing;
        drop_index(level);
        level.index_when = SIZE_MAX;
    }
    clparse_node *entry = level.target_list->next;
    for (; entry != level.target_list && entry != nullptr; entry = entry->next) {
        ++level.compared;
        const Outcome outcome = offer(level, *entry);
        if (outcome != Outcome::kNotThisOne) return outcome;
        if (!release(level.target_function)) return Outcome::kFailed;
    }
    if (entry == nullptr) report_null_node();
    return Outcome::kMissing;
}

// Whether the source node finds its match in a target child. A function node stays in use; one that
// yields nothing ends the search, as a broken list does, and is not called again.
Outcome Merge::offer(Level &level, clparse_node &entry)
{
    clparse_node *const target = use(entry, level.target_function);
    if (target == nullptr) {
        level.target_function = nullptr;
        report_null_node();
        return Outcome::kMissing;
    }
    return same_tag(target->tag, level.source->tag) ? join(*target, *level.source)
                                                    : Outcome::kNotThisOne;
}

// Merges two nodes of one tag, unless the source is a container and the target is none.
Outcome Merge::join(clparse_node &target, const clparse_node &source)
{
    if (is_container(target) && is_container(source)) return enter(target, source);
    return take_value(target, source) ? Outcome::kFound : Outcome::kNotThisOne;
}

// Ends the work on one source child.
Outcome Merge::finish(Level &level, Outcome outcome)
{
    if (outcome == Outcome::kFailed || !release(level.target_function)) return Outcome::kFailed;
    const bool missing = outcome == Outcome::kMissing && missing_ != Missing::kSkip;
    if (!(missing ? supply(level) : release(level.source_function))) return Outcome::kFailed;
    level.source_entry =
        level.source_entry == level.source_last ? level.source_list : level.source_entry->next;
    return Outcome::kFound;
}

// Gives the target what it does not have; false when it is not to have it. A function's result may
// be gone after its release callback: what is to be inserted is copied before the call, and linked
// after it. (No part of finish(), which is called for every child: this one has much to save.)
[[gnu::noinline]] bool Merge::supply(Level &level)
{
    OwnedNode copy(missing_ == Missing::kInsert ? inserted_copy(*level.source) : nullptr);
    return release(level.source_function) && append_copy(level, copy);
}

// A container that holds the target's own list must not be put into that list: nobody could release
// the ring, and a writer would go round in it. Only lists that are shared already and the results
// of function nodes can lead there.
bool Merge::would_close_a_ring(const Level &level, const clparse_node &copy) const
{
    return (level.shared || callbacks_ != 0) && leads_to(copy, level.target_list);
}

bool Merge::append_copy(Level &level, OwnedNode &copy)
{
    if (!copy || would_close_a_ring(level, *copy)) return false;
    clparse_node &child = *copy.release();
    append(*level.target, child);
    if (level.index != nullptr) level.index->add(child);
    return true;
}

// The index of the target's children, from the time that it may pay, and as long as no callback can
// have changed them.
MatchIndex *Merge::index_of(Level &level)
{
    if (level.index != nullptr && level.index_callbacks != callbacks_) drop_index(level);
    if (level.index == nullptr && index_may_pay(level)) {
        level.index = MatchIndex::of(*level.target_list);
        level.index_callbacks = callbacks_;
        level.index_when = level.compared * 2;
    }
    return level.index;
}

bool Merge::index_may_pay(const Level &level)
{
    if (level.compared < level.index_when) return false;
    const clparse_node *entry = level.source_entry;
    for (int searches = 1; searches < kIndexFor; ++searches) {
        if (entry == level.source_last || entry == nullptr) return false;
        entry = entry->next;
    }
    return true;
}

void Merge::drop_index(Level &level)
{
    MatchIndex::destroy(std::exchange(level.index, nullptr));
}

// The node to work on for a list entry. A function node is kept in `function` until release().
clparse_node *Merge::use(clparse_node &entry, clparse_node *&function)
{
    if (type_of(entry) != Type::kFunction) return &entry;
    ++callbacks_;
    function = &entry;
    return resolve(entry);
}

bool Merge::release(clparse_node *&function)
{
    if (function == nullptr) return true;
    ++callbacks_;
    return release_result(std::exchange(function, nullptr)) == 0;
}

int merge(clparse_head *target, clparse_head *source, Missing missing)
{
    if (target == nullptr || source == nullptr) return -1;
    return Merge(missing).run(target->root, source->root);
}

} // namespace

} // namespace vn::corelink

using namespace vn::corelink;

extern "C" int clparse_select(clparse_head *target, clparse_head *source)
{
    return merge(target, source, Missing::kSkip);
}

extern "C" int clparse_update(clparse_head *target, clparse_head *source)
{
    return merge(target, source, Missing::kGiveUp);
}

extern "C" int clparse_insert(clparse_head *target, clparse_head *source)
{
    return merge(target, source, Missing::kInsert);
}
