#include "vnlib/iovec.h"

#include <climits>
#include <numeric>
#include <random>

#include "support/buffers.h"

namespace {

using test::Bytes;

// A vector of parts of the given lengths that lie one after the other in one buffer.
class Parts {
public:
    explicit Parts(const std::vector<size_t> &lengths)
        : bytes_(std::accumulate(lengths.begin(), lengths.end(), size_t{0}) + 1)
    {
        size_t at = 0;
        for (const size_t length : lengths) {
            vec_.push_back({bytes_.data() + at, length});
            at += length;
        }
        for (size_t i = 0; i < bytes_.size(); ++i) bytes_[i] = static_cast<uint8_t>(i * 7 + 1);
    }
    [[nodiscard]] const iovec *vec() const { return vec_.data(); }
    [[nodiscard]] int count() const { return static_cast<int>(vec_.size()); }
    [[nodiscard]] unsigned ucount() const { return static_cast<unsigned>(vec_.size()); }
    [[nodiscard]] uint8_t *at(size_t offset) { return bytes_.data() + offset; }
    [[nodiscard]] size_t size() const { return bytes_.size() - 1; }

private:
    Bytes bytes_;
    std::vector<iovec> vec_;
};

struct Position {
    size_t offset;
    int index;
    bool operator==(const Position &) const = default;
};

Position normalised(const Parts &parts, Position at)
{
    check_end_of_iov(parts.vec(), parts.count(), &at.offset, &at.index);
    return at;
}

struct Subset {
    int result = 0;
    iovec *out = nullptr;
    unsigned count = 77;
    std::vector<iovec> spare;
    std::vector<iovec> elements() const { return {out, out + count}; }
};

Subset subset(const Parts &parts, size_t offset, size_t length, unsigned spare_count = 8)
{
    Subset s;
    s.spare.resize(spare_count + 1);
    s.result = fill_iovec_subset(&s.out, &s.count, length, offset, s.spare.data(), spare_count,
                                 parts.vec(), parts.ucount());
    return s;
}

void expect_element(const iovec &element, const void *base, size_t length)
{
    EXPECT_EQ(element.iov_base, base);
    EXPECT_EQ(element.iov_len, length);
}

void expect_refused(const Subset &s)
{
    EXPECT_EQ(s.result, -1);
    EXPECT_EQ(s.out, nullptr); // as it was
    EXPECT_EQ(s.count, 77u);   // as it was
}

TEST(SizeIovec, IsTheSumOfAllLengths)
{
    const Parts parts({10, 0, 20, 30});
    EXPECT_EQ(size_iovec(parts.vec(), parts.count()), 60u);
}

TEST(SizeIovec, IsZeroForNoElements)
{
    EXPECT_EQ(size_iovec(nullptr, 0), 0u);
    EXPECT_EQ(size_iovec(nullptr, -1), 0u);
    EXPECT_EQ(size_iovec(nullptr, INT_MIN), 0u);
}

TEST(SizeIovec, GoesBeyondAnInt)
{
    const iovec vec[] = {{nullptr, 0x7FFF'FFFF}, {nullptr, 0x7FFF'FFFF}};
    EXPECT_EQ(size_iovec(vec, 2), 0xFFFF'FFFEu);
}

TEST(CheckEndOfIov, LeavesAPositionInsideAnElementAlone)
{
    const Parts parts({10, 20, 30});
    EXPECT_EQ(normalised(parts, {9, 0}), (Position{9, 0}));
    EXPECT_EQ(normalised(parts, {0, 2}), (Position{0, 2}));
}

TEST(CheckEndOfIov, StepsPastWholeElements)
{
    const Parts parts({10, 20, 30});
    EXPECT_EQ(normalised(parts, {10, 0}), (Position{0, 1}));
    EXPECT_EQ(normalised(parts, {30, 0}), (Position{0, 2}));
    EXPECT_EQ(normalised(parts, {45, 0}), (Position{15, 2}));
    EXPECT_EQ(normalised(parts, {21, 1}), (Position{1, 2}));
}

TEST(CheckEndOfIov, StopsAtTheEndAndKeepsTheRest)
{
    const Parts parts({10, 20, 30});
    EXPECT_EQ(normalised(parts, {60, 0}), (Position{0, 3}));
    EXPECT_EQ(normalised(parts, {75, 0}), (Position{15, 3}));
    EXPECT_EQ(normalised(parts, {5, 3}), (Position{5, 3}));
}

TEST(CheckEndOfIov, AlwaysStepsOverEmptyElements)
{
    const Parts parts({0, 0, 5, 0});
    EXPECT_EQ(normalised(parts, {0, 0}), (Position{0, 2}));
    EXPECT_EQ(normalised(parts, {5, 0}), (Position{0, 4}));
}

TEST(CheckEndOfIov, DoesNothingWithoutElements)
{
    Position at{7, 0};
    check_end_of_iov(nullptr, 0, &at.offset, &at.index);
    EXPECT_EQ(at, (Position{7, 0}));
    check_end_of_iov(nullptr, -3, &at.offset, &at.index);
    EXPECT_EQ(at, (Position{7, 0}));
}

TEST(LineariseIovec, GathersAllElementsInOrder)
{
    Parts parts({3, 0, 5, 1});
    Bytes flat(12, 0xAA);
    linearise_iovec(parts.vec(), parts.ucount(), flat.data(), flat.size());
    EXPECT_TRUE(std::equal(flat.begin(), flat.begin() + 9, parts.at(0)));
    EXPECT_EQ(Bytes(flat.begin() + 9, flat.end()), Bytes(3, 0xAA));
}

TEST(LineariseIovec, WritesAtMostTheRoomThereIs)
{
    Parts parts({3, 5, 4});
    for (size_t room = 0; room <= parts.size(); ++room) {
        Bytes flat(parts.size() + 1, 0xAA);
        linearise_iovec(parts.vec(), parts.ucount(), flat.data(), room);
        EXPECT_TRUE(std::equal(flat.begin(), flat.begin() + static_cast<long>(room), parts.at(0)));
        EXPECT_EQ(flat[room], 0xAA) << room;
    }
}

TEST(LineariseIovec, TakesEmptyElementsWithoutAnAddressAndNoElements)
{
    const iovec vec[] = {{nullptr, 0}};
    linearise_iovec(vec, 1, nullptr, 0);
    linearise_iovec(nullptr, 0, nullptr, 10);
}

TEST(DelineariseToIovec, FillsElementAfterElement)
{
    const Bytes flat = test::random_bytes(9);
    Parts parts({3, 0, 5, 1});
    delinearise_to_iovec(parts.vec(), parts.count(), flat.data(), flat.size());
    EXPECT_TRUE(std::equal(flat.begin(), flat.end(), parts.at(0)));
}

TEST(DelineariseToIovec, StopsWhereTheBufferEnds)
{
    const Bytes flat = test::random_bytes(12);
    for (size_t length = 0; length <= flat.size(); ++length) {
        Parts parts({3, 5, 4});
        const Bytes before(parts.at(0), parts.at(12));
        delinearise_to_iovec(parts.vec(), parts.count(), flat.data(), length);
        Bytes expected = before;
        std::copy_n(flat.begin(), length, expected.begin());
        EXPECT_EQ(Bytes(parts.at(0), parts.at(12)), expected) << length;
    }
}

TEST(DelineariseToIovec, DropsWhatTheVectorHasNoRoomFor)
{
    const Bytes flat = test::random_bytes(40);
    Parts parts({3, 5});
    const uint8_t behind = *parts.at(8);
    delinearise_to_iovec(parts.vec(), parts.count(), flat.data(), flat.size());
    EXPECT_TRUE(std::equal(flat.begin(), flat.begin() + 8, parts.at(0)));
    EXPECT_EQ(*parts.at(8), behind);
}

TEST(DelineariseToIovec, DoesNothingForACountBelowOne)
{
    const uint8_t byte = 1;
    delinearise_to_iovec(nullptr, 0, &byte, 1);
    delinearise_to_iovec(nullptr, -1, &byte, 1);
}

TEST(FillIovecSubset, TrimsTheFirstAndTheLastElement)
{
    Parts parts({10, 20, 30});
    const Subset s = subset(parts, 5, 20);
    EXPECT_EQ(s.result, 0);
    ASSERT_EQ(s.count, 2u);
    expect_element(s.out[0], parts.at(5), 5);
    expect_element(s.out[1], parts.at(10), 15);
}

TEST(FillIovecSubset, TrimsASingleElementAtBothEnds)
{
    Parts parts({10, 20, 30});
    const Subset s = subset(parts, 13, 4);
    ASSERT_EQ(s.count, 1u);
    expect_element(s.out[0], parts.at(13), 4);
}

TEST(FillIovecSubset, KeepsTheElementsInTheMiddleWhole)
{
    Parts parts({10, 20, 0, 30, 5});
    const Subset s = subset(parts, 1, 62);
    ASSERT_EQ(s.count, 5u);
    expect_element(s.out[0], parts.at(1), 9);
    expect_element(s.out[1], parts.at(10), 20);
    expect_element(s.out[2], parts.at(30), 0);
    expect_element(s.out[3], parts.at(30), 30);
    expect_element(s.out[4], parts.at(60), 3);
}

TEST(FillIovecSubset, DescribesTheWholeVector)
{
    Parts parts({10, 20, 30});
    const Subset s = subset(parts, 0, 60);
    ASSERT_EQ(s.count, 3u);
    for (int i = 0; i < 3; ++i)
        expect_element(s.out[i], parts.vec()[i].iov_base, parts.vec()[i].iov_len);
}

TEST(FillIovecSubset, EndsWithTheElementWhoseLastByteIsTheRangesLast)
{
    Parts parts({10, 20, 30});
    const Subset s = subset(parts, 5, 25);
    ASSERT_EQ(s.count, 2u);
    expect_element(s.out[1], parts.at(10), 20);
}

TEST(FillIovecSubset, IsShorterByTheElementThatEndsAtItsStart)
{
    Parts parts({10, 20, 30});
    const Subset s = subset(parts, 10, 20);
    EXPECT_EQ(s.result, 0);
    ASSERT_EQ(s.count, 1u);
    expect_element(s.out[0], parts.at(10), 10);

    const Subset longer = subset(parts, 10, 35);
    ASSERT_EQ(longer.count, 2u);
    expect_element(longer.out[0], parts.at(10), 20);
    expect_element(longer.out[1], parts.at(30), 5);
}

TEST(FillIovecSubset, RefusesALengthThatTheElementBeforeTheStartUsesUp)
{
    Parts parts({10, 20, 30});
    for (const size_t length : {0u, 1u, 10u}) expect_refused(subset(parts, 10, length));
    EXPECT_EQ(subset(parts, 10, 11).result, 0);
}

TEST(FillIovecSubset, StepsOverAnEmptyFirstElementAtNoCost)
{
    Parts parts({0, 20});
    const Subset s = subset(parts, 0, 7);
    ASSERT_EQ(s.count, 1u);
    expect_element(s.out[0], parts.at(0), 7);
}

TEST(FillIovecSubset, GivesAnEmptyElementForAnEmptyRangeInsideAnElement)
{
    Parts parts({10, 20});
    const Subset s = subset(parts, 4, 0);
    ASSERT_EQ(s.count, 1u);
    expect_element(s.out[0], parts.at(4), 0);
}

TEST(FillIovecSubset, RefusesARangeBeyondTheVector)
{
    Parts parts({10, 20, 30});
    for (const auto &[offset, length] : std::vector<std::pair<size_t, size_t>>{
             {50, 20}, {59, 2}, {60, 1}, {60, 31}, {61, 0}, {0, 61}, {1000, 1}})
        expect_refused(subset(parts, offset, length));
}

TEST(FillIovecSubset, RefusesAnyRangeOfAnEmptyVector)
{
    iovec *out = nullptr;
    unsigned count = 0;
    EXPECT_EQ(fill_iovec_subset(&out, &count, 0, 0, nullptr, 0, nullptr, 0), -1);
}

TEST(FillIovecSubset, DoesNotWrapWithHugeArguments)
{
    Parts parts({10, 20, 30});
    expect_refused(subset(parts, 5, SIZE_MAX));
    expect_refused(subset(parts, 5, SIZE_MAX - 4));
    expect_refused(subset(parts, SIZE_MAX, 5));
    expect_refused(subset(parts, SIZE_MAX, SIZE_MAX));
}

TEST(FillIovecSubset, UsesTheSpareArrayWhenItSuffices)
{
    Parts parts({10, 20, 30});
    const Subset s = subset(parts, 5, 50, 3);
    EXPECT_EQ(s.count, 3u);
    EXPECT_EQ(s.out, s.spare.data());
}

TEST(FillIovecSubset, AllocatesAnArrayWhenTheSpareOneIsTooSmall)
{
    Parts parts({10, 20, 30});
    const Subset s = subset(parts, 5, 50, 2);
    EXPECT_EQ(s.result, 0);
    ASSERT_EQ(s.count, 3u);
    EXPECT_NE(s.out, s.spare.data());
    expect_element(s.out[0], parts.at(5), 5);
    expect_element(s.out[2], parts.at(30), 25);
    EXPECT_EQ(s.spare[0].iov_base, nullptr);
    free(s.out);
}

TEST(FillIovecSubset, MayTakeTheVectorItselfAsItsSpareArray)
{
    Bytes bytes(60);
    iovec vec[] = {{bytes.data(), 10}, {bytes.data() + 10, 20}, {bytes.data() + 30, 30}};
    iovec *out = nullptr;
    unsigned count = 0;
    EXPECT_EQ(fill_iovec_subset(&out, &count, 20, 15, vec, 3, vec, 3), 0);
    ASSERT_EQ(count, 2u);
    expect_element(out[0], bytes.data() + 15, 15);
    expect_element(out[1], bytes.data() + 30, 5);
}

// The rule told step by step, as a second opinion for random vectors.
std::vector<iovec> told_step_by_step(const Parts &parts, size_t offset, size_t length, bool &found)
{
    const iovec *vec = parts.vec();
    const size_t count = parts.ucount();
    size_t i = 0;
    size_t first = 0;
    found = false;
    while (i < count && offset > vec[i].iov_len) offset -= vec[i++].iov_len;
    if (i == count) return {};
    first = i;
    if (offset < vec[i].iov_len) {
        length += offset;
    } else {
        first = i + 1;
        offset = 0;
    }
    while (i < count && length > vec[i].iov_len) length -= vec[i++].iov_len;
    if (i == count || i < first) return {};
    found = true;
    std::vector<iovec> result(vec + first, vec + i + 1);
    result.back().iov_len = length;
    result.front().iov_base = static_cast<uint8_t *>(result.front().iov_base) + offset;
    result.front().iov_len -= offset;
    return result;
}

TEST(FillIovecSubset, AgreesWithTheStepsOnRandomVectors)
{
    std::mt19937 engine(5);
    for (int round = 0; round < 3000; ++round) {
        std::vector<size_t> lengths(engine() % 6);
        for (size_t &length : lengths) length = engine() % 9;
        const Parts parts(lengths);
        const size_t offset = engine() % (parts.size() + 2);
        const size_t length = engine() % (parts.size() + 2);
        bool found = false;
        const auto expected = told_step_by_step(parts, offset, length, found);
        iovec spare[8] = {};
        iovec *out = nullptr;
        unsigned count = 0;
        ASSERT_EQ(
            fill_iovec_subset(&out, &count, length, offset, spare, 8, parts.vec(), parts.ucount()),
            found ? 0 : -1);
        ASSERT_EQ(count, expected.size());
        for (size_t i = 0; i < count; ++i)
            expect_element(out[i], expected[i].iov_base, expected[i].iov_len);
        for (size_t i = count; i < std::size(spare); ++i) expect_element(spare[i], nullptr, 0);
    }
}

} // namespace
