#include "vnlib/sax.h"

#include "support/fault_alloc.h"
#include "support/sax_reference.h"

using sax_reference::Events;

namespace {

const std::string kDocument = "<a b=\"1\" c=\"2\"><d e=\"3\"/></a>";

// The first allocations are the C library's own, for the stream; it is opened outside the plan.
struct Attempt {
    int result = 0;
    Events events;
};
template <typename Plan>
Attempt run_with(const sax_callbacks &callbacks, Plan plan)
{
    FILE *const stream = fmemopen(const_cast<char *>(kDocument.data()), kDocument.size(), "r");
    ungetc(getc(stream), stream); // its buffer is there now
    Attempt run;
    plan([&] { run.result = sax_parse_file(stream, &callbacks, &run.events); });
    fclose(stream);
    return run;
}

// Note that the recording callbacks allocate with operator new, which no plan reaches.
TEST(SaxOutOfMemory, IsReportedWhereverItStrikes)
{
    const Events all = {"start a [c=2] [b=1]", "start d [e=3]", "end d", "end a"};
    for (size_t nth = 1; nth <= 4; ++nth) { // the parser, then three attributes
        size_t failed = 0;
        const Attempt run = run_with(sax_reference::kRecording, [&](auto parse) {
            const fault::FailAllocations plan(nth);
            parse();
            failed = plan.failed();
        });
        EXPECT_EQ(failed, 1u);
        EXPECT_EQ(run.result, -1);
        ASSERT_FALSE(run.events.empty());
        EXPECT_EQ(run.events.back(), "error Out of memory");
        EXPECT_EQ(run.events.size(), nth < 4 ? 1u : 2u); // the last strikes after <a ...>
    }
    const Attempt run = run_with(sax_reference::kRecording, [](auto parse) {
        const fault::FailAllocations plan(5);
        parse();
        EXPECT_EQ(plan.failed(), 0u);
        EXPECT_EQ(plan.seen(), 4u);
    });
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.events, all);
}

TEST(SaxOutOfMemory, NeedsNoErrorCallback)
{
    for (size_t nth = 1; nth <= 4; ++nth) {
        const Attempt run = run_with(sax_callbacks{}, [&](auto parse) {
            const fault::FailAllocations plan(nth);
            parse();
        });
        EXPECT_EQ(run.result, -1);
    }
}

} // namespace
