#include "vnlib/corelink_lex.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <random>
#include <string_view>
#include <thread>

#include "support/capture.h"
#include "vnlib/memcheck.h"

namespace {

constexpr int kIdentifier = 258, kString = 259, kNumber = 260, kBoolean = 261, kOther = 263;

class Scanner {
public:
    Scanner() { yylex_init(&scanner_); }
    explicit Scanner(const std::string &text) : Scanner()
    {
        yy_scan_bytes(text.data(), static_cast<int>(text.size()), scanner_);
    }
    ~Scanner() { yylex_destroy(scanner_); }
    Scanner(const Scanner &) = delete;
    Scanner &operator=(const Scanner &) = delete;
    operator void *() const { return scanner_; }

private:
    void *scanner_ = nullptr;
};

struct Token {
    int number;
    std::string value;
    bool operator==(const Token &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Token &token)
{
    return out << token.number << "(" << token.value << ")";
}

Token punctuation(char mark)
{
    return {mark, ""};
}
const Token other{kOther, ""};

using Tokens = std::vector<Token>;

Tokens rest_of(void *scanner)
{
    Tokens tokens;
    clparse_lex_value value;
    while (const int number = yylex(&value, scanner)) {
        Token token{number, ""};
        if (number == kNumber) token.value = std::to_string(value.number);
        if (number == kBoolean) token.value = std::to_string(value.boolean);
        if (number == kIdentifier || number == kString) {
            token.value = value.text;
            vn_memcheck_free(free, value.text, "test:1");
        }
        tokens.push_back(token);
    }
    return tokens;
}

Tokens tokens_of(const std::string &text)
{
    const Scanner scanner(text);
    return rest_of(scanner);
}

// A stream that gives `text`.
class Stream {
public:
    explicit Stream(const std::string &text) : file_(tmpfile())
    {
        fwrite(text.data(), 1, text.size(), file_);
        rewind(file_);
    }
    ~Stream() { fclose(file_); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    operator FILE *() const { return file_; }

private:
    FILE *file_;
};

// How long the string at the front of a text is with its quotes; 1 when nothing closes it.
size_t string_length(std::string_view text)
{
    for (size_t at = 1; at < text.size(); ++at) {
        if (text[at] == '"') return at + 1;
        if (text[at] == '\\' && (++at == text.size() || text[at] == '\n')) return 1;
    }
    return 1;
}

// The words of a text, found by plain loops.
Tokens words_of(std::string_view text)
{
    const auto run = [&](auto belongs, size_t length = 0) {
        while (length < text.size() && belongs(static_cast<unsigned char>(text[length]))) ++length;
        return length;
    };
    Tokens words;
    while (!text.empty()) {
        const char first = text.front();
        int number = kOther;
        size_t length = 1;
        if (std::string_view(" \t\r\n").find(first) != std::string_view::npos) {
            number = 0;
        } else if (std::string_view(",.=[]{}").find(first) != std::string_view::npos) {
            number = first;
        } else if (isdigit(first) != 0) {
            number = kNumber;
            length = run(isdigit);
            const bool hex = first == '0' && text.size() > 2 && (text[1] | 0x20) == 'x';
            if (hex && isxdigit(text[2]) != 0) length = run(isxdigit, 2);
        } else if (first == '"') {
            length = string_length(text);
            if (length > 1) number = kString;
        } else if (isalpha(first) != 0 || first == '_') {
            length = run([](int c) { return isalnum(c) != 0 || c == '_'; });
            if (length > 1) number = kIdentifier;
            const std::string_view word = text.substr(0, length);
            if (word == "true" || word == "false") number = kBoolean;
        }
        if (number != 0) words.push_back({number, std::string(text.substr(0, length))});
        text.remove_prefix(length);
    }
    return words;
}

// The same, by the scanner.
Tokens scanned_words(void *scanner)
{
    Tokens words;
    clparse_lex_value value;
    while (const int number = yylex(&value, scanner)) {
        words.push_back({number, yyget_text(scanner)});
        EXPECT_EQ(words.back().value.size(), static_cast<size_t>(yyget_leng(scanner)));
        if (number == kIdentifier || number == kString)
            vn_memcheck_free(free, value.text, "test:1");
    }
    return words;
}

} // namespace

TEST(CorelinkLex, NumbersItsTokensAsTheGrammarDoes)
{
    EXPECT_EQ(CLPARSE_TOKEN_IDENTIFIER, kIdentifier);
    EXPECT_EQ(CLPARSE_TOKEN_STRING, kString);
    EXPECT_EQ(CLPARSE_TOKEN_NUMBER, kNumber);
    EXPECT_EQ(CLPARSE_TOKEN_BOOLEAN, kBoolean);
    EXPECT_EQ(CLPARSE_TOKEN_OTHER, kOther);
}

TEST(CorelinkLex, EndsWithZeroAndStaysThere)
{
    const Scanner scanner("");
    clparse_lex_value value;
    EXPECT_EQ(yylex(&value, scanner), 0);
    EXPECT_EQ(yylex(&value, scanner), 0);
}

TEST(CorelinkLex, GivesPunctuationAsItself)
{
    Tokens expected;
    for (const char mark : std::string(",.=[]{}")) expected.push_back(punctuation(mark));
    EXPECT_EQ(tokens_of(",.=[]{}"), expected);
}

TEST(CorelinkLex, SkipsBlanksTabsAndLineEnds)
{
    EXPECT_EQ(tokens_of(" \t\r\n ,\n\n\t=\r "), (Tokens{punctuation(','), punctuation('=')}));
    EXPECT_EQ(tokens_of(" \n"), Tokens{});
    EXPECT_EQ(tokens_of("\v\f"), (Tokens{other, other})) << "other white space is not skipped";
}

TEST(CorelinkLex, ANameNeedsTwoCharacters)
{
    EXPECT_EQ(tokens_of("a=1"), (Tokens{other, punctuation('='), {kNumber, "1"}}));
    EXPECT_EQ(tokens_of("_"), (Tokens{other}));
    EXPECT_EQ(tokens_of("ab=1"), (Tokens{{kIdentifier, "ab"}, punctuation('='), {kNumber, "1"}}));
    EXPECT_EQ(tokens_of("__"), (Tokens{{kIdentifier, "__"}}));
}

TEST(CorelinkLex, ANameIsLettersDigitsAndUnderscores)
{
    EXPECT_EQ(tokens_of("Zz_09az A1 _9"),
              (Tokens{{kIdentifier, "Zz_09az"}, {kIdentifier, "A1"}, {kIdentifier, "_9"}}));
    EXPECT_EQ(tokens_of("ab-cd"), (Tokens{{kIdentifier, "ab"}, other, {kIdentifier, "cd"}}));
    EXPECT_EQ(tokens_of("1ab"), (Tokens{{kNumber, "1"}, {kIdentifier, "ab"}}));
    EXPECT_EQ(tokens_of("\xC3\xA4z"), (Tokens{other, other, other}));
}

TEST(CorelinkLex, TrueAndFalseAreWordsOnTheirOwnOnly)
{
    EXPECT_EQ(tokens_of("true false"), (Tokens{{kBoolean, "1"}, {kBoolean, "0"}}));
    EXPECT_EQ(tokens_of("truex falsey True FALSE tru"), (Tokens{{kIdentifier, "truex"},
                                                                {kIdentifier, "falsey"},
                                                                {kIdentifier, "True"},
                                                                {kIdentifier, "FALSE"},
                                                                {kIdentifier, "tru"}}));
    EXPECT_EQ(tokens_of("true1 true_ _true"),
              (Tokens{{kIdentifier, "true1"}, {kIdentifier, "true_"}, {kIdentifier, "_true"}}));
    EXPECT_EQ(tokens_of("true.false"),
              (Tokens{{kBoolean, "1"}, punctuation('.'), {kBoolean, "0"}}));
}

TEST(CorelinkLex, ReadsDecimalNumbers)
{
    EXPECT_EQ(tokens_of("0 007 4294967296 18446744073709551615"),
              (Tokens{{kNumber, "0"},
                      {kNumber, "7"},
                      {kNumber, "4294967296"},
                      {kNumber, "18446744073709551615"}}));
}

TEST(CorelinkLex, ReadsHexadecimalNumbers)
{
    EXPECT_EQ(tokens_of("0x1F 0XaBcDeF 0xffffffffffffffff 0x0"),
              (Tokens{{kNumber, "31"},
                      {kNumber, "11259375"},
                      {kNumber, "18446744073709551615"},
                      {kNumber, "0"}}));
}

TEST(CorelinkLex, TakesTheLargestNumberForAllThatAreLarger)
{
    const std::string largest = "18446744073709551615";
    for (const std::string text :
         {"18446744073709551616", "18446744073709551620", "99999999999999999999999",
          "0x10000000000000000", "0xffffffffffffffff0"}) {
        errno = EXDEV;
        EXPECT_EQ(tokens_of(text), (Tokens{{kNumber, largest}})) << text;
        EXPECT_EQ(errno, EXDEV) << "the scanner leaves errno alone";
    }
    EXPECT_EQ(tokens_of("00000000000000000000000000018446744073709551614"),
              (Tokens{{kNumber, "18446744073709551614"}}));
}

TEST(CorelinkLex, ReadsNumbersAsStrtoullDoes)
{
    std::mt19937 random(1);
    for (int i = 0; i < 500; ++i) {
        const bool hex = random() % 2 == 0;
        std::string text = hex ? "0x" : "";
        const size_t digits = 1 + random() % 22;
        for (size_t k = 0; k < digits; ++k)
            text += hex ? "0123456789abcdefABCDEF"[random() % 22] : "0123456789"[random() % 10];
        const uint64_t expected = strtoull(text.c_str(), nullptr, hex ? 16 : 10);
        EXPECT_EQ(tokens_of(text), (Tokens{{kNumber, std::to_string(expected)}})) << text;
    }
}

TEST(CorelinkLex, HexWithoutDigitsIsZeroAndWhatFollows)
{
    EXPECT_EQ(tokens_of("0x"), (Tokens{{kNumber, "0"}, other}));
    EXPECT_EQ(tokens_of("0xg"), (Tokens{{kNumber, "0"}, {kIdentifier, "xg"}}));
    EXPECT_EQ(tokens_of("0x."), (Tokens{{kNumber, "0"}, other, punctuation('.')}));
}

TEST(CorelinkLex, ASignIsNoPartOfANumber)
{
    EXPECT_EQ(tokens_of("-1 +2"), (Tokens{other, {kNumber, "1"}, other, {kNumber, "2"}}));
}

TEST(CorelinkLex, AStringIsWhatStandsBetweenQuotes)
{
    EXPECT_EQ(tokens_of("\"text\"\"\"\" , \""),
              (Tokens{{kString, "text"}, {kString, ""}, {kString, " , "}}));
}

TEST(CorelinkLex, AStringKeepsItsEscapes)
{
    EXPECT_EQ(tokens_of(R"("a\"b" "\\" "\n\x")"),
              (Tokens{{kString, R"(a\"b)"}, {kString, R"(\\)"}, {kString, R"(\n\x)"}}));
}

TEST(CorelinkLex, AStringMayHoldLineFeedsButNoneAfterABackslash)
{
    EXPECT_EQ(tokens_of("\"one\ntwo\""), (Tokens{{kString, "one\ntwo"}}));
    EXPECT_EQ(tokens_of("\"ab\\\ncd\""),
              (Tokens{other, {kIdentifier, "ab"}, other, {kIdentifier, "cd"}, other}));
}

TEST(CorelinkLex, AStringMayHoldAnyByte)
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        if (byte != '"' && byte != '\\') bytes += static_cast<char>(byte);
    EXPECT_EQ(tokens_of("\"" + bytes + "\""), (Tokens{{kString, bytes}}));
}

TEST(CorelinkLex, AnUnclosedStringIsALoneQuote)
{
    EXPECT_EQ(tokens_of("\"ab"), (Tokens{other, {kIdentifier, "ab"}}));
    EXPECT_EQ(tokens_of("\""), (Tokens{other}));
    EXPECT_EQ(tokens_of("\"ab\\\""), (Tokens{other, {kIdentifier, "ab"}, other, other}));
}

TEST(CorelinkLex, FindsTheWordsThatPlainLoopsFind)
{
    std::mt19937 random(7);
    const std::string alphabet = "00xX19afFtrue\"\"\"\\\\\n ,=.[_z-";
    for (int i = 0; i < 20000; ++i) {
        std::string text(random() % 24, ' ');
        for (char &c : text) c = alphabet[random() % alphabet.size()];
        const Scanner scanner(text);
        ASSERT_EQ(scanned_words(scanner), words_of(text)) << text;
        if (i % 10 != 0) continue;
        const Stream stream(text);
        const Scanner piecewise;
        yy_switch_to_buffer(yy_create_buffer(stream, 1 + i % 7, piecewise), piecewise);
        ASSERT_EQ(scanned_words(piecewise), words_of(text)) << "from a stream: " << text;
    }
}

TEST(CorelinkLex, ThereAreNoComments)
{
    EXPECT_EQ(tokens_of("#ab"), (Tokens{other, {kIdentifier, "ab"}}));
    EXPECT_EQ(tokens_of("//"), (Tokens{other, other}));
}

TEST(CorelinkLex, EveryOtherByteIsOther)
{
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != 0 && strchr(" \t\r\n,.=[]{}0123456789", byte) != nullptr) continue;
        EXPECT_EQ(tokens_of(std::string(1, static_cast<char>(byte))), (Tokens{other})) << byte;
    }
}

TEST(CorelinkLex, NulBytesDoNotEndAText)
{
    using namespace std::string_literals;
    EXPECT_EQ(tokens_of("ab\0cd"s), (Tokens{{kIdentifier, "ab"}, other, {kIdentifier, "cd"}}));
    EXPECT_EQ(tokens_of("\0"s), (Tokens{other}));
    const Scanner scanner("\"a\0b\"\0"s);
    clparse_lex_value value;
    ASSERT_EQ(yylex(&value, scanner), kString);
    EXPECT_EQ(memcmp(value.text, "a\0b", 4), 0);
    vn_memcheck_free(free, value.text, "test:1");
    EXPECT_EQ(yylex(&value, scanner), kOther);
    EXPECT_EQ(yylex(&value, scanner), 0);
}

TEST(CorelinkLex, ScanStringEndsAtTheNul)
{
    const Scanner scanner;
    EXPECT_NE(yy_scan_string("ab\0cd", scanner), nullptr);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ab"}}));
}

TEST(CorelinkLex, ScanStringCopiesTheText)
{
    const Scanner scanner;
    char text[] = "ab=12";
    yy_scan_string(text, scanner);
    memset(text, '!', sizeof text - 1);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ab"}, punctuation('='), {kNumber, "12"}}));
}

TEST(CorelinkLex, KeepsTheMatchedTextUntilTheNextToken)
{
    const Scanner scanner("ab=0x10");
    clparse_lex_value value;
    yylex(&value, scanner);
    vn_memcheck_free(free, value.text, "test:1");
    EXPECT_STREQ(yyget_text(scanner), "ab");
    EXPECT_EQ(yyget_leng(scanner), 2);
    yylex(&value, scanner);
    yylex(&value, scanner);
    EXPECT_STREQ(yyget_text(scanner), "0x10");
    EXPECT_EQ(yyget_leng(scanner), 4);
}

TEST(CorelinkLex, AskingForATokensTextChangesNothingElse)
{
    char memory[] = "ab=\"cd\"xy\0";
    const std::string before(memory, sizeof memory);
    const Scanner scanner;
    yy_buffer_state *buffer = yy_scan_buffer(memory, sizeof memory, scanner);
    EXPECT_EQ(rest_of(scanner).size(), 4u);
    EXPECT_EQ(std::string(memory, sizeof memory), before) << "nobody asked";
    yy_delete_buffer(buffer, scanner);

    buffer = yy_scan_buffer(memory, sizeof memory, scanner);
    EXPECT_STREQ(yyget_text(scanner), before.c_str()) << "no token yet";
    clparse_lex_value value;
    ASSERT_EQ(yylex(&value, scanner), kIdentifier);
    vn_memcheck_free(free, value.text, "test:1");
    EXPECT_STREQ(yyget_text(scanner), "ab");
    EXPECT_STREQ(yyget_text(scanner), "ab") << "twice";
    const Stream stream("other");
    yy_buffer_state *const file_buffer = yy_create_buffer(stream, 16, scanner);
    yy_switch_to_buffer(file_buffer, scanner);
    EXPECT_EQ(std::string(memory, sizeof memory), before) << "left as it was";
    yy_switch_to_buffer(buffer, scanner);
    EXPECT_EQ(scanned_words(scanner),
              (Tokens{{'=', "="}, {kString, "\"cd\""}, {kIdentifier, "xy"}}));
    EXPECT_EQ(std::string(memory, sizeof memory), before);
    EXPECT_STREQ(yyget_text(scanner), "");
    EXPECT_EQ(yyget_leng(scanner), 0);
    yy_delete_buffer(file_buffer, scanner);
}

TEST(CorelinkLex, NulBytesAreCharactersWhereverAPieceOfAStreamEnds)
{
    using namespace std::string_literals;
    const std::string text = "ab\0\0\"c\0\\\0d\"\0"s;
    for (int size = 1; size < 16; ++size) {
        const Stream stream(text);
        const Scanner scanner;
        yy_switch_to_buffer(yy_create_buffer(stream, size, scanner), scanner);
        EXPECT_EQ(rest_of(scanner),
                  (Tokens{{kIdentifier, "ab"}, other, other, {kString, "c"}, other}))
            << size;
    }
}

TEST(CorelinkLex, AHugeStringTakesLinearTime)
{
    constexpr size_t kSize = 20'000'000;
    std::string text(kSize + 2, 'x');
    text.front() = text.back() = '"';
    const Scanner scanner(text);
    clparse_lex_value value;
    ASSERT_EQ(yylex(&value, scanner), kString);
    EXPECT_EQ(strlen(value.text), kSize);
    vn_memcheck_free(free, value.text, "test:1");
}

TEST(CorelinkLex, AHugeStringFromAStreamTakesLinearTime)
{
    constexpr size_t kSize = 20'000'000;
    std::string text(kSize + 2, 'x');
    text.front() = text.back() = '"';
    const Stream stream(text);
    const Scanner scanner;
    yyset_in(stream, scanner);
    clparse_lex_value value;
    ASSERT_EQ(yylex(&value, scanner), kString);
    EXPECT_EQ(strlen(value.text), kSize);
    vn_memcheck_free(free, value.text, "test:1");
    EXPECT_EQ(yylex(&value, scanner), 0);
}

TEST(CorelinkScanner, StartsWithoutAnything)
{
    void *scanner = nullptr;
    ASSERT_EQ(yylex_init(&scanner), 0);
    EXPECT_EQ(yyget_extra(scanner), nullptr);
    EXPECT_EQ(yyget_in(scanner), nullptr);
    EXPECT_EQ(yyget_out(scanner), nullptr);
    EXPECT_EQ(yyget_lineno(scanner), 0);
    EXPECT_EQ(yyget_column(scanner), 0);
    EXPECT_EQ(yyget_leng(scanner), 0);
    EXPECT_EQ(yyget_debug(scanner), 0);
    EXPECT_EQ(yyget_lval(scanner), nullptr);
    EXPECT_EQ(yylex_destroy(scanner), 0);
}

TEST(CorelinkScanner, InitRefusesNull)
{
    errno = 0;
    EXPECT_NE(yylex_init(nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_NE(yylex_init_extra(nullptr, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
}

TEST(CorelinkScanner, KeepsWhatIsSet)
{
    int extra = 0;
    void *scanner = nullptr;
    ASSERT_EQ(yylex_init_extra(&extra, &scanner), 0);
    EXPECT_EQ(yyget_extra(scanner), &extra);
    clparse_lex_value value;
    yyset_extra(scanner, scanner);
    yyset_in(stdin, scanner);
    yyset_out(stdout, scanner);
    yyset_debug(1, scanner);
    yyset_lval(&value, scanner);
    EXPECT_EQ(yyget_extra(scanner), scanner);
    EXPECT_EQ(yyget_in(scanner), stdin);
    EXPECT_EQ(yyget_out(scanner), stdout);
    EXPECT_EQ(yyget_debug(scanner), 1);
    EXPECT_EQ(yyget_lval(scanner), &value);
    yylex_destroy(scanner);
}

TEST(CorelinkScanner, KeepsALineAndAColumnWithTheBuffer)
{
    const Scanner scanner("ab\ncd");
    yyset_lineno(41, scanner);
    yyset_column(17, scanner);
    rest_of(scanner);
    EXPECT_EQ(yyget_lineno(scanner), 41) << "the scanner does not count lines";
    EXPECT_EQ(yyget_column(scanner), 17);
}

TEST(CorelinkScanner, SaysThatALineNeedsABuffer)
{
    const Scanner scanner;
    EXPECT_EQ(test::capture_fd(2, [&] { yyset_lineno(1, scanner); }),
              "yyset_lineno called with no buffer\n");
    EXPECT_EQ(test::capture_fd(2, [&] { yyset_column(1, scanner); }),
              "yyset_column called with no buffer\n");
    EXPECT_NE(yy_scan_string("ab", scanner), nullptr) << "and can be used on";
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ab"}}));
}

TEST(CorelinkScanner, ReadsItsStreamWhenThereIsNoBuffer)
{
    const Stream stream("ab=\"" + std::string(50'000, 'x') + "\",12");
    const Scanner scanner;
    yyset_in(stream, scanner);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ab"},
                                        punctuation('='),
                                        {kString, std::string(50'000, 'x')},
                                        punctuation(','),
                                        {kNumber, "12"}}));
}

TEST(CorelinkScanner, GrowsABufferFromAnySize)
{
    for (const int size : {-5, 0, 1, 2, 3, 7, 16}) {
        const Stream stream("name \"" + std::string(100, 'y') + "\" 123456789");
        const Scanner scanner;
        yy_switch_to_buffer(yy_create_buffer(stream, size, scanner), scanner);
        EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "name"},
                                            {kString, std::string(100, 'y')},
                                            {kNumber, "123456789"}}))
            << size;
    }
}

TEST(CorelinkScanner, CanBeginAnew)
{
    const Stream first("ab cd"), second("ef");
    const Scanner scanner;
    yyrestart(first, scanner);
    clparse_lex_value value;
    EXPECT_EQ(yylex(&value, scanner), kIdentifier);
    vn_memcheck_free(free, value.text, "test:1");
    yyrestart(second, scanner);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ef"}}));
}

TEST(CorelinkScanner, CanBeginAnewInTheBufferOfAnEmptyText)
{
    const Stream stream("name=123");
    const Scanner scanner("");
    yyrestart(stream, scanner);
    EXPECT_EQ(rest_of(scanner),
              (Tokens{{kIdentifier, "name"}, punctuation('='), {kNumber, "123"}}));
}

TEST(CorelinkScanner, StacksBuffers)
{
    const Scanner scanner;
    yy_scan_string("outer rest", scanner);
    clparse_lex_value value;
    yylex(&value, scanner);
    vn_memcheck_free(free, value.text, "test:1");
    const Stream stream("inner");
    for (int depth = 0; depth < 20; ++depth) {
        yypush_buffer_state(yy_create_buffer(stream, 16, scanner), scanner);
        EXPECT_EQ(rest_of(scanner), (depth == 0 ? Tokens{{kIdentifier, "inner"}} : Tokens{}));
    }
    for (int depth = 0; depth < 20; ++depth) yypop_buffer_state(scanner);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "rest"}}));
    yypop_buffer_state(scanner);
    yypop_buffer_state(scanner);
}

TEST(CorelinkScanner, SwitchesBetweenBuffers)
{
    const Scanner scanner;
    yy_buffer_state *const first = yy_scan_string("ab", scanner);
    yy_buffer_state *const second = yy_scan_string("cd", scanner);
    yy_switch_to_buffer(first, scanner);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ab"}}));
    yy_switch_to_buffer(second, scanner);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "cd"}}));
    yy_delete_buffer(first, scanner);
    yy_delete_buffer(nullptr, scanner);
}

TEST(CorelinkScanner, HasNothingToReadOnceItsLastBufferIsGone)
{
    const Scanner fresh("12 34"), begun("12 34"), deleted;
    clparse_lex_value value;
    yypop_buffer_state(fresh);
    EXPECT_EQ(yylex(&value, fresh), 0);
    EXPECT_EQ(yylex(&value, begun), kNumber);
    yypop_buffer_state(begun);
    EXPECT_EQ(yylex(&value, begun), 0);
    yy_delete_buffer(yy_scan_string("12", deleted), deleted);
    EXPECT_EQ(yylex(&value, deleted), 0);
    yy_scan_string("56", deleted);
    EXPECT_EQ(rest_of(deleted), (std::vector<Token>{{kNumber, "56"}}));
}

TEST(CorelinkScanner, SwitchingToNoBufferChangesNothing)
{
    const Scanner scanner("12");
    yy_switch_to_buffer(nullptr, scanner);
    EXPECT_EQ(rest_of(scanner), (std::vector<Token>{{kNumber, "12"}}));
}

TEST(CorelinkScanner, ReadsNothingFromNoStream)
{
    const Scanner created, begun_anew;
    clparse_lex_value value;
    yy_switch_to_buffer(yy_create_buffer(nullptr, 64, created), created);
    EXPECT_EQ(yylex(&value, created), 0);
    yyrestart(nullptr, begun_anew);
    EXPECT_EQ(yylex(&value, begun_anew), 0);
}

TEST(CorelinkScanner, ReadsAStreamFromWhereTheProgramHasReadTo)
{
    FILE *const stream = tmpfile();
    fputs("first line\n12 34", stream);
    rewind(stream);
    char line[64];
    ASSERT_STREQ(fgets(line, sizeof line, stream), "first line\n");
    const Scanner scanner;
    yyset_in(stream, scanner);
    EXPECT_EQ(rest_of(scanner), (std::vector<Token>{{kNumber, "12"}, {kNumber, "34"}}));
    fclose(stream);
}

TEST(CorelinkScanner, ReadsAStreamWithoutADescriptor)
{
    char text[] = "ab=12";
    FILE *const stream = fmemopen(text, strlen(text), "r");
    const Scanner scanner;
    yyrestart(stream, scanner);
    EXPECT_EQ(rest_of(scanner),
              (std::vector<Token>{{kIdentifier, "ab"}, punctuation('='), {kNumber, "12"}}));
    fclose(stream);
}

TEST(CorelinkScanner, FlushDropsWhatIsLeft)
{
    const Scanner scanner;
    yy_buffer_state *const buffer = yy_scan_string("ab cd", scanner);
    yy_flush_buffer(buffer, scanner);
    EXPECT_EQ(rest_of(scanner), Tokens{});
}

TEST(CorelinkScanner, ScansTheCallersMemoryInPlace)
{
    const Scanner scanner;
    char text[] = "ab=12\0"; // two NUL bytes with the one that ends the literal
    EXPECT_NE(yy_scan_buffer(text, sizeof text, scanner), nullptr);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ab"}, punctuation('='), {kNumber, "12"}}));
}

TEST(CorelinkScanner, ScanBufferNeedsTwoNulsAtTheEnd)
{
    const Scanner scanner;
    char text[] = "ab";
    EXPECT_EQ(yy_scan_buffer(text, sizeof text, scanner), nullptr);
    EXPECT_EQ(yy_scan_buffer(text, 1, scanner), nullptr);
    EXPECT_EQ(yy_scan_buffer(text, 0, scanner), nullptr);
    EXPECT_EQ(yy_scan_buffer(nullptr, 2, scanner), nullptr);
}

TEST(CorelinkScanner, ACallersMemoryIsNeverGrown)
{
    const Stream stream("\"" + std::string(100, 'x') + "\"");
    const Scanner scanner;
    char memory[10] = "ab";
    yy_scan_buffer(memory, sizeof memory, scanner);
    yyrestart(stream, scanner); // the stream goes through the caller's ten bytes
    clparse_lex_value value;
    int token = -1;
    const std::string message = test::capture_fd(2, [&] { token = yylex(&value, scanner); });
    EXPECT_EQ(token, 0);
    EXPECT_EQ(message, "fatal error - scanner input buffer overflow\n");
    EXPECT_EQ(yylex(&value, scanner), 0);
    yypop_buffer_state(scanner);
    EXPECT_NE(yy_scan_string("ab", scanner), nullptr);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ab"}}));
}

TEST(CorelinkScanner, AReadErrorIsReportedAndEndsTheInput)
{
    FILE *const directory = fopen("/", "r"); // can be opened, but not read
    ASSERT_NE(directory, nullptr);
    const Scanner scanner;
    yyset_in(directory, scanner);
    clparse_lex_value value;
    int token = -1;
    EXPECT_EQ(test::capture_fd(2, [&] { token = yylex(&value, scanner); }),
              "input in flex scanner failed\n");
    EXPECT_EQ(token, 0);
    fclose(directory);
}

TEST(CorelinkScanner, NullArgumentsAreAnsweredSafely)
{
    clparse_lex_value value;
    EXPECT_EQ(yylex(&value, nullptr), 0);
    EXPECT_EQ(yylex_destroy(nullptr), 0);
    EXPECT_EQ(yy_scan_string("ab", nullptr), nullptr);
    EXPECT_EQ(yy_scan_bytes("ab", 2, nullptr), nullptr);
    EXPECT_EQ(yy_create_buffer(stdin, 16, nullptr), nullptr);
    EXPECT_EQ(yyget_text(nullptr), nullptr);
    EXPECT_EQ(yyget_leng(nullptr), 0);
    yyset_lineno(1, nullptr);
    yyset_extra(nullptr, nullptr);
    yy_switch_to_buffer(nullptr, nullptr);
    yy_delete_buffer(nullptr, nullptr);
    yy_flush_buffer(nullptr, nullptr);
    yypush_buffer_state(nullptr, nullptr);
    yypop_buffer_state(nullptr);
    yyrestart(nullptr, nullptr);

    const Scanner scanner("ab");
    EXPECT_EQ(yylex(nullptr, scanner), 0);
    EXPECT_EQ(yy_scan_string(nullptr, scanner), nullptr);
    EXPECT_EQ(yy_scan_bytes(nullptr, 1, scanner), nullptr);
    EXPECT_EQ(yy_scan_bytes("ab", -1, scanner), nullptr);
    yypush_buffer_state(nullptr, scanner);
    yy_flush_buffer(nullptr, scanner);
    EXPECT_EQ(rest_of(scanner), (Tokens{{kIdentifier, "ab"}}));
}

TEST(CorelinkScanner, GivesAndTakesMemory)
{
    void *block = yyalloc(10, nullptr);
    ASSERT_NE(block, nullptr);
    memset(block, 7, 10);
    block = yyrealloc(block, 1000, nullptr);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(static_cast<char *>(block)[9], 7);
    yyfree(block, nullptr);
    yyfree(nullptr, nullptr);
}

TEST(CorelinkScanner, ScannersOfDifferentThreadsAreIndependent)
{
    const auto work = [](const std::string &name) {
        for (int i = 0; i < 200; ++i) {
            EXPECT_EQ(tokens_of(name + "=1"),
                      (Tokens{{kIdentifier, name}, punctuation('='), {kNumber, "1"}}));
            const Scanner empty;
            yy_scan_bytes("", -1, empty);
        }
    };
    std::thread first(work, "first"), second(work, "second");
    first.join();
    second.join();
}
