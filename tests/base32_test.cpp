#include "vnlib/base32.h"

#include <cctype>
#include <cstring>
#include <map>

#include "support/buffers.h"

namespace {

using test::Bytes;
using test::Guarded;

const std::string kSymbols = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";

struct Encoded {
    unsigned result;
    std::string text; // up to the NUL that must follow `result` characters
    bool operator==(const Encoded &) const = default;
};

Encoded encoded(const Bytes &data, int mode, unsigned room = 20000)
{
    std::vector<char> out(room + 1, '#');
    const auto length = static_cast<unsigned>(data.size());
    const unsigned result = base32_encode(data.data(), length, out.data(), room, mode);
    EXPECT_EQ(out[result], '\0');
    EXPECT_EQ(out[result + 1], '#');
    return {result, {out.data(), result}};
}

// Bit by bit, as the format is told.
std::string reference(const Bytes &data, size_t symbols)
{
    std::string text;
    for (size_t k = 0; k < symbols; ++k) {
        unsigned value = 0;
        for (size_t bit = 0; bit < 5; ++bit) {
            const size_t at = 5 * k + bit;
            if (at / 8 < data.size()) value |= (data[at / 8] >> (at % 8) & 1u) << bit;
        }
        text += kSymbols[value];
    }
    return text;
}

size_t symbols_of(size_t bytes)
{
    return (bytes * 8 + 4) / 5;
}

char check_of(const std::string &text)
{
    size_t sum = 0;
    for (const char symbol : text) sum += kSymbols.find(symbol);
    return kSymbols[sum % 32];
}

struct Decoded {
    int result;
    Bytes bytes;
    bool operator==(const Decoded &) const = default;
};

// Decodes from and to memory that ends exactly where the interface says.
Decoded decoded(const std::string &text, int mode)
{
    Guarded in(text.size() + 1);
    memcpy(in.data(), text.c_str(), text.size() + 1);
    const size_t symbols = text.empty() ? 0 : text.size() - 1;
    const size_t stored = std::max<size_t>((symbols * 5 + 7) / 8, 1);
    Guarded out(stored);
    memset(out.data(), 0xAA, stored);
    const int result = base32_decode(in.text(), out.data(), mode);
    return {result, Bytes(out.data(), out.data() + stored)};
}

TEST(Base32Encode, TakesTheLowBitsFirst)
{
    EXPECT_EQ(encoded({0xFF}, 0), (Encoded{2, "Z7"}));
    EXPECT_EQ(encoded({0x01}, 0), (Encoded{2, "10"}));
    EXPECT_EQ(encoded({0x20}, 0), (Encoded{2, "01"}));
    EXPECT_EQ(encoded({0, 0, 0, 0, 0x80}, 0), (Encoded{8, "0000000G"}));
}

TEST(Base32Encode, AppendsTheCheckSymbolInMode3)
{
    EXPECT_EQ(encoded({0xFF}, 3), (Encoded{3, "Z76"}));
    EXPECT_EQ(encoded({}, 3), (Encoded{1, "0"}));
}

TEST(Base32Encode, WritesOnlyTheNulForNoBytes)
{
    EXPECT_EQ(encoded({}, 0), (Encoded{0, ""}));
    char out[2] = {'#', '#'};
    EXPECT_EQ(base32_encode(nullptr, 0, out, 2, 0), 0u);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(base32_encode(nullptr, 0, out, 2, 3), 1u);
    EXPECT_STREQ(out, "0");
}

TEST(Base32Encode, WritesZeroBytesInPlaceOfSymbolsInMode1)
{
    EXPECT_EQ(encoded({0xFF, 0xFF, 0xFF}, 1), (Encoded{5, std::string(5, '\0')}));
    EXPECT_EQ(encoded({0xFF, 0xFF, 0xFF}, 1, 5), (Encoded{3, std::string(3, '\0')}));
}

TEST(Base32Encode, TakesAnyOtherModeAsPlain)
{
    for (const int mode : {0, 2, 4, -1, 1000}) EXPECT_EQ(encoded({0xFF}, mode), (Encoded{2, "Z7"}));
}

TEST(Base32Encode, CutsTheTextToTheRoomLessTwo)
{
    const Bytes data = test::random_bytes(20);
    const std::string all = reference(data, 32);
    for (unsigned room = 2; room < 40; ++room) {
        const std::string kept = all.substr(0, room - 2);
        EXPECT_EQ(encoded(data, 0, room), (Encoded{static_cast<unsigned>(kept.size()), kept}));
        EXPECT_EQ(encoded(data, 3, room),
                  (Encoded{static_cast<unsigned>(kept.size() + 1), kept + check_of(kept)}));
    }
}

TEST(Base32Encode, WritesTheNulAloneIntoRoomForOne)
{
    for (const int mode : {0, 1, 3}) {
        char out[2] = {'#', '#'};
        const uint8_t byte = 0xFF;
        EXPECT_EQ(base32_encode(&byte, 1, out, 1, mode), 0u);
        EXPECT_EQ(out[0], '\0');
        EXPECT_EQ(out[1], '#');
    }
}

TEST(Base32Encode, WritesNothingIntoNoRoom)
{
    for (const int mode : {0, 1, 3}) {
        char out = '#';
        const uint8_t byte = 0xFF;
        EXPECT_EQ(base32_encode(&byte, 1, &out, 0, mode), 0u);
        EXPECT_EQ(out, '#');
    }
}

TEST(Base32Encode, ComputesTheSymbolsOfAHugeLengthWithoutWrapping)
{
    // Only what the cut text needs is read.
    const Bytes data = test::random_bytes(5);
    char out[10];
    EXPECT_EQ(base32_encode(data.data(), 0xFFFF'FFFFu, out, sizeof out, 0), 8u);
    EXPECT_EQ(std::string(out), reference(data, 8));
    EXPECT_EQ(base32_encode(data.data(), 0x2000'0000u, out, sizeof out, 1), 8u);
}

TEST(Base32Encode, EncodesEveryLengthAtEveryAlignment)
{
    const Bytes all = test::random_bytes(4096 + 64);
    for (size_t length = 0; length <= 4096; length += length < 200 ? 1 : 61) {
        const size_t shift = length % 64;
        const Bytes data(all.begin() + static_cast<long>(shift),
                         all.begin() + static_cast<long>(shift + length));
        const std::string expected = reference(data, symbols_of(length));
        std::vector<char> out(expected.size() + 2);
        const unsigned result = base32_encode(all.data() + shift, static_cast<unsigned>(length),
                                              out.data(), static_cast<unsigned>(out.size()), 0);
        ASSERT_EQ(result, expected.size());
        ASSERT_EQ(std::string(out.data()), expected) << length;
    }
}

TEST(Base32Encode, ReadsAndWritesNoByteTooMany)
{
    for (size_t length = 0; length <= 64; ++length) {
        const Guarded in(test::random_bytes(length));
        const auto room = static_cast<unsigned>(symbols_of(length) + 2);
        const Guarded out(room);
        const auto size = static_cast<unsigned>(length);
        EXPECT_EQ(base32_encode(in.data(), size, out.text(), room, 3), symbols_of(length) + 1);
        EXPECT_EQ(base32_encode(in.data(), size, out.text(), room - 1, 0),
                  length == 0 ? 0 : symbols_of(length) - 1);
    }
}

TEST(Base32Decode, CutsTheLastCharacterOff)
{
    EXPECT_EQ(decoded("Z7x", 0), (Decoded{7, {0xFF, 0}}));
    EXPECT_EQ(decoded("Z7", 0), (Decoded{7, {0x1F}}));
    EXPECT_EQ(decoded("Z", 0), (Decoded{7, {0}}));
}

TEST(Base32Decode, TakesTheLastCharacterAsTheCheckSymbolInMode3)
{
    EXPECT_EQ(decoded("Z76", 3), (Decoded{7, {0xFF, 0}}));
    EXPECT_EQ(decoded("Z75", 3), (Decoded{-1, {0xFF, 0}}));
    EXPECT_EQ(decoded("0", 3), (Decoded{7, {0}}));
    EXPECT_EQ(decoded("1", 3), (Decoded{-1, {0}}));
}

TEST(Base32Decode, TakesAliasesForTheCheckSymbolToo)
{
    EXPECT_EQ(decoded("1i", 3).result, 7);
    EXPECT_EQ(decoded("1L", 3).result, 7);
    EXPECT_EQ(decoded("0o", 3).result, 7);
    EXPECT_EQ(decoded("Vu", 3).result, 7);
    EXPECT_EQ(decoded("Uv", 3).result, 7);
    EXPECT_EQ(decoded("0!", 3).result, 7);
}

TEST(Base32Decode, StoresOnlyTheClearedByteForAnEmptyText)
{
    for (const int mode : {0, 1, 3}) EXPECT_EQ(decoded("", mode), (Decoded{7, {0}})) << mode;
}

TEST(Base32Decode, WritesZeroBytesInMode1)
{
    EXPECT_EQ(decoded("ZZZZZZ", 1), (Decoded{7, {0, 0, 0, 0}}));
    EXPECT_EQ(decoded("Z", 1), (Decoded{7, {0}}));
}

TEST(Base32Decode, StoresTheBitsOfAnUnfinishedByte)
{
    EXPECT_EQ(decoded("ZZ0", 0), (Decoded{7, {0xFF, 0x03}}));
    EXPECT_EQ(decoded("ZZZZZZZZ0", 0), (Decoded{7, Bytes(5, 0xFF)}));
    EXPECT_EQ(decoded("ZZZZZZZZZ0", 0), (Decoded{7, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x1F}}));
}

TEST(Base32Decode, GivesEveryCharacterItsValue)
{
    const std::map<char, unsigned> aliases = {{'I', 1}, {'L', 1}, {'O', 0}, {'U', 27}};
    for (int code = 1; code < 256; ++code) {
        const char character = static_cast<char>(code);
        const bool letter = code < 128 && isalpha(code);
        const char upper = letter ? static_cast<char>(toupper(code)) : character;
        unsigned expected = 0;
        if (aliases.contains(upper))
            expected = aliases.at(upper);
        else if (kSymbols.find(upper) != std::string::npos)
            expected = static_cast<unsigned>(kSymbols.find(upper));
        EXPECT_EQ(decoded({character, '0'}, 0), (Decoded{7, {static_cast<uint8_t>(expected)}}))
            << code;
    }
}

TEST(Base32Decode, UndoesTheEncodingOfEveryLength)
{
    for (size_t length = 0; length <= 4096; length += length < 300 ? 1 : 97) {
        const Bytes data = test::random_bytes(length, static_cast<unsigned>(length + 1));
        std::string text = encoded(data, 3).text;
        Decoded back = decoded(text, 3);
        EXPECT_EQ(back.result, 7);
        back.bytes.resize(length);
        ASSERT_EQ(back.bytes, data) << length;
        for (char &character : text) character = static_cast<char>(tolower(character));
        back = decoded(text, 3);
        back.bytes.resize(length);
        ASSERT_EQ(back.bytes, data) << length;
    }
}

TEST(Base32Decode, FindsEverySingleWrongSymbol)
{
    const std::string text = encoded(test::random_bytes(10), 3).text;
    for (size_t at = 0; at < text.size(); ++at) {
        for (const char symbol : kSymbols) {
            std::string changed = text;
            changed[at] = symbol;
            EXPECT_EQ(decoded(changed, 3).result, changed == text ? 7 : -1);
        }
    }
}

} // namespace
