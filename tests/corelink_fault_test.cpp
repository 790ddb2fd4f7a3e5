// Allocations that fail, one after the other; whom blocks are charged to; and parts that two trees
// share. The leak checker of the sanitizer builds sees to it that nothing stays behind.
#include "vnlib/corelink.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <thread>
#include <unistd.h>

#include "corelink/shared_tags.h"
#include "corelink/tree.h"
#include "support/capture.h"
#include "support/corelink_shape.h"
#include "support/fault_alloc.h"
#include "vnlib/corelink_lex.h"
#include "vnlib/memcheck.h"

using shape::add;
using shape::children;
using shape::empty_tree;
using shape::LoneNode;
using shape::members;
using shape::Tree;

namespace {

// What the library asked the tracker for, while a log is kept.
struct Charge {
    std::string site;
    unsigned line;
    size_t size;
    bool operator==(const Charge &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Charge &charge)
{
    return out << charge.site << ":" << charge.line << " " << charge.size;
}

thread_local std::vector<Charge> *charges = nullptr;
thread_local std::vector<std::string> *releases = nullptr;
thread_local bool references_fail = false;

std::vector<Charge> charges_of(const std::function<void()> &body)
{
    std::vector<Charge> log;
    charges = &log;
    body();
    charges = nullptr;
    return log;
}

// What `body` says in a process of its own with the tracker on: only then all that the tracker
// counts is allocated and released.
bool while_tracking(const std::function<bool()> &body)
{
    const test::ChildResult child = test::run_in_child([&] {
        vn_memcheck_start();
        if (body()) _exit(7);
    });
    return child.exited_with(7);
}

std::vector<std::string> releases_of(const std::function<void()> &body)
{
    std::vector<std::string> log;
    releases = &log;
    body();
    releases = nullptr;
    return log;
}

constexpr size_t kNode = sizeof(clparse_node);

using Charges = std::vector<Charge>;

// The sites and sizes alone, where the line is the code's own.
Charges without_lines(Charges log)
{
    for (Charge &charge : log) charge.line = 0;
    return log;
}

// Fails each allocation of `make` in turn, all of which it needs.
void expect_null_on_every_failure(size_t allocations, clparse_node *(*make)())
{
    const size_t failures = fault::for_each_failing_allocation([make] {
        clparse_node *const node = make();
        if (node == nullptr) return;
        clparse_delete_node(node);
    });
    EXPECT_EQ(failures, allocations);
    for (size_t nth = 1; nth <= allocations; ++nth) {
        const fault::FailAllocations plan(nth);
        EXPECT_EQ(make(), nullptr) << "allocation " << nth;
    }
}

const char kText[] =
    "count=3,opts={on=true,name=\"x\"},list=[1,[2,\"two\"]],ab.cd.ef=\"x\",ab.cd.gh=1,"
    "flag";
const char kShape[] = "count:3 opts:{on:true name:\"x\"} list:[-:1 -:[-:2 -:\"two\"]] "
                      "ab:{cd:{ef:\"x\" gh:1}} flag";

} // namespace

extern "C" {
void *__real_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
void *__wrap_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
void __real_vn_memcheck_free(vn_free_fn release, void *block, const char *site);
void __wrap_vn_memcheck_free(vn_free_fn release, void *block, const char *site);
int __real_vn_reference_prep(vn_reference *ref, void (*release)(void *), void *arg);
int __wrap_vn_reference_prep(vn_reference *ref, void (*release)(void *), void *arg);
}

void *__wrap_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line)
{
    if (charges != nullptr) charges->push_back({site, line, size});
    return __real_vn_memcheck_malloc(alloc, size, site, line);
}

void __wrap_vn_memcheck_free(vn_free_fn release, void *block, const char *site)
{
    if (releases != nullptr) releases->push_back(site);
    EXPECT_NE(block, nullptr) << "there is no block to release";
    __real_vn_memcheck_free(release, block, site);
}

int __wrap_vn_reference_prep(vn_reference *ref, void (*release)(void *), void *arg)
{
    if (!references_fail) return __real_vn_reference_prep(ref, release, arg);
    errno = EAGAIN;
    return -1;
}

TEST(CorelinkCharge, NodesAreChargedToOneSite)
{
    const Charges node =
        charges_of([] { const LoneNode made(clparse_create_number_node("name", 1)); });
    ASSERT_EQ(node.size(), 2u);
    EXPECT_EQ(node[0], (Charge{"clparse_create_node", 394, kNode}));
    EXPECT_EQ(node[1].site, "clparse_create_number_node");
    EXPECT_EQ(node[1].size, sizeof "name");
}

TEST(CorelinkCharge, CopiesAreChargedToTheirConstructor)
{
    const auto made = [](clparse_node *(*make)()) {
        return without_lines(charges_of([make] { const LoneNode node(make()); }));
    };
    const Charge record{"clparse_create_node", 0, kNode};
    EXPECT_EQ(made([] { return clparse_create_string_node("ab", "text"); }),
              (Charges{record,
                       {"clparse_create_string_node", 0, 3},
                       {"clparse_create_string_node", 0, 5}}));
    EXPECT_EQ(made([] { return clparse_create_boolean_node("ab", 1); }),
              (Charges{record, {"clparse_create_boolean_node", 0, 3}}));
    EXPECT_EQ(made([] { return clparse_create_struct_node("ab"); }),
              (Charges{record, {"clparse_create_struct_node", 0, 3}, record}));
    EXPECT_EQ(made([] { return clparse_create_array_node("ab"); }),
              (Charges{record, {"clparse_create_array_node", 0, 3}, record}));
    EXPECT_EQ(
        made([] { return clparse_create_function_node("ab", nullptr, nullptr, nullptr, nullptr); }),
        (Charges{record, {"clparse_create_function_node", 0, 3}}));
}

TEST(CorelinkCharge, ANewTextIsChargedToItsSetter)
{
    const LoneNode node(clparse_create_string_node("ab", "text"));
    EXPECT_EQ(without_lines(charges_of([&] { clparse_set_node_value_s(node.get(), "longer"); })),
              (Charges{{"clparse_set_node_value_s", 0, 7}}));
}

TEST(CorelinkCharge, AHeadIsChargedToItsMaker)
{
    EXPECT_EQ(without_lines(charges_of([] { empty_tree(); })),
              (Charges{{"clparse_init_head", 0, sizeof(clparse_head)},
                       {"clparse_init_head", 0, kNode},
                       {"clparse_init_head", 0, sizeof "head"}}));
}

TEST(CorelinkCharge, AParseIsChargedToItsPlaces)
{
    const Charge node{"clparse_create_node", 394, kNode};
    const Charges expected{{"clparse_start", 351, sizeof(clparse_head)},
                           {"clparse_start", 354, kNode},
                           {"clparse_start", 356, sizeof "head"},
                           {"clparse_start", 361, kNode},
                           {"yylex", 72, 3},
                           {"yylex", 61, 5},
                           node, // the cursor after ab
                           {"yylex", 72, 3},
                           node, // the cursor inside cd,
                           node, // and cd's sentinel
                           {"yylex", 72, 3},
                           node,  // after ef
                           node}; // after cd
    EXPECT_TRUE(while_tracking([&] {
        return charges_of([] { Tree(clparse_start("ab=\"text\",cd={ef}")); }) == expected;
    }));
}

TEST(CorelinkCharge, AContainersLastCursorServesAgainWhileTheTrackerIsOff)
{
    const auto charged = [](const char *text) {
        return charges_of([text] { Tree(clparse_start(text)); }).size();
    };
    EXPECT_EQ(charged("ab={cd}"), charged("ab,cd") + 1) << "the sentinel";
    EXPECT_EQ(charged("ab=[[[[1]]]]"), charged("ab") + 4 * 2) << "a node and a sentinel each";
}

TEST(CorelinkCharge, TheParsersStackIsChargedToTheParser)
{
    const std::string text = "ab=" + std::string(1000, '[') + "1" + std::string(1000, ']');
    Charges stack;
    const std::vector<std::string> released = releases_of([&] {
        for (const Charge &charge : charges_of([&] { Tree(clparse_start(text.c_str())); }))
            if (charge.site == "yyparse") stack.push_back(charge);
    });
    EXPECT_FALSE(stack.empty());
    size_t of_the_stack = 0;
    for (const std::string &site : released) of_the_stack += site.rfind("corelink.tab:", 0) == 0;
    EXPECT_EQ(of_the_stack, stack.size());
}

TEST(CorelinkCharge, ReleasesNameTheirPlaces)
{
    for (const char *site : {"corelink:315", "corelink:326", "corelink:379"}) {
        EXPECT_TRUE(while_tracking([&] {
            const auto sites = releases_of([] { Tree(clparse_start("ab={cd=[1]}")); });
            return std::count(sites.begin(), sites.end(), site) == 1;
        })) << site;
    }
    for (const std::string &site : releases_of([] { Tree(clparse_start("ab={cd=[1]}")); }))
        EXPECT_EQ(site.rfind("corelink:", 0), 0u) << site;
    const std::vector<std::string> failed = releases_of(
        [] { test::capture_fd(1, [] { EXPECT_EQ(clparse_start("ab={}"), nullptr); }); });
    EXPECT_EQ(failed.back(), "corelink:375");
}

TEST(CorelinkFault, ConstructorsReturnNull)
{
    expect_null_on_every_failure(3, [] { return clparse_create_string_node("ab", "text"); });
    expect_null_on_every_failure(2, [] { return clparse_create_number_node("ab", 1); });
    expect_null_on_every_failure(2, [] { return clparse_create_boolean_node("ab", 1); });
    expect_null_on_every_failure(3, [] { return clparse_create_struct_node("ab"); });
    expect_null_on_every_failure(3, [] { return clparse_create_array_node("ab"); });
    expect_null_on_every_failure(
        2, [] { return clparse_create_function_node("ab", nullptr, nullptr, nullptr, nullptr); });
}

TEST(CorelinkFault, InitHeadClearsItsResult)
{
    const size_t failures = fault::for_each_failing_allocation([] {
        clparse_head *head = reinterpret_cast<clparse_head *>(&head);
        const int result = clparse_init_head(&head);
        EXPECT_EQ(result == 0, head != nullptr);
        EXPECT_EQ(result == -1, head == nullptr);
        clparse_stop(head);
    });
    EXPECT_EQ(failures, 3u);
}

TEST(CorelinkFault, AReferenceThatCannotBePreparedIsAFailure)
{
    references_fail = true;
    clparse_head *head = nullptr;
    EXPECT_EQ(clparse_create_number_node("ab", 1), nullptr);
    EXPECT_EQ(clparse_create_struct_node("ab"), nullptr);
    EXPECT_EQ(clparse_init_head(&head), -1);
    EXPECT_EQ(clparse_start("ab=1"), nullptr);
    references_fail = false;
}

TEST(CorelinkFault, SetTextLeavesTheValueAbsent)
{
    const LoneNode node(clparse_create_string_node("ab", "text"));
    const fault::FailAllocations plan(1);
    EXPECT_EQ(clparse_set_node_value_s(node.get(), "new"), 0);
    EXPECT_EQ(node->value.text, nullptr);
}

TEST(CorelinkFault, StopNeedsNoMemory)
{
    clparse_head *const head = clparse_start(kText);
    const fault::FailAllocations plan(1, SIZE_MAX);
    clparse_stop(head);
    EXPECT_EQ(plan.seen(), 0u);
}

TEST(CorelinkFault, AParseReturnsNullOrTheWholeTree)
{
    size_t failures = 0;
    test::capture_fd(1, [&] {
        failures = fault::for_each_failing_allocation([] {
            const Tree tree(clparse_start(kText));
            if (tree != nullptr) {
                EXPECT_EQ(members(&tree->root), kShape);
            }
        });
    });
    EXPECT_GT(failures, 30u);
    for (size_t nth = 1; nth <= failures; ++nth)
        test::capture_fd(1, [nth] {
            const fault::FailAllocations plan(nth);
            EXPECT_EQ(clparse_start(kText), nullptr) << "allocation " << nth;
        });
}

TEST(CorelinkFault, AParseWithoutMemoryIsReportedAsExhausted)
{
    const std::string said = test::capture_fd(1, [] {
        const fault::FailAllocations plan(6); // the copy of the first tag
        EXPECT_EQ(clparse_start("ab=1"), nullptr);
    });
    EXPECT_EQ(said, "(null): memory exhausted\nParent was head\nnear: NULL\n"
                    "clparse_start: parsing failed: 2\n");
}

TEST(CorelinkFault, ADeepParseReturnsNullOrTheWholeTree)
{
    const std::string text = "ab=" + std::string(300, '[') + "1" + std::string(300, ']');
    test::capture_fd(
        1, [&] { fault::for_each_failing_allocation([&] { Tree(clparse_start(text.c_str())); }); });
}

TEST(CorelinkFault, DottedNamesDoWithoutTheirTable)
{
    std::string text;
    for (int i = 0; i < 150; ++i) text += "name" + std::to_string(i) + ".sub=1,";
    text += "name3.sub=2,name77.sub=3";
    size_t whole = 0;
    test::capture_fd(1, [&] {
        fault::for_each_failing_allocation([&] {
            const Tree tree(clparse_start(text.c_str()));
            if (tree == nullptr) return;
            ++whole;
            EXPECT_EQ(children(&tree->root).size(), 150u);
            EXPECT_EQ(members(children(&tree->root)[77]), "sub:1 sub:3");
        });
    });
    EXPECT_GT(whole, 1u) << "without the table the search is slower, not wrong";
}

TEST(CorelinkFault, SyntaxErrorsLeaveNothingBehind)
{
    for (const char *text :
         {"ab={cd=[1,{ef=\"x\",gh.ij=\"y\",", "ab.cd={ef=\"x\"},ab.cd.ef.gh",
          "ab=[\"one\",[\"two\",", "ab=\"x\",ab.cd=1", "ab.cd.ef", "ab \"x\" cd"})
        test::capture_fd(1, [text] {
            fault::for_each_failing_allocation([text] { Tree(clparse_start(text)); });
        });
}

TEST(CorelinkFault, TokensWithoutMemoryHaveNoValue)
{
    void *scanner = nullptr;
    yylex_init(&scanner);
    yy_scan_string("name \"text\" 12", scanner);
    clparse_lex_value value;
    const fault::FailAllocations plan(1, 2);
    EXPECT_EQ(yylex(&value, scanner), CLPARSE_TOKEN_IDENTIFIER);
    EXPECT_EQ(value.text, nullptr);
    EXPECT_EQ(yylex(&value, scanner), CLPARSE_TOKEN_STRING);
    EXPECT_EQ(value.text, nullptr);
    EXPECT_EQ(yylex(&value, scanner), CLPARSE_TOKEN_NUMBER);
    EXPECT_EQ(value.number, 12u);
    yylex_destroy(scanner);
}

TEST(CorelinkFault, AScannerThatCannotBeMadeIsAFailure)
{
    const fault::FailAllocations plan(1, 2);
    void *scanner = &scanner;
    errno = 0;
    EXPECT_NE(yylex_init(&scanner), 0);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(scanner, nullptr);
    errno = 0;
    EXPECT_NE(yylex_init_extra(nullptr, &scanner), 0);
    EXPECT_EQ(errno, ENOMEM);
}

namespace {

// Runs `attempt` with a scanner and with allocation 1, then 2, ... failing, until none fails.
void for_each_failure(void (*attempt)(void *scanner))
{
    for (size_t nth = 1, failed = 1; failed > 0; ++nth) {
        const fault::FailAllocations plan(nth);
        void *scanner = nullptr;
        if (yylex_init(&scanner) == 0) {
            attempt(scanner);
            yylex_destroy(scanner);
        }
        failed = plan.failed();
    }
}

} // namespace

TEST(CorelinkFault, BuffersThatCannotBeMadeAreNull)
{
    void *scanner = nullptr;
    yylex_init(&scanner);
    for (size_t nth = 1; nth <= 2; ++nth) {
        const fault::FailAllocations plan(nth);
        EXPECT_EQ(yy_scan_string("ab", scanner), nullptr) << nth;
    }
    for (size_t nth = 1; nth <= 2; ++nth) {
        const fault::FailAllocations plan(nth);
        EXPECT_EQ(yy_create_buffer(stdin, 16, scanner), nullptr) << nth;
    }
    char memory[4] = "ab";
    const fault::FailAllocations plan(1);
    EXPECT_EQ(yy_scan_buffer(memory, sizeof memory, scanner), nullptr);
    yylex_destroy(scanner);
}

TEST(CorelinkFault, PuttingABufferOnTheStackNeedsNoMemory)
{
    void *scanner = nullptr;
    yylex_init(&scanner);
    yy_scan_string("ab", scanner);
    yy_buffer_state *const more = yy_create_buffer(stdin, 16, scanner);
    const fault::FailAllocations plan(1, SIZE_MAX);
    yypush_buffer_state(more, scanner);
    yypop_buffer_state(scanner);
    EXPECT_EQ(plan.seen(), 0u);
    yylex_destroy(scanner);
}

TEST(CorelinkFault, AScannerReadsOnAfterAFailure)
{
    static FILE *const stream = tmpfile();
    const std::string text = "name \"" + std::string(200, 'x') + "\" 123";
    fwrite(text.data(), 1, text.size(), stream);
    for_each_failure([](void *scanner) {
        rewind(stream);
        yy_buffer_state *const buffer = yy_create_buffer(stream, 4, scanner);
        if (buffer != nullptr) yypush_buffer_state(buffer, scanner);
        yyset_in(stream, scanner);
        clparse_lex_value value;
        for (int i = 0; i < 400; ++i) { // past the end of the stream, whatever fails
            const int token = yylex(&value, scanner);
            const bool has_text =
                token == CLPARSE_TOKEN_IDENTIFIER || token == CLPARSE_TOKEN_STRING;
            if (has_text && value.text != nullptr) vn_memcheck_free(free, value.text, "test:1");
        }
    });
    fclose(stream);
}

TEST(CorelinkFault, RestartingWithoutMemoryLeavesTheScannerFit)
{
    FILE *const stream = tmpfile();
    fputs("ab", stream);
    fault::for_each_failing_allocation([&] {
        rewind(stream);
        void *scanner = nullptr;
        if (yylex_init(&scanner) != 0) return;
        yyrestart(stream, scanner);
        yyset_in(stream, scanner);
        clparse_lex_value value;
        value.text = nullptr;
        if (yylex(&value, scanner) == CLPARSE_TOKEN_IDENTIFIER && value.text != nullptr)
            vn_memcheck_free(free, value.text, "test:1");
        yylex_destroy(scanner);
    });
    fclose(stream);
}

namespace {

// What an insert does: a second node with the first one's tag and children.
clparse_node *shared_copy(const clparse_node *source)
{
    clparse_node *const copy = vn::corelink::new_node();
    if (copy == nullptr || !vn::corelink::share_tag(*source)) return nullptr;
    vn::corelink::share_children(*source);
    copy->tag = source->tag;
    copy->type = source->type;
    copy->value = source->value;
    return copy;
}

clparse_node *a_struct()
{
    clparse_node *const node = clparse_create_struct_node("object");
    add(node, clparse_create_string_node("name", "text"));
    add(add(node, clparse_create_array_node("list")), clparse_create_number_node("number", 1));
    return node;
}

using Release = void (*)(clparse_node *);
const Release kReleases[] = {
    [](clparse_node *node) { clparse_delete_node(node); },
    [](clparse_node *node) {
        clparse_head *head = nullptr;
        clparse_init_head(&head);
        add(&head->root, node);
        clparse_stop(head);
    },
};

} // namespace

TEST(CorelinkSharing, ReleasesSharedPartsWithTheLastHolder)
{
    for (const Release first : kReleases)
        for (const Release second : kReleases)
            for (const bool copy_goes_first : {false, true}) {
                clparse_node *const source = a_struct();
                clparse_node *const copy = shared_copy(source);
                EXPECT_EQ(copy->tag, source->tag);
                EXPECT_EQ(copy->value.children, source->value.children);
                clparse_node *const left = copy_goes_first ? source : copy;
                first(copy_goes_first ? copy : source);
                EXPECT_STREQ(left->tag, "object");
                EXPECT_EQ(members(left), "name:\"text\" list:[number:1]");
                second(left);
            }
}

TEST(CorelinkSharing, RemovingAHolderLeavesTheListToTheOther)
{
    clparse_node *const source = a_struct();
    clparse_node *const copy = shared_copy(source);
    EXPECT_EQ(clparse_remove_child(source), 0);
    EXPECT_EQ(members(copy), "name:\"text\" list:[number:1]");
    const LoneNode name(clparse_get_child(copy)), list(clparse_get_child(copy));
    EXPECT_EQ(clparse_remove_child(copy), 0);
    EXPECT_EQ(members(list.get()), "number:1");
}

TEST(CorelinkSharing, CountsEveryHolder)
{
    clparse_node *const source = a_struct();
    std::vector<clparse_node *> holders{source};
    for (int i = 0; i < 10; ++i) holders.push_back(shared_copy(holders.back()));
    while (holders.size() > 1) {
        clparse_delete_node(holders[holders.size() / 2]);
        holders.erase(holders.begin() + static_cast<std::ptrdiff_t>(holders.size() / 2));
        EXPECT_EQ(members(holders[0]), "name:\"text\" list:[number:1]");
    }
    clparse_delete_node(holders[0]);
}

TEST(CorelinkSharing, DoesNotDependOnTheNodesOwnReference)
{
    clparse_node *const source = a_struct();
    clparse_node *const copy = shared_copy(source);
    for (clparse_node *node : {source, copy}) {
        vn_reference_prep(&node->ref, nullptr, nullptr);
        vn_reference_acquire(&node->ref);
    }
    clparse_delete_node(source);
    EXPECT_EQ(members(copy), "name:\"text\" list:[number:1]");
    clparse_delete_node(copy);
}

TEST(CorelinkSharing, SeesChildrenComeAndGoOnBothSides)
{
    const LoneNode source(a_struct());
    const LoneNode copy(shared_copy(source.get()));
    clparse_node *const added = add(copy.get(), clparse_create_number_node("added", 2));
    EXPECT_EQ(members(source.get()), "name:\"text\" list:[number:1] added:2");
    EXPECT_EQ(clparse_remove_child(added), 0);
    EXPECT_EQ(clparse_delete_node(children(source.get())[1]), 0);
    EXPECT_EQ(members(copy.get()), "name:\"text\"");
}

TEST(CorelinkSharing, SharesLeavesByTheirTag)
{
    clparse_node *const source = clparse_create_number_node("number", 5);
    clparse_node *const copy = shared_copy(source);
    clparse_remove_child(source);
    EXPECT_STREQ(copy->tag, "number");
    clparse_remove_child(copy);
}

TEST(CorelinkSharing, HoldersMayGoInDifferentThreads)
{
    for (int round = 0; round < 200; ++round) {
        clparse_node *const source = a_struct();
        clparse_node *const copy = shared_copy(source);
        std::atomic<int> ready{0};
        const auto release = [&ready](clparse_node *node) {
            for (++ready; ready < 2;) std::this_thread::yield();
            clparse_delete_node(node);
        };
        std::thread other(release, copy);
        release(source);
        other.join();
    }
}

TEST(CorelinkSharing, ASharedListOfManyLevelsGoesWithoutMemory)
{
    clparse_node *const source = clparse_create_struct_node("level");
    clparse_node *inner = source;
    for (int i = 0; i < 10'000; ++i) inner = add(inner, clparse_create_array_node("level"));
    clparse_node *const copy = shared_copy(source);
    const fault::FailAllocations plan(1, SIZE_MAX);
    clparse_delete_node(source);
    clparse_delete_node(copy);
    EXPECT_EQ(plan.seen(), 0u);
}

TEST(CorelinkSharing, ATagThatCannotBeCountedIsNotShared)
{
    const LoneNode source(clparse_create_number_node("number", 5));
    {
        const fault::FailAllocations plan(1);
        EXPECT_FALSE(vn::corelink::share_tag(*source));
    }
    EXPECT_TRUE(vn::corelink::share_tag(*source));
    clparse_node same = *source;
    vn::corelink::release_tag(same, "test:1");
    EXPECT_EQ(same.tag, nullptr);
    EXPECT_STREQ(source->tag, "number");
}

TEST(CorelinkSharing, AnAbsentTagNeedsNoCount)
{
    const clparse_node untagged = {};
    EXPECT_TRUE(vn::corelink::share_tag(untagged));
}

// The table of shared tags against a map, through growth, gaps and emptiness.
TEST(CorelinkSharedTags, CountLikeAMap)
{
    vn::corelink::SharedTags tags;
    std::vector<char> addresses(4000);
    std::map<const char *, int> expected;
    unsigned state = 1;
    for (int i = 0; i < 60'000; ++i) {
        state = state * 1664525u + 1013904223u;
        const char *const tag = &addresses[(state >> 8) % (i < 30'000 ? 4000 : 50)];
        const bool more = (state >> 28) < (i % 20'000 < 10'000 ? 12u : 4u);
        if (more) {
            ASSERT_TRUE(tags.add(tag));
            ++expected[tag];
        } else {
            ASSERT_EQ(tags.drop(tag), expected[tag] > 0);
            if (expected[tag] > 0) --expected[tag];
        }
    }
    for (auto &[tag, count] : expected) {
        for (; count > 0; --count) ASSERT_TRUE(tags.drop(tag));
        ASSERT_FALSE(tags.drop(tag));
    }
}
