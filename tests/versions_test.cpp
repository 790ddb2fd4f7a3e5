// versions_test.cpp - the versions written for particular processors against the portable ones,
// each forced in turn, as far as this machine has them. Linked with the static library.
#include "support/cpu.h"

#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "crc32c/extend.h"
#include "md5/compress.h"
#include "scsi/texts.h"
#include "sha1/compress.h"
#include "sha256/compress.h"
#include "support/buffers.h"
#include "support/division.h"
#include "vnlib/base32.h"
#include "vnlib/base64.h"
#include "vnlib/crc32c.h"
#include "vnlib/sha1.h"
#include "vnlib/sha256.h"

namespace {

namespace cpu = vn::cpu;
using test::Bytes;
using test::Guarded;

// Limits the library to some features while alive.
class Forced {
public:
    explicit Forced(uint32_t features) { cpu::force(features); }
    ~Forced() { cpu::force(cpu::kEverything); }
    Forced(const Forced &) = delete;
    Forced &operator=(const Forced &) = delete;
};

template <typename Function>
auto portably(Function function)
{
    const Forced portable(cpu::kNothing);
    return function();
}

struct Version {
    const char *name;
    uint32_t features;
};

void PrintTo(const Version &version, std::ostream *out)
{
    *out << version.name;
}

std::string name_of(const testing::TestParamInfo<Version> &info)
{
    return info.param.name;
}

bool works_here(const Version &version)
{
    const Forced here(version.features);
    for (uint32_t bit = 1; bit <= cpu::kEverything / 2; bit *= 2)
        if ((version.features & bit) != 0 && !cpu::has(static_cast<cpu::Feature>(bit)))
            return false;
    return true;
}

// Those of the versions that this processor can run.
std::vector<Version> here(std::vector<Version> versions)
{
    std::erase_if(versions, [](const Version &version) { return !works_here(version); });
    return versions;
}

// Each test runs once for each version.
class Crc32cVersions : public testing::TestWithParam<Version> {};
class DigestVersions : public testing::TestWithParam<Version> {};
class Base32Versions : public testing::TestWithParam<Version> {};
class Base64Versions : public testing::TestWithParam<Version> {};

TEST(Cpu, GivesEveryThreadTheSameAnswer)
{
    cpu::detail::known.store(0); // as before the first question
    std::atomic<int> yes{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&yes] { yes += cpu::has(cpu::kSsse3) ? 1 : 0; });
    for (std::thread &thread : threads) thread.join();
    EXPECT_TRUE(yes == 0 || yes == 8);
    EXPECT_EQ(yes == 8, cpu::has(cpu::kSsse3));
}

TEST(Cpu, HasNothingThatIsNotAllowed)
{
    const Forced portable(cpu::kNothing);
    for (uint32_t bit = 1; bit <= cpu::kEverything / 2; bit *= 2)
        EXPECT_FALSE(cpu::has(static_cast<cpu::Feature>(bit)));
}

TEST(Cpu, NeverHasMoreThanTheProcessor)
{
    const auto asked = [](uint32_t allowed) {
        const Forced some(allowed);
        return cpu::detail::known.load();
    };
    const uint32_t all = asked(cpu::kEverything);
    EXPECT_EQ(asked(cpu::kCrc32 | cpu::kVbmi),
              all & (cpu::kCrc32 | cpu::kVbmi | cpu::detail::kDetected));
}

#if VN_CPU_X86
TEST(Cpu, KnowsWhatTheCompilerKnows)
{
    cpu::force(cpu::kEverything);
    EXPECT_EQ(cpu::has(cpu::kSsse3), __builtin_cpu_supports("ssse3") != 0);
    EXPECT_EQ(cpu::has(cpu::kAvx2),
              __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi") != 0);
    EXPECT_EQ(cpu::has(cpu::kVbmi), __builtin_cpu_supports("avx512vbmi") != 0);
    EXPECT_EQ(cpu::has(cpu::kCrc32),
              __builtin_cpu_supports("sse4.2") != 0 && __builtin_cpu_supports("pclmul") != 0);
    EXPECT_EQ(cpu::has(cpu::kWideClmul),
              __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("vpclmulqdq") != 0);
}
#endif

INSTANTIATE_TEST_SUITE_P(All, Crc32cVersions,
                         testing::ValuesIn(here({{"Portable", cpu::kNothing},
                                                 {"Crc32", cpu::kCrc32},
                                                 {"WideClmul", cpu::kCrc32 | cpu::kWideClmul}})),
                         name_of);

TEST_P(Crc32cVersions, AgreeWithThePortableOneForEveryLengthAndAlignment)
{
    const Bytes bytes = test::random_bytes(5000 + 64);
    for (unsigned length = 0; length <= 5000; length += length < 1500 ? 1 : 13) {
        const uint8_t *data = bytes.data() + length % 64;
        const auto crc = [=] { return crc32c(data, length); };
        const uint32_t expected = portably(crc);
        const Forced version(GetParam().features);
        ASSERT_EQ(crc(), expected) << length;
    }
}

TEST_P(Crc32cVersions, AgreeWithThePortableOneOnLongBuffers)
{
    const Bytes bytes = test::random_bytes(1 << 20);
    for (const unsigned length : {65'536u, 65'600u, 262'143u, 1'000'003u, 1'048'576u}) {
        const auto crc = [&] { return crc32c(bytes.data(), length); };
        const uint32_t expected = portably(crc);
        const Forced version(GetParam().features);
        EXPECT_EQ(crc(), expected) << length;
    }
}

TEST_P(Crc32cVersions, CarryTheirStateFromPartToPart)
{
    Bytes bytes = test::random_bytes(10'000);
    std::mt19937 engine(1);
    for (int round = 0; round < 300; ++round) {
        std::vector<iovec> parts;
        const size_t longest = 1 + engine() % 1200;
        for (size_t at = 0; at < bytes.size();) {
            const size_t size = std::min<size_t>(engine() % longest + 1, bytes.size() - at);
            parts.push_back({bytes.data() + at, size});
            at += size;
        }
        const auto crc = [&] { return crc32cv(parts.data(), static_cast<unsigned>(parts.size())); };
        const uint32_t expected = portably(crc);
        const Forced version(GetParam().features);
        ASSERT_EQ(crc(), expected);
    }
}

TEST_P(Crc32cVersions, ReadNoByteBeyondTheBuffer)
{
    const Forced version(GetParam().features);
    for (const auto edge : {Guarded::kStart, Guarded::kEnd})
        for (unsigned length = 0; length <= 1200; length += length < 200 ? 1 : 7) {
            const Guarded guarded(length, edge);
            crc32c(guarded.data(), length);
        }
}

INSTANTIATE_TEST_SUITE_P(All, DigestVersions,
                         testing::ValuesIn(here({{"Portable", cpu::kNothing},
                                                 {"Instructions", cpu::kSha1 | cpu::kSha256},
                                                 {"Avx512", cpu::kSha1Avx512}})),
                         name_of);

TEST_P(DigestVersions, AgreeWithThePortableOnesForEveryLengthAndAlignment)
{
    using Digests = std::array<uint8_t, 20 + 32>;
    const Bytes bytes = test::random_bytes(2000 + 64);
    for (unsigned length = 0; length <= 2000; length += length < 400 ? 1 : 7) {
        const uint8_t *data = bytes.data() + length % 64;
        const auto digests = [=] {
            Digests both{};
            sha1_single(data, length, both.data());
            sha256_single(data, length, both.data() + 20);
            return both;
        };
        const Digests expected = portably(digests);
        const Forced version(GetParam().features);
        ASSERT_EQ(digests(), expected) << length;
    }
}

// The chaining words after each version's work on some blocks, which change from call to call.
template <size_t kStateWords>
auto after_blocks(void (*compress)(uint32_t *, const uint8_t *, size_t))
{
    std::vector<std::array<uint32_t, kStateWords>> states;
    for (unsigned seed = 0; seed < 200; ++seed) {
        const size_t count = seed % 4;
        const Guarded blocks(test::random_bytes(64 * count, seed), Guarded::kEnd);
        std::array<uint32_t, kStateWords> state{};
        std::memcpy(state.data(), test::random_bytes(sizeof state, seed + 1000).data(),
                    sizeof state);
        compress(state.data(), blocks.data(), count);
        states.push_back(state);
    }
    return states;
}

// Both sides of every multiple of the divisor are where a quotient that is rounded would show.
TEST(Division, InFloatingPointIsExact)
{
    const auto check = [](uint64_t number, uint32_t divisor) {
        if (number > UINT32_MAX) return;
        const auto dividend = static_cast<uint32_t>(number);
        ASSERT_EQ(vn::divided(dividend, divisor), dividend / divisor)
            << dividend << " / " << divisor;
        const auto number_too = static_cast<int32_t>(dividend);
        const auto divisor_too = static_cast<int32_t>(divisor);
        if (number_too == INT32_MIN && divisor_too == -1) return;
        ASSERT_EQ(vn::divided(number_too, divisor_too), number_too / divisor_too)
            << number_too << " / " << divisor_too;
    };
    std::mt19937 engine(11);
    const auto of_any_size = [&] { return static_cast<uint32_t>(engine() >> engine() % 32); };
    for (int round = 0; round < 200'000; ++round) {
        const uint32_t number = of_any_size();
        const uint32_t divisor = std::max(of_any_size(), uint32_t{1});
        const uint64_t multiple = number - number % divisor;
        for (const uint64_t near : {uint64_t{number}, multiple, multiple + divisor})
            for (uint64_t dividend = near == 0 ? 0 : near - 1; dividend <= near + 1; ++dividend)
                check(dividend, divisor);
        check(UINT32_MAX, divisor);
        if (HasFatalFailure()) return;
    }
}

TEST(Division, TakesTheLastDigitOfNumbersOfAnySize)
{
    const auto check = [](uint64_t number) {
        uint64_t rest = number;
        ASSERT_EQ(vn::take_last_digit(rest), number % 10) << number;
        ASSERT_EQ(rest, number / 10) << number;
    };
    std::mt19937_64 engine(12);
    for (int round = 0; round < 200'000; ++round) {
        const uint64_t number = engine() >> engine() % 64;
        for (const uint64_t tested : {number, number - number % 10, ~number}) check(tested);
        if (HasFatalFailure()) return;
    }
    for (const uint64_t number : {UINT64_MAX, UINT64_C(0), UINT64_C(9), UINT64_C(10)})
        check(number);
}

TEST(SmallVersions, OfTheDigestsAgreeWithTheFastOnes)
{
    EXPECT_EQ(after_blocks<4>(vn::md5::compress_looped),
              after_blocks<4>(vn::md5::compress_unrolled));
    EXPECT_EQ(after_blocks<5>(vn::sha1::compress_looped),
              after_blocks<5>(vn::sha1::compress_unrolled));
    EXPECT_EQ(after_blocks<8>(vn::sha256::compress_looped),
              after_blocks<8>(vn::sha256::compress_unrolled));
}

TEST(SmallVersions, OfTheChecksumAgreeWithTheFastOne)
{
    namespace crc = vn::crc32c;
    for (unsigned length = 0; length <= 300; ++length) {
        const Guarded bytes(test::random_bytes(length, length), Guarded::kEnd);
        const uint32_t state = length * 0x9E37'79B9u;
        ASSERT_EQ(crc::extend_portable<1>(state, bytes.data(), length),
                  crc::extend_portable<crc::kFastTables>(state, bytes.data(), length));
    }
}

struct TextRow {
    unsigned code;
    vn::scsi::Literal text;
};

constexpr TextRow kTextsOfAll[] = {{0, "zero"},  {1, "none"},      {2, "two"},   {3, "two"},
                                   {4, "two"},   {5, "none"},      {6, "two"},   {7, "two"},
                                   {8, "eight"}, {9, "of a kind"}, {10, "zero"}, {11, "none"}};

TEST(SmallVersions, OfTextListsHaveTheSameTexts)
{
    for (unsigned code = 0; code < 20; ++code) {
        const auto &row = kTextsOfAll[std::min(code, 11u)];
        EXPECT_STREQ(vn::scsi::text_by_code<kTextsOfAll>(code), row.text.characters) << code;
        EXPECT_STREQ(vn::scsi::walk_to<kTextsOfAll>(code), row.text.characters) << code;
    }
}

// Gaps and runs that take no mark, one and several, within a page and across.
consteval auto texts_with_gaps()
{
    std::array<TextRow, 69> rows{};
    size_t count = 0;
    const auto add = [&](unsigned code, vn::scsi::Literal text) { rows[count++] = {code, text}; };
    add(1, "first");
    add(2, "second");
    add(18, "after 15");
    add(34, "after 15");
    add(50, "after 15");
    add(67, "after 16");
    for (unsigned code = 100; code < 140; ++code) add(code, "forty");
    add(140, "behind them");
    for (unsigned code = 0x1F8; code < 0x208; ++code) add(code, "over the edge of a page");
    add(0x208, "none");
    add(0x209, "after none");
    add(0x3FF, "end of a page");
    add(0x400, "begin of a page");
    add(0x500, "begin of another");
    add(0xFFFF, "none");
    return rows;
}
constexpr auto kTextsWithGaps = texts_with_gaps();

TEST(SmallVersions, OfTextListsKnowTheirGaps)
{
    for (unsigned code = 0; code < 0x700; ++code) {
        const auto *const row =
            std::find_if(std::begin(kTextsWithGaps), std::end(kTextsWithGaps),
                         [code](const TextRow &candidate) { return candidate.code == code; });
        EXPECT_STREQ(vn::scsi::walk_to<kTextsWithGaps>(code),
                     row == std::end(kTextsWithGaps) ? "none" : row->text.characters)
            << code;
    }
}

INSTANTIATE_TEST_SUITE_P(All, Base32Versions,
                         testing::ValuesIn(here({{"Portable", cpu::kNothing},
                                                 {"Avx2", cpu::kAvx2},
                                                 {"Vbmi", cpu::kVbmi}})),
                         name_of);

TEST_P(Base32Versions, EncodeLikeThePortableOneBetweenGuardPages)
{
    for (const auto edge : {Guarded::kStart, Guarded::kEnd})
        for (unsigned length = 0; length <= 200; ++length) {
            const Guarded in(test::random_bytes(length, length + 1), edge);
            const unsigned room = (length * 8 + 4) / 5 + 2;
            const auto encode = [&] {
                const Guarded out(room, edge);
                return std::string(out.text(),
                                   base32_encode(in.data(), length, out.text(), room, 3));
            };
            const std::string expected = portably(encode);
            const Forced version(GetParam().features);
            ASSERT_EQ(encode(), expected) << length;
        }
}

TEST_P(Base32Versions, DecodeLikeThePortableOneBetweenGuardPages)
{
    std::mt19937 engine(3);
    for (unsigned round = 0; round < 2000; ++round) {
        Bytes text(1 + engine() % 300);
        for (uint8_t &character : text) {
            const auto any = static_cast<uint8_t>(engine() >> 8);
            character = round % 2 == 0 ? static_cast<uint8_t>("0123abcdILOUVZ~@"[any % 16]) : any;
            if (character == 0) character = 1;
        }
        const size_t stored = std::max<size_t>(((text.size() - 1) * 5 + 7) / 8, 1);
        text.push_back(0);
        const auto edge = round % 4 < 2 ? Guarded::kEnd : Guarded::kStart;
        const Guarded in(text, edge);
        const auto decode = [&] {
            const Guarded out(stored, edge);
            const int result = base32_decode(in.text(), out.data(), 3);
            return std::pair(result, Bytes(out.data(), out.data() + stored));
        };
        const auto expected = portably(decode);
        const Forced version(GetParam().features);
        ASSERT_EQ(decode(), expected);
    }
}

TEST_P(Base32Versions, JudgeEveryCharacterAtEveryPlace)
{
    for (unsigned code = 1; code < 256; ++code)
        for (size_t place = 0; place < 64; ++place) {
            std::string text(64 + 1, '0'); // and a last one that is dropped
            text[place] = static_cast<char>(code);
            const auto decode = [&] {
                Bytes out(40);
                base32_decode(text.c_str(), out.data(), 0);
                return out;
            };
            const Bytes expected = portably(decode);
            const Forced version(GetParam().features);
            ASSERT_EQ(decode(), expected) << code << " at " << place;
        }
}

INSTANTIATE_TEST_SUITE_P(All, Base64Versions,
                         testing::ValuesIn(here({{"Portable", cpu::kNothing},
                                                 {"Ssse3", cpu::kSsse3},
                                                 {"Avx2", cpu::kSsse3 | cpu::kAvx2},
                                                 {"Vbmi", cpu::kVbmi},
                                                 {"Neon", cpu::kNeon}})),
                         name_of);

// Encodes between guard pages. The room is a little larger than the text so that a byte too many
// on the other side shows as well.
std::string encoded(const Bytes &data, bool wrap, Guarded::Edge edge)
{
    const size_t symbols = (data.size() + 2) / 3 * 4;
    const Guarded in(data, edge);
    const Guarded out(symbols + (wrap ? symbols / 64 : 0), edge);
    const unsigned size =
        base64_encode(in.data(), out.text(), static_cast<unsigned>(data.size()), wrap);
    return {out.text(), size};
}

Bytes decoded(const std::string &text, char after, size_t room, Guarded::Edge edge)
{
    Bytes source(text.begin(), text.end());
    source.push_back(static_cast<uint8_t>(after));
    const Guarded in(source, edge);
    const Guarded out(room, edge);
    const unsigned size = base64_decode(in.text(), out.data(), static_cast<unsigned>(text.size()));
    return {out.data(), out.data() + size};
}

TEST_P(Base64Versions, EncodeLikeThePortableOneBetweenGuardPages)
{
    for (const auto edge : {Guarded::kStart, Guarded::kEnd})
        for (const bool wrap : {false, true})
            for (size_t length = 0; length <= 500; ++length) {
                const Bytes data = test::random_bytes(length, static_cast<unsigned>(length));
                const auto encode = [&] { return encoded(data, wrap, edge); };
                const std::string expected = portably(encode);
                const Forced version(GetParam().features);
                ASSERT_EQ(encode(), expected) << length;
            }
}

TEST_P(Base64Versions, EncodeEveryValueAtEveryPlace)
{
    for (unsigned value = 0; value < 256; ++value)
        for (size_t place = 0; place < 48; ++place) {
            uint8_t data[48] = {};
            data[place] = static_cast<uint8_t>(value);
            const auto encode = [&] {
                char out[64];
                return std::string(out, base64_encode(data, out, 48, false));
            };
            const std::string expected = portably(encode);
            const Forced version(GetParam().features);
            ASSERT_EQ(encode(), expected) << value << " at " << place;
        }
}

TEST_P(Base64Versions, JudgeEveryCharacterAtEveryPlace)
{
    char in[67];
    uint8_t out[48];
    for (unsigned code = 0; code < 256; ++code)
        for (size_t place = 0; place < 64; ++place) {
            memset(in, 'A', sizeof in);
            in[place] = static_cast<char>(code);
            const auto decode = [&] {
                memset(out, 0xAA, sizeof out);
                const unsigned size = base64_decode(in, out, 64);
                return Bytes(out, out + size);
            };
            const Bytes expected = portably(decode);
            const Forced version(GetParam().features);
            ASSERT_EQ(decode(), expected) << code << " at " << place;
        }
}

TEST_P(Base64Versions, DecodeLikeThePortableOneBetweenGuardPages)
{
    const std::string symbols = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::mt19937 engine(7);
    for (int round = 0; round < 4000; ++round) {
        const unsigned strays = round % 4 == 0 ? 0 : (round % 4 == 1 ? 1 : 12);
        const size_t run = 1 + engine() % 5;
        std::string text(engine() % 500, '\0');
        for (size_t i = 0; i < text.size(); ++i) {
            text[i] = symbols[engine() % 64];
            if (engine() % 100 >= strays) continue;
            const char stray = engine() % 6 == 0 ? '=' : static_cast<char>(engine() >> 8);
            for (size_t k = 0; k < run && i < text.size(); ++k) text[i++] = stray;
        }
        const char after = round % 2 == 0 ? '\0' : static_cast<char>(engine() >> 8);
        const auto edge = round % 8 < 4 ? Guarded::kEnd : Guarded::kStart;
        size_t room = text.size();
        const auto decode = [&] { return decoded(text, after, room, edge); };
        const Bytes expected = portably(decode);
        room = expected.size();
        const Forced version(GetParam().features);
        ASSERT_EQ(decode(), expected) << text;
    }
}

} // namespace
