#include "vnlib/vnstrings.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <random>
#include <unistd.h>

#include "support/capture.h"
#include "vnlib/memcheck.h"

namespace {

// A growable string as callers hold one: a tracked block behind a plain pointer.
class Growable {
public:
    explicit Growable(const std::string &text)
    {
        text_ =
            static_cast<char *>(vn_memcheck_malloc(malloc, text.size() + 1, "vnstrings_test", 1));
        memcpy(text_, text.c_str(), text.size() + 1);
    }
    ~Growable()
    {
        if (text_ != nullptr) vn_memcheck_free(vn_free, text_, "vnstrings_test:2");
    }
    Growable(const Growable &) = delete;
    Growable &operator=(const Growable &) = delete;

    char **operator&() { return &text_; }
    [[nodiscard]] char *get() const { return text_; }
    [[nodiscard]] std::string text() const { return text_ == nullptr ? "<gone>" : text_; }

private:
    char *text_ = nullptr;
};

std::string formatted_by(int (*format)(char **, const char *, ...), const char *value)
{
    Growable text("");
    format(&text, "%s", value);
    return text.text();
}

int call_vasprintf(char **out, const char *format, ...) VN_PRINTF(2, 3);
int call_vasprintf(char **out, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = __vn_vasprintf(out, "vnstrings_test", 3, format, args);
    va_end(args);
    return result;
}

int call_vaasprintf(char **str, const char *format, ...) VN_PRINTF(2, 3);
int call_vaasprintf(char **str, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vn_vaasprintf(str, format, args);
    va_end(args);
    return result;
}

constexpr wchar_t kNoCharacter[] = {0x7FFF'FFFF, 0}; // %ls cannot write this in any encoding

// Lengths around the one up to which a text is formatted in a single pass.
const size_t kLengths[] = {0, 1, 2, 255, 256, 1024, 2046, 2047, 2048, 2049, 5000, 100000};

// ---- formatted texts --------------------------------------------------------------------------

TEST(VnAsprintf, StoresANewTextAndReturnsItsLength)
{
    char *text = nullptr;
    EXPECT_EQ(__vn_asprintf(&text, "here", 7, "%s:%zu count=%d", "file.c", size_t{12}, -3), 18);
    EXPECT_STREQ(text, "file.c:12 count=-3");
    vn_memcheck_free(vn_free, text, "here:1");
}

TEST(VnAsprintf, FormatsTextsOfEveryLengthAlike)
{
    for (const size_t length : kLengths) {
        const std::string value(length, 'x');
        char *text = nullptr;
        EXPECT_EQ(__vn_asprintf(&text, "here", 7, "%s", value.c_str()), static_cast<int>(length));
        EXPECT_EQ(text, value);
        vn_memcheck_free(vn_free, text, "here:1");
    }
}

TEST(VnAsprintf, WalksEveryKindOfArgumentTwice)
{
    const std::string filler(2300, '-'); // long enough for a measuring and a printing pass
    char *text = nullptr;
    const int length = __vn_asprintf(&text, "here", 7, "%s %d %.2f %llx %c %p", filler.c_str(), 42,
                                     2.5, 0xFEDCBA9876543210ull, 'z', static_cast<void *>(nullptr));
    char expected[4096];
    snprintf(expected, sizeof expected, "%s 42 2.50 fedcba9876543210 z %p", filler.c_str(),
             static_cast<void *>(nullptr));
    EXPECT_STREQ(text, expected);
    EXPECT_EQ(length, static_cast<int>(strlen(expected)));
    vn_memcheck_free(vn_free, text, "here:1");
}

TEST(VnAsprintf, PrintsTheErrnoOfTheCall)
{
    const std::string filler(2300, '-');
    char *text = nullptr;
    errno = ENOENT;
    const std::string format = "%s%m"; // not ISO, hence not for the compiler to see
    __vn_asprintf(&text, "here", 7, format.c_str(), filler.c_str());
    EXPECT_EQ(text, filler + strerror(ENOENT));
    vn_memcheck_free(vn_free, text, "here:1");
}

TEST(VnAsprintf, RefusesATextThatCannotBeFormatted)
{
    char stale[] = "stale", *text = stale;
    EXPECT_EQ(__vn_asprintf(&text, "here", 7, "%ls", kNoCharacter), -1);
    EXPECT_EQ(text, nullptr);
}

TEST(VnAsprintf, RefusesANullResultPlaceOrFormat)
{
    EXPECT_EQ(__vn_asprintf(nullptr, "here", 7, "x"), -1);
    char *text = nullptr;
    const char *const none = nullptr;
    EXPECT_EQ(__vn_asprintf(&text, "here", 7, none), -1);
    EXPECT_EQ(text, nullptr);
}

TEST(VnVasprintf, FormatsAListOfArguments)
{
    char *text = nullptr;
    EXPECT_EQ(call_vasprintf(&text, "%d-%s", 5, "five"), 6);
    EXPECT_STREQ(text, "5-five");
    vn_memcheck_free(vn_free, text, "here:1");
}

// ---- growing strings --------------------------------------------------------------------------

TEST(VnAasprintf, AppendsAndReturnsTheNumberOfCharactersAppended)
{
    Growable text("count");
    EXPECT_EQ(vn_aasprintf(&text, "=%d", 17), 3);
    EXPECT_EQ(text.text(), "count=17");
    EXPECT_EQ(vn_aasprintf(&text, "%s", ""), 0);
    EXPECT_EQ(text.text(), "count=17");
}

TEST(VnAasprintf, AppendsTextsOfEveryLength)
{
    for (const size_t length : kLengths) {
        Growable text("ab");
        const std::string value(length, 'x');
        EXPECT_EQ(vn_aasprintf(&text, "%s", value.c_str()), static_cast<int>(length));
        EXPECT_EQ(text.text(), "ab" + value);
    }
}

TEST(VnAasprintf, GrowsOverManyAppends)
{
    Growable text("");
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(vn_aasprintf(&text, "%d,", i), static_cast<int>(std::to_string(i).size()) + 1);
        expected += std::to_string(i) + ",";
    }
    EXPECT_EQ(text.text(), expected);
}

TEST(VnAasprintf, RefusesAnAbsentString)
{
    char *text = nullptr;
    EXPECT_EQ(vn_aasprintf(&text, "x"), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(vn_aasprintf(nullptr, "x"), -1);
}

TEST(VnAasprintf, LosesTheStringWhenTheTextCannotBeFormatted)
{
    Growable text("kept no longer");
    EXPECT_EQ(vn_aasprintf(&text, "%ls", kNoCharacter), -1);
    EXPECT_EQ(text.get(), nullptr);
}

TEST(VnVaasprintf, AppendsAListOfArguments)
{
    Growable text("a");
    EXPECT_EQ(call_vaasprintf(&text, "%c%c", 'b', 'c'), 2);
    EXPECT_EQ(text.text(), "abc");
    EXPECT_EQ(call_vaasprintf(nullptr, "x"), -1);
}

TEST(VnVaasprintf, GivesTheSameTextAsTheForwarder)
{
    EXPECT_EQ(formatted_by(vn_aasprintf, "same"), formatted_by(call_vaasprintf, "same"));
}

// ---- escaping ---------------------------------------------------------------------------------

TEST(ReplaceChar, ReplacesOneCharacterAndReturnsTheLengthOfTheReplacement)
{
    Growable text("a+b");
    EXPECT_EQ(replace_char(&text, " plus ", 1), 6);
    EXPECT_EQ(text.text(), "a plus b");
    EXPECT_EQ(replace_char(&text, "A", 0), 1);
    EXPECT_EQ(text.text(), "A plus b");
    EXPECT_EQ(replace_char(&text, "", 7), 0);
    EXPECT_EQ(text.text(), "A plus ");
}

TEST(ReplaceChar, TakesTheReplacementLiterally)
{
    Growable text("50x of it");
    EXPECT_EQ(replace_char(&text, "%s%n", 2), 4);
    EXPECT_EQ(text.text(), "50%s%n of it");
}

TEST(ReplaceChar, MovesLongTails)
{
    const std::string tail(5000, 't');
    Growable text("x" + tail);
    EXPECT_EQ(replace_char(&text, "yy", 0), 2);
    EXPECT_EQ(text.text(), "yy" + tail);
}

TEST(ReplaceChar, RefusesAPositionThatNamesNoCharacter)
{
    Growable text("abc");
    for (const unsigned pos : {3u, 4u, 1000u, UINT_MAX - 1, UINT_MAX})
        EXPECT_EQ(replace_char(&text, "x", pos), -1) << pos;
    EXPECT_EQ(text.text(), "abc");
    Growable empty("");
    EXPECT_EQ(replace_char(&empty, "x", 0), -1);
}

TEST(ReplaceChar, RefusesNullArguments)
{
    Growable text("abc");
    char *none = nullptr;
    EXPECT_EQ(replace_char(nullptr, "x", 0), -1);
    EXPECT_EQ(replace_char(&none, "x", 0), -1);
    EXPECT_EQ(replace_char(&text, nullptr, 0), -1);
    EXPECT_EQ(text.text(), "abc");
}

TEST(ReplaceQuotes, PutsABackslashBeforeEachQuote)
{
    Growable text("say \"hi\"");
    EXPECT_EQ(replace_quotes(&text), 10);
    EXPECT_EQ(text.text(), "say \\\"hi\\\"");
}

TEST(ReplaceQuotes, EscapesTheQuoteOfAnEscapedQuoteAgain)
{
    Growable text("\\\"");
    EXPECT_EQ(replace_quotes(&text), 3);
    EXPECT_EQ(text.text(), "\\\\\"");
}

TEST(ReplaceQuotes, LeavesATextWithoutQuotesWhereItIs)
{
    for (const char *plain : {"", "x", "it's <plain> & simple"}) {
        Growable text(plain);
        char *const block = text.get();
        EXPECT_EQ(replace_quotes(&text), static_cast<int>(strlen(plain)));
        EXPECT_EQ(text.get(), block);
        EXPECT_EQ(text.text(), plain);
    }
}

TEST(ReplaceQuotes, RefusesAnAbsentString)
{
    char *none = nullptr;
    EXPECT_LT(replace_quotes(&none), 0);
    EXPECT_LT(replace_quotes(nullptr), 0);
}

TEST(ReplaceXmlEntities, EscapesAllFiveCharacters)
{
    Growable text("a<b & 'c'");
    EXPECT_EQ(replace_xml_entities(&text, false), 26);
    EXPECT_EQ(text.text(), "a&lt;b &amp; &apos;c&apos;");
    Growable all("<>&\"'");
    EXPECT_EQ(replace_xml_entities(&all, false), 25);
    EXPECT_EQ(all.text(), "&lt;&gt;&amp;&quot;&apos;");
}

TEST(ReplaceXmlEntities, KeepsApostrophesWhenAsked)
{
    Growable text("a<b & 'c'\">");
    EXPECT_EQ(replace_xml_entities(&text, true), 26);
    EXPECT_EQ(text.text(), "a&lt;b &amp; 'c'&quot;&gt;");
    Growable apostrophes("''");
    char *const block = apostrophes.get();
    EXPECT_EQ(replace_xml_entities(&apostrophes, true), 2);
    EXPECT_EQ(apostrophes.get(), block);
}

TEST(ReplaceXmlEntities, EscapesEntitiesAgain)
{
    Growable text("&lt;");
    EXPECT_EQ(replace_xml_entities(&text, false), 8);
    EXPECT_EQ(text.text(), "&amp;lt;");
}

TEST(ReplaceXmlEntities, LeavesOtherBytesAlone)
{
    std::string bytes;
    for (int c = 1; c < 256; ++c)
        if (strchr("<>&\"'", c) == nullptr) bytes += static_cast<char>(c);
    Growable text(bytes);
    EXPECT_EQ(replace_xml_entities(&text, false), static_cast<int>(bytes.size()));
    EXPECT_EQ(text.text(), bytes);
}

TEST(ReplaceXmlEntities, RefusesAnAbsentString)
{
    char *none = nullptr;
    EXPECT_LT(replace_xml_entities(&none, false), 0);
    EXPECT_LT(replace_xml_entities(nullptr, true), 0);
}

// The textbook way: one replacement after the other, each by replace_char().
int escape_one_by_one(char **str, const char *set)
{
    unsigned pos = 0;
    for (;;) {
        pos += static_cast<unsigned>(strcspn(*str + pos, set));
        const char *replacement = nullptr;
        switch ((*str)[pos]) {
        case '\0': return static_cast<int>(pos);
        case '<': replacement = "&lt;"; break;
        case '>': replacement = "&gt;"; break;
        case '&': replacement = "&amp;"; break;
        case '\'': replacement = "&apos;"; break;
        default: replacement = strlen(set) == 1 ? "\\\"" : "&quot;";
        }
        const int inserted = replace_char(str, replacement, pos);
        if (inserted < 0) return inserted;
        pos += static_cast<unsigned>(inserted);
    }
}

TEST(Escaping, AgreesWithReplacingOneCharacterAfterTheOther)
{
    std::mt19937 random(20240501);
    for (int round = 0; round < 6000; ++round) {
        const unsigned plain = round % 2 == 0 ? 10 : 250; // dense ones, and such with long runs
        std::string text;
        for (unsigned left = static_cast<unsigned>(random() % 150); left > 0; --left)
            text += "<>&'\"abc \\"[std::min<size_t>(random() % plain, 9)];
        Growable quotes(text), all(text), kept(text), slow_quotes(text), slow_all(text),
            slow_kept(text);
        ASSERT_EQ(replace_quotes(&quotes), escape_one_by_one(&slow_quotes, "\""));
        ASSERT_EQ(quotes.text(), slow_quotes.text());
        ASSERT_EQ(replace_xml_entities(&all, false), escape_one_by_one(&slow_all, "<>&'\""));
        ASSERT_EQ(all.text(), slow_all.text());
        ASSERT_EQ(replace_xml_entities(&kept, true), escape_one_by_one(&slow_kept, "<>&\""));
        ASSERT_EQ(kept.text(), slow_kept.text());
    }
}

TEST(Escaping, TakesTimeLinearInTheLength)
{
    Growable text(std::string(1'000'000, '"')); // hours, were each quote to move the rest
    EXPECT_EQ(replace_quotes(&text), 2'000'000);
    EXPECT_EQ(replace_xml_entities(&text, false), 1'000'000 * 7);
}

// ---- with the memory debugger on --------------------------------------------------------------

// The screen that is left when `body` has run under the debugger.
std::string debugger_screen(void (*body)())
{
    const test::ChildResult result = test::run_in_child([body] {
        vn_memcheck_start();
        body();
        vn_memcheck_stop();
    });
    EXPECT_TRUE(result.exited_with(0)) << result.out;
    return result.out;
}

TEST(UnderTheDebugger, AGrownStringIsChargedToTheAppend)
{
    EXPECT_THAT(debugger_screen([] {
                    Growable text("say \"hi\"");
                    replace_quotes(&text);
                    vn_memcheck_stop();
                    _exit(0);
                }),
                testing::HasSubstr("Count 1 \tAve Size:11\t:vn_vaasprintf"));
}

TEST(UnderTheDebugger, ATextIsChargedToTheGivenSite)
{
    EXPECT_THAT(debugger_screen([] {
                    char *text = nullptr;
                    __vn_asprintf(&text, "the_caller", 7, "%s", "12345");
                }),
                testing::HasSubstr("Count 1 \tAve Size:6\t:the_caller"));
}

TEST(UnderTheDebugger, LostAndReplacedStringsLeaveNothingBehind)
{
    EXPECT_THAT(debugger_screen([] {
                    Growable text("a+b");
                    replace_char(&text, "-", 1);
                    vn_aasprintf(&text, "%ls", kNoCharacter);
                }),
                testing::Not(testing::HasSubstr("Count ")));
}

// ---- hex text ---------------------------------------------------------------------------------

struct HexCase {
    const char *text;
    unsigned max;
    int result;
    const char *stored; // as hex, for comparison
};

std::string hex(const std::vector<uint8_t> &bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        char pair[3];
        snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

TEST(HexDecode, StoresBytesUntilTheEndTheLimitOrABadDigit)
{
    const HexCase cases[] = {
        {"", 4, 0, ""},
        {"0x", 4, 0, ""},
        {"00", 4, 1, "00"},
        {"DEADbeef", 8, 4, "deadbeef"},
        {"0xDEADbeef", 8, 4, "deadbeef"},
        {"DEADbeef", 4, 4, "deadbeef"},
        {"DEADbeef", 2, 2, "dead"},
        {"DEADxyz", 2, 2, "dead"}, // what is behind the limit is not looked at
        {"DEA", 1, 1, "de"},
        {"0x0x", 4, -1, ""},
        {"0X41", 4, -1, ""},
        {"abc", 4, -1, "ab"},
        {"a", 4, -1, ""},
        {"0", 4, -1, ""},
        {"0x1", 4, -1, ""},
        {"12g4", 4, -1, "12"},
        {"124g", 4, -1, "12"},
        {"12 34", 4, -1, "12"},
        {" 1234", 4, -1, ""},
        {"aF/0", 4, -1, "af"},
        {"aF:0", 4, -1, "af"},
        {"aF@0", 4, -1, "af"},
        {"aFG0", 4, -1, "af"},
        {"aF`0", 4, -1, "af"},
        {"aF\xB0\xB1", 4, -1, "af"},
    };
    for (const HexCase &each : cases) {
        std::vector<uint8_t> out(strlen(each.stored) / 2); // an overrun shows under the sanitizer
        out.reserve(1);
        EXPECT_EQ(hex_decode(each.text, out.data(), each.max), each.result) << each.text;
        EXPECT_EQ(hex(out), each.stored) << each.text;
    }
}

TEST(HexDecode, ReadsEveryByteInEitherCase)
{
    for (unsigned value = 0; value < 256; ++value) {
        char text[3];
        uint8_t byte = 0;
        for (const char *format : {"%02x", "%02X"}) {
            snprintf(text, sizeof text, format, value);
            EXPECT_EQ(hex_decode(text, &byte, 1), 1);
            EXPECT_EQ(byte, value);
        }
    }
}

TEST(HexDecode, StoresOneByteForALimitOfNone)
{
    uint8_t out[2] = {0, 0x77};
    EXPECT_EQ(hex_decode("1234", out, 0), 1);
    EXPECT_EQ(out[0], 0x12);
    EXPECT_EQ(out[1], 0x77);
}

TEST(HexDecode, RefusesNullArguments)
{
    uint8_t byte = 0;
    EXPECT_EQ(hex_decode(nullptr, &byte, 1), -1);
    EXPECT_EQ(hex_decode("12", nullptr, 1), -1);
    EXPECT_EQ(hex_decode("0x", nullptr, 1), 0);
}

// ---- truth values and units -------------------------------------------------------------------

TEST(Str2Bool, AcceptsFourTextsOnly)
{
    for (const char *text : {"true", "True", "TRUE", "tRuE", "yes", "YES", "y", "Y", "1"})
        EXPECT_EQ(str2bool(text), 1) << text;
    for (const char *text : {"", "on", "01", "false", "no", "n", "0", "2", "10", " true", "true ",
                             "truee", "tru", "ye", "t", "yess"})
        EXPECT_EQ(str2bool(text), 0) << text;
    EXPECT_EQ(str2bool(nullptr), 0);
}

TEST(GetSiUnit, NamesTheUnitOfEveryPowerOfTwo)
{
    const char *const units[] = {"Bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    EXPECT_STREQ(get_si_unit(0), "Bytes");
    for (unsigned bit = 0; bit < 64; ++bit) {
        const uint64_t power = uint64_t{1} << bit;
        EXPECT_STREQ(get_si_unit(power), units[bit / 10]) << bit;
        EXPECT_STREQ(get_si_unit(power - 1), units[bit == 0 ? 0 : (bit - 1) / 10]) << bit;
    }
    EXPECT_STREQ(get_si_unit(1023), "Bytes");
    EXPECT_STREQ(get_si_unit(1024), "KiB");
    EXPECT_STREQ(get_si_unit(UINT64_MAX), "EiB");
}

TEST(GetSiUnit, GivesConstantTexts)
{
    EXPECT_EQ(get_si_unit(5), get_si_unit(6));
}

} // namespace
