#include "vnlib/base64.h"

#include <array>
#include <cstring>
#include <random>

#include "support/buffers.h"

namespace {

using test::Bytes;
using test::Guarded;

const std::string kSymbols = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

Bytes bytes_of(const std::string &text)
{
    return {text.begin(), text.end()};
}

// Group by group, as the format is told.
std::string reference_text(const Bytes &data, bool wrap)
{
    std::string text;
    size_t symbols = 0;
    for (size_t at = 0; at < data.size(); at += 3) {
        const size_t bytes = std::min<size_t>(3, data.size() - at);
        unsigned bits = 0;
        for (size_t i = 0; i < 3; ++i) bits = bits << 8 | (i < bytes ? data[at + i] : 0u);
        for (size_t i = 0; i < 4; ++i)
            text += i <= bytes ? kSymbols[bits >> (18 - 6 * i) & 63] : '=';
        symbols += 4;
        if (wrap && symbols % 64 == 0) text += '\n';
    }
    return text;
}

// The reference texts of all beginnings of some data: full groups are taken over from the whole
// text.
class Texts {
public:
    Texts(const Bytes &data, bool wrap)
        : data_(data), wrap_(wrap), whole_(reference_text(data, wrap))
    {
    }
    [[nodiscard]] std::string of(size_t length) const
    {
        const size_t groups = length / 3;
        const size_t full = wrap_ ? 4 * groups + groups / 16 : 4 * groups;
        const auto rest = data_.begin() + static_cast<long>(3 * groups);
        std::string text = whole_.substr(0, full);
        text += reference_text({rest, data_.begin() + static_cast<long>(length)}, false);
        const bool fills_line = length % 3 != 0 && (groups + 1) % 16 == 0;
        return wrap_ && fills_line ? text + "\n" : text;
    }

private:
    const Bytes &data_;
    bool wrap_;
    std::string whole_;
};

// Encodes from and to memory that ends exactly where the interface says.
std::string encoded(const Bytes &data, bool wrap, Guarded::Edge edge = Guarded::kEnd)
{
    const Guarded in(data, edge);
    const Guarded out(reference_text(data, wrap).size(), edge);
    const unsigned size =
        base64_encode(in.data(), out.text(), static_cast<unsigned>(data.size()), wrap);
    return {out.text(), size};
}

std::array<int, 256> make_values()
{
    std::array<int, 256> values{};
    values.fill(126);
    for (size_t value = 0; value < 64; ++value)
        values[static_cast<uint8_t>(kSymbols[value])] = static_cast<int>(value);
    values['='] = 127;
    return values;
}
const std::array<int, 256> kValues = make_values();

int value_of(char symbol)
{
    return kValues[static_cast<uint8_t>(symbol)];
}

// The rule of loose input, symbol by symbol: what is no symbol is skipped before in[length], and
// in[length] itself is one more symbol, whatever it is.
Bytes reference_bytes(const std::string &text, size_t length)
{
    Bytes out;
    size_t at = 0;
    for (;;) {
        int group[4];
        for (int &value : group) {
            while (at < length && value_of(text[at]) == 126) ++at;
            if (at > length) return out;
            value = value_of(text[at++]);
        }
        const auto [a, b, c, d] = group;
        out.push_back(static_cast<uint8_t>((a << 2) | (b >> 4)));
        if (c != 127) out.push_back(static_cast<uint8_t>(((b & 15) << 4) + (c >> 2)));
        if (d != 127) out.push_back(static_cast<uint8_t>(((c & 3) << 6) | (d & 63)));
    }
}

// Decodes from memory that ends with the character after the text, and to memory that ends where
// the data do.
Bytes decoded(const std::string &text, char after = '\0', Guarded::Edge edge = Guarded::kEnd)
{
    Bytes source(text.begin(), text.end());
    source.push_back(static_cast<uint8_t>(after));
    const Guarded in(source, edge);
    const size_t size = reference_bytes(text + after, text.size()).size();
    const Guarded out(size, edge);
    const unsigned written =
        base64_decode(in.text(), out.data(), static_cast<unsigned>(text.size()));
    EXPECT_EQ(written, size) << text;
    return {out.data(), out.data() + std::min<size_t>(written, size)};
}

TEST(Base64Encode, GivesThePublishedTexts) // RFC 4648, section 10
{
    const char *texts[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (size_t length = 0; length < 7; ++length)
        EXPECT_EQ(encoded(bytes_of(std::string("foobar").substr(0, length)), false), texts[length]);
    EXPECT_EQ(encoded(bytes_of("Ma"), false), "TWE=");
}

TEST(Base64Encode, WritesNothingForNoBytes)
{
    char out = '#';
    EXPECT_EQ(base64_encode(nullptr, &out, 0, false), 0u);
    EXPECT_EQ(base64_encode(nullptr, &out, 0, true), 0u);
    EXPECT_EQ(out, '#');
}

TEST(Base64Encode, WritesNoTerminatingNul)
{
    std::string out(5, '#');
    EXPECT_EQ(base64_encode(bytes_of("Ma").data(), out.data(), 2, false), 4u);
    EXPECT_EQ(out, "TWE=#");
}

TEST(Base64Encode, EndsEveryFullLineWithALineFeed)
{
    EXPECT_EQ(encoded(Bytes(48, 0), true), std::string(64, 'A') + "\n");
    EXPECT_EQ(encoded(Bytes(45, 0), true), std::string(60, 'A'));
    EXPECT_EQ(encoded(Bytes(49, 0), true), std::string(64, 'A') + "\nAA==");
    EXPECT_EQ(encoded(Bytes(96, 0), true),
              std::string(64, 'A') + "\n" + std::string(64, 'A') + "\n");
}

TEST(Base64Encode, CountsPaddingAsPartOfTheLine)
{
    EXPECT_EQ(encoded(Bytes(46, 0), true), std::string(62, 'A').append("==\n"));
    EXPECT_EQ(encoded(Bytes(47, 0), true), std::string(63, 'A').append("=\n"));
}

TEST(Base64Encode, EncodesEveryLength)
{
    const Bytes data = test::random_bytes(4096);
    for (const bool wrap : {false, true}) {
        const Texts texts(data, wrap);
        for (size_t length = 0; length <= data.size(); ++length) {
            const std::string expected = texts.of(length);
            std::string out(expected.size() + 1, '#');
            const unsigned size =
                base64_encode(data.data(), out.data(), static_cast<unsigned>(length), wrap);
            ASSERT_EQ(size, expected.size());
            ASSERT_EQ(out, expected + "#") << length;
        }
    }
}

TEST(Base64Encode, EncodesAtEveryAlignment)
{
    const Bytes all = test::random_bytes(64 + 400);
    std::vector<char> room(64 + 800);
    for (size_t shift = 0; shift < 64; ++shift)
        for (size_t length = 0; length <= 400; length += 7) {
            const auto first = all.begin() + static_cast<long>(shift);
            const std::string expected =
                reference_text({first, first + static_cast<long>(length)}, true);
            char *out = room.data() + (63 - shift);
            const unsigned size =
                base64_encode(all.data() + shift, out, static_cast<unsigned>(length), true);
            ASSERT_EQ(std::string(out, size), expected) << length << " bytes at " << shift;
        }
}

TEST(Base64Encode, ReadsAndWritesNoByteTooMany)
{
    for (const auto edge : {Guarded::kStart, Guarded::kEnd})
        for (size_t length = 0; length <= 300; ++length) {
            const Bytes data = test::random_bytes(length);
            for (const bool wrap : {false, true})
                ASSERT_EQ(encoded(data, wrap, edge), reference_text(data, wrap)) << length;
        }
}

TEST(Base64Decode, GivesThePublishedBytes) // RFC 4648, section 10
{
    const char *texts[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (size_t length = 0; length < 7; ++length)
        EXPECT_EQ(decoded(texts[length]), bytes_of(std::string("foobar").substr(0, length)));
}

TEST(Base64Decode, SkipsWhatIsNoSymbolAnywhere)
{
    EXPECT_EQ(decoded("TW\nE="), bytes_of("Ma"));
    EXPECT_EQ(decoded("\r\n T-W_E\t=\n\n"), bytes_of("Ma"));
    EXPECT_EQ(decoded("T\x80W\xFF"
                      "E\xBD="),
              bytes_of("Ma"));
    EXPECT_EQ(decoded(std::string("T\0W\0E\0=", 7)), bytes_of("Ma"));
    EXPECT_EQ(decoded("   \n"), Bytes{});
}

TEST(Base64Decode, SkipsEveryByteOutsideTheAlphabet)
{
    for (int code = 0; code < 256; ++code) {
        const char character = static_cast<char>(code);
        if (value_of(character) != 126) continue;
        const std::string run(40, character);
        EXPECT_EQ(decoded(run + "TW" + run + "E=" + run), bytes_of("Ma")) << code;
    }
}

TEST(Base64Decode, CompletesThreeSymbolsWithTheCharacterAfterTheText)
{
    EXPECT_EQ(decoded("TWE"), (Bytes{'M', 'a', 0x3E}));
    EXPECT_EQ(decoded("TWF"), (Bytes{'M', 'a', 0x7E}));
    EXPECT_EQ(decoded("TWE\n"), (Bytes{'M', 'a', 0x3E}));
    EXPECT_EQ(decoded("TWE", '\n'), (Bytes{'M', 'a', 0x3E})); // not skipped there
    EXPECT_EQ(decoded("TWE", '\xFF'), (Bytes{'M', 'a', 0x3E}));
    EXPECT_EQ(decoded("TWE", '='), (Bytes{'M', 'a'}));
    EXPECT_EQ(decoded("TWE", '/'), (Bytes{'M', 'a', 0x3F}));
    EXPECT_EQ(decoded("TWE", 'B'), (Bytes{'M', 'a', 0x01}));
    EXPECT_EQ(decoded("TW=", '\0'), (Bytes{'M', 0xFE}));
}

TEST(Base64Decode, DropsOneOrTwoSymbolsAtTheEnd)
{
    EXPECT_EQ(decoded(""), Bytes{});
    EXPECT_EQ(decoded("T"), Bytes{});
    EXPECT_EQ(decoded("TW"), Bytes{});
    EXPECT_EQ(decoded("TW", '='), Bytes{});
    EXPECT_EQ(decoded("TW", 'E'), Bytes{});
    EXPECT_EQ(decoded("TWE=TW\n"), bytes_of("Ma"));
}

TEST(Base64Decode, ReadsTheCharacterAfterTheTextOnlyWhenASymbolIsMissing)
{
    for (const std::string text : {"", "T", "TW", "TWE=", "TWE=T", "TWE=TW", "TWE=\n"}) {
        const Guarded in(bytes_of(text));
        uint8_t out[3];
        EXPECT_LE(base64_decode(in.text(), out, static_cast<unsigned>(text.size())), 2u);
    }
}

TEST(Base64Decode, GoesOnAfterPadding)
{
    EXPECT_EQ(decoded("TQ==TWE=TWFu"), bytes_of("MMaMan"));
    EXPECT_EQ(decoded("TQ=\n=TWE="), bytes_of("MMa"));
}

TEST(Base64Decode, TakesPaddingInTheWrongPlaceAsAHundredAndTwentySeven)
{
    EXPECT_EQ(decoded("=AAA"), (Bytes{0xFC, 0, 0}));
    EXPECT_EQ(decoded("A=AA"), (Bytes{0x07, 0xF0, 0}));
    EXPECT_EQ(decoded("AA=A"), (Bytes{0x00, 0xC0}));
    EXPECT_EQ(decoded("===="), (Bytes{0xFF}));
    EXPECT_EQ(decoded("===A"), (Bytes{0xFF, 0xC0}));
    EXPECT_EQ(decoded("==A="), (Bytes{0xFF, 0xF0}));
    EXPECT_EQ(decoded("==="), (Bytes{0xFF, 0xFE}));
}

TEST(Base64Decode, UndoesTheEncodingOfEveryLength)
{
    const Bytes data = test::random_bytes(4096);
    Bytes out(data.size() + 1);
    for (const bool wrap : {false, true}) {
        const Texts texts(data, wrap);
        for (size_t length = 0; length <= data.size(); ++length) {
            const std::string text = texts.of(length);
            out[length] = 0xAA;
            const unsigned size =
                base64_decode(text.data(), out.data(), static_cast<unsigned>(text.size()));
            ASSERT_EQ(size, length);
            ASSERT_EQ(memcmp(out.data(), data.data(), length), 0) << length;
            ASSERT_EQ(out[length], 0xAA);
        }
    }
}

TEST(Base64Decode, DecodesAtEveryAlignment)
{
    const Bytes data = test::random_bytes(200);
    const std::string text = reference_text(data, true);
    alignas(64) static char in[400 + 64];
    alignas(64) static uint8_t out[200 + 64];
    for (size_t shift = 0; shift < 64; ++shift) {
        text.copy(in + shift, text.size());
        uint8_t *to = out + (63 - shift);
        const unsigned size = base64_decode(in + shift, to, static_cast<unsigned>(text.size()));
        ASSERT_EQ(Bytes(to, to + size), data) << shift;
    }
}

TEST(Base64Decode, ReadsAndWritesNoByteTooMany)
{
    for (const auto edge : {Guarded::kStart, Guarded::kEnd})
        for (size_t length = 0; length <= 300; ++length) {
            const Bytes data = test::random_bytes(length);
            for (const bool wrap : {false, true})
                ASSERT_EQ(decoded(reference_text(data, wrap), '\0', edge), data) << length;
        }
}

TEST(Base64Decode, DecodesTextWithAStrayByteAtEveryPlace)
{
    const Bytes data = test::random_bytes(147);
    const std::string clean = reference_text(data, false);
    for (const std::string stray : {"\n", "\r\n", "    ", "=", "\xFF", " = "})
        for (size_t at = 0; at <= clean.size(); ++at) {
            const std::string text = clean.substr(0, at) + stray + clean.substr(at);
            ASSERT_EQ(decoded(text), reference_bytes(text + '\0', text.size())) << text;
        }
}

TEST(Base64Decode, DecodesLinesOfEveryLength)
{
    const Bytes data = test::random_bytes(300);
    const std::string clean = reference_text(data, false);
    for (const std::string feed : {"\n", "\r\n", "\n  "})
        for (size_t width = 1; width <= 140; ++width) {
            std::string text;
            for (size_t at = 0; at < clean.size(); at += width)
                text += clean.substr(at, width) + feed;
            ASSERT_EQ(decoded(text), data) << "lines of " << width;
        }
}

// Texts of symbols with `strays` in a hundred other bytes among them, and any byte after the end.
void agrees_on_random_texts(unsigned strays, unsigned rounds)
{
    std::mt19937 engine(strays + 1);
    for (unsigned round = 0; round < rounds; ++round) {
        std::string text(engine() % 400, '\0');
        for (char &character : text) {
            if (engine() % 100 >= strays)
                character = kSymbols[engine() % 64];
            else
                character = engine() % 3 == 0 ? '=' : static_cast<char>(engine() >> 8);
        }
        const char after = round % 2 == 0 ? '\0' : static_cast<char>(engine() >> 8);
        ASSERT_EQ(decoded(text, after), reference_bytes(text + after, text.size())) << text;
    }
}

TEST(Base64Decode, AgreesWithTheRuleOnCleanRandomTexts)
{
    agrees_on_random_texts(0, 2000);
}
TEST(Base64Decode, AgreesWithTheRuleOnNearlyCleanRandomTexts)
{
    agrees_on_random_texts(1, 4000);
}
TEST(Base64Decode, AgreesWithTheRuleOnDirtyRandomTexts)
{
    agrees_on_random_texts(10, 3000);
}
TEST(Base64Decode, AgreesWithTheRuleOnWildRandomTexts)
{
    agrees_on_random_texts(90, 2000);
}

} // namespace
