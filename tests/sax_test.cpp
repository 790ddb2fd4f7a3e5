#include "vnlib/sax.h"

#include <cerrno>
#include <cstddef>
#include <dirent.h>
#include <memory>
#include <random>
#include <thread>
#include <unistd.h>
#include <wchar.h>

#include "support/sax_reference.h"

using sax_reference::Events;
using sax_reference::kRecording;

namespace {

struct Close {
    void operator()(FILE *stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, Close>;

// A stream over `document`, which must live as long as it.
Stream open_memory(const std::string &document)
{
    if (document.empty()) return Stream(fopen("/dev/null", "r"));
    return Stream(fmemopen(const_cast<char *>(document.data()), document.size(), "r"));
}

struct Outcome {
    int result = 0;
    long position = 0;
    Events events;
    bool operator==(const Outcome &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Outcome &outcome)
{
    out << outcome.result << " at " << outcome.position;
    for (const std::string &event : outcome.events) out << "\n  " << event;
    return out;
}

Outcome parse(const std::string &document)
{
    const Stream stream = open_memory(document);
    Outcome outcome;
    outcome.result = sax_parse_file(stream.get(), &kRecording, &outcome.events);
    outcome.position = ftell(stream.get());
    return outcome;
}

Outcome parse_plainly(const std::string &document)
{
    const Stream stream = open_memory(document);
    Outcome outcome;
    outcome.result = sax_reference::Machine(stream.get(), outcome.events).run();
    outcome.position = ftell(stream.get());
    return outcome;
}

Events events_of(const std::string &document)
{
    return parse(document).events;
}

// The document fails with this text after no other event.
void expect_error(const std::string &document, const std::string &text)
{
    const Outcome outcome = parse(document);
    EXPECT_EQ(outcome.result, -1) << document;
    EXPECT_EQ(outcome.events, Events{"error " + text}) << document;
}

// What brings the machine into each state.
const std::string kWayInto[16] = {"",      "<",        "<a",         "</a",    "<a ",  "<a b",
                                  "<a b=", "<a b=\"c", "<a b=\"\"/", "t&amp",  "<!Dx", "<!",
                                  "<!-",   "<!--x",    "<!--x-",     "<!--x--"};

// ---- the table
// -----------------------------------------------------------------------------------

TEST(SaxTable, HasTheRowsInTheirOrder)
{
    for (size_t i = 0; i < 51; ++i) {
        const sax_transition &row = state_machine[i];
        const sax_reference::Row &expected = sax_reference::kRows[i];
        EXPECT_EQ(row.state, expected.state) << "row " << i;
        EXPECT_EQ(row.ch, expected.ch) << "row " << i;
        EXPECT_EQ(row.ch_last, expected.ch_last) << "row " << i;
        EXPECT_EQ(row.next, expected.next) << "row " << i;
        EXPECT_EQ(row.action, expected.action) << "row " << i;
    }
    EXPECT_EQ(sizeof state_machine / sizeof state_machine[0], 51u);
}

TEST(SaxTable, RowsLieInMemoryAsDeclared)
{
    EXPECT_EQ(offsetof(sax_transition, state), 0u);
    EXPECT_EQ(offsetof(sax_transition, ch), 4u);
    EXPECT_EQ(offsetof(sax_transition, ch_last), 5u);
    EXPECT_EQ(offsetof(sax_transition, next), 8u);
    EXPECT_EQ(offsetof(sax_transition, action), 12u);
    EXPECT_EQ(sizeof(sax_transition), 16u);
}

TEST(SaxTable, CallbackAndAttributeRecordsKeepTheirOrder)
{
    const size_t pointer = sizeof(void *);
    EXPECT_EQ(offsetof(sax_callbacks, start_element), 0 * pointer);
    EXPECT_EQ(offsetof(sax_callbacks, end_element), 1 * pointer);
    EXPECT_EQ(offsetof(sax_callbacks, text), 4 * pointer);
    EXPECT_EQ(offsetof(sax_callbacks, comment), 5 * pointer);
    EXPECT_EQ(offsetof(sax_callbacks, error), 6 * pointer);
    EXPECT_EQ(sizeof(sax_callbacks), 7 * pointer);
    EXPECT_EQ(offsetof(sax_attribute, name), 0 * pointer);
    EXPECT_EQ(offsetof(sax_attribute, value), 1 * pointer);
    EXPECT_EQ(offsetof(sax_attribute, next), 2 * pointer);
}

// ---- against the plain walk
// ----------------------------------------------------------------------

TEST(SaxAgainstThePlainWalk, EveryByteInEveryState)
{
    const std::string tails[] = {"", ">", "a", "\"", "--> x<", " b=\"c\"><z>"};
    for (const std::string &way : kWayInto) {
        for (int byte = 0; byte < 256; ++byte) {
            for (const std::string &tail : tails) {
                const std::string document = way + static_cast<char>(byte) + tail;
                ASSERT_EQ(parse(document), parse_plainly(document))
                    << way << " + byte " << byte << " + " << tail;
            }
        }
    }
}

TEST(SaxAgainstThePlainWalk, EveryPairOfBytesInContent)
{
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; second += 1 + first % 3) {
            const std::string document{
                '<', 'a', '>', static_cast<char>(first), static_cast<char>(second), '<'};
            ASSERT_EQ(parse(document), parse_plainly(document)) << first << " " << second;
        }
    }
}

// Documents made of fragments, most of them well-formed for a while.
std::string random_document(std::mt19937 &random)
{
    static const std::string kFragments[] = {"<a>",
                                             "</a>",
                                             "<Item9 x=\"1\">",
                                             "<b\t",
                                             " k-K=\"v<&>v\"",
                                             ">",
                                             "/>",
                                             "<br/>",
                                             "< p >",
                                             "&amp;",
                                             "&lt;",
                                             "&unknown;",
                                             "&q",
                                             "<!-- c -->",
                                             "<!--",
                                             "-->",
                                             "-",
                                             "<!DOCTYPE x>",
                                             "\n",
                                             " ",
                                             "text ",
                                             "\t",
                                             "\x80\xFF",
                                             "=",
                                             "\"",
                                             "<e a=\"\"b=\"2\"/>",
                                             "<!-x->",
                                             "<?xml?>"};
    std::string document;
    const auto pieces = random() % 12;
    for (size_t i = 0; i < pieces; ++i) {
        const auto choice = random() % 40;
        if (choice < std::size(kFragments)) {
            document += kFragments[choice];
        } else if (choice < 34) {
            document += std::string(random() % 700, "xyZ7 \n-"[random() % 7]);
        } else if (choice == 34) {
            document += static_cast<char>(random());
        } else {
            document += "<row n=\"" + std::string(random() % 300, 'v') + "\">" +
                        std::string(random() % 300, 't') + "</row>";
        }
    }
    return document;
}

TEST(SaxAgainstThePlainWalk, RandomDocuments)
{
    std::mt19937 random(81);
    unsigned ended = 0, failed = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string document = random_document(random);
        const Outcome outcome = parse(document);
        ASSERT_EQ(outcome, parse_plainly(document)) << document;
        ++(outcome.result == 0 ? ended : failed);
    }
    EXPECT_GT(ended, 2000u); // both ways out have been taken often
    EXPECT_GT(failed, 2000u);
}

TEST(SaxAgainstThePlainWalk, RandomBytesOfTheAlphabet)
{
    std::mt19937 random(18);
    for (int i = 0; i < 20000; ++i) {
        std::string document = kWayInto[random() % 16];
        for (auto n = random() % 24; n > 0; --n)
            document += "<>/!-D?&;=\" \t\naZ9\x01"[random() % 18];
        ASSERT_EQ(parse(document), parse_plainly(document)) << document;
    }
}

// A pipe that another thread fills in pieces of changing sizes.
TEST(SaxAgainstThePlainWalk, DocumentsThroughAPipe)
{
    std::mt19937 random(6);
    for (int i = 0; i < 40; ++i) {
        std::string document;
        while (document.size() < 6000) document += random_document(random);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const Stream stream(fdopen(ends[0], "r"));
        std::thread writer([&, out = ends[1]] {
            for (size_t at = 0, size = 1; at < document.size();
                 at += size, size = size * 3 % 1021) {
                size = std::min(size, document.size() - at);
                if (write(out, document.data() + at, size) < 0) break;
            }
            close(out);
        });
        Outcome outcome;
        outcome.result = sax_parse_file(stream.get(), &kRecording, &outcome.events);
        std::string rest; // what the parser left for the next reader
        for (int c = fgetc(stream.get()); c != EOF; c = fgetc(stream.get()))
            rest += static_cast<char>(c);
        writer.join();
        outcome.position = static_cast<long>(document.size() - rest.size());
        ASSERT_EQ(outcome, parse_plainly(document));
    }
}

// ---- the streams that a document may come from
// -----------------------------------------------------------------------------------

// How a stream over a document is made. Each is another way for its characters to be, or not to be,
// in the stream's buffer; both parsers get one of the same kind.
struct Kind {
    const char *name;
    FILE *(*open)(const std::string &document, size_t size); // a size to be used somehow, 1 to 40
    int (*close)(FILE *) = fclose;
};

FILE *open_file(const std::string &document)
{
    FILE *const file = tmpfile();
    fwrite(document.data(), 1, document.size(), file);
    rewind(file);
    return file;
}

FILE *open_in_memory(const std::string &document, size_t)
{
    return fmemopen(const_cast<char *>(document.data()), document.size(), "r");
}

FILE *open_with_buffer(const std::string &document, size_t size)
{
    static char buffer[64];
    FILE *const file = open_file(document);
    setvbuf(file, buffer, _IOFBF, size);
    return file;
}

FILE *open_unbuffered(const std::string &document, size_t)
{
    FILE *const file = open_file(document);
    setvbuf(file, nullptr, _IONBF, 0);
    return file;
}

FILE *open_pipe(const std::string &document, size_t)
{
    int ends[2];
    if (pipe(ends) != 0) return nullptr;
    EXPECT_EQ(write(ends[1], document.data(), document.size()), ssize_t(document.size()));
    close(ends[1]);
    return fdopen(ends[0], "r");
}

FILE *open_command(const std::string &document, size_t)
{
    char name[] = "/tmp/sax_testXXXXXX";
    const int fd = mkstemp(name);
    EXPECT_EQ(write(fd, document.data(), document.size()), ssize_t(document.size()));
    close(fd);
    return popen((std::string("cat ") + name + "; rm " + name).c_str(), "r");
}

// Gives `size` bytes a call.
struct Cookie {
    std::string document;
    size_t size, at = 0;

    static ssize_t read(void *cookie, char *to, size_t most)
    {
        auto &self = *static_cast<Cookie *>(cookie);
        const size_t count = self.document.copy(to, std::min(most, self.size), self.at);
        self.at += count;
        return static_cast<ssize_t>(count);
    }
    static int close(void *cookie)
    {
        delete static_cast<Cookie *>(cookie);
        return 0;
    }
};
FILE *open_cookie(const std::string &document, size_t size)
{
    return fopencookie(new Cookie{document, size}, "r",
                       {Cookie::read, nullptr, nullptr, Cookie::close});
}

FILE *open_pushed_back(const std::string &document, size_t)
{
    FILE *const file = open_file(document.substr(1));
    ungetc(document[0], file);
    return file;
}

FILE *open_replaced(const std::string &document, size_t)
{
    FILE *const file = open_file("?" + document.substr(1));
    fgetc(file);
    ungetc(document[0], file); // not what was read
    return file;
}

FILE *open_written_to(const std::string &document, size_t size)
{
    FILE *const file = open_file(document);
    size = std::min(size, document.size());
    fwrite(document.data(), 1, size, file);
    fseek(file, 0, SEEK_CUR); // from here on it may be read
    return file;
}

FILE *open_wide(const std::string &document, size_t)
{
    FILE *const narrow = open_file("w" + document);
    FILE *const wide = fdopen(dup(fileno(narrow)), "r");
    fclose(narrow);
    EXPECT_EQ(fgetwc(wide), wint_t{'w'});
    return wide; // no place for single bytes any more
}

const Kind kKinds[] = {
    {"file", [](const std::string &document, size_t) { return open_file(document); }},
    {"file with a small buffer", open_with_buffer},
    {"unbuffered file", open_unbuffered},
    {"memory", open_in_memory},
    {"pipe", open_pipe},
    {"command", open_command, pclose},
    {"cookie", open_cookie},
    {"character pushed back at the start", open_pushed_back},
    {"other character pushed back", open_replaced},
    {"file that was written to", open_written_to},
    {"wide stream", open_wide},
};

// What a parse sees and leaves: the stream's position, and the characters behind it.
template <typename Parse>
Outcome outcome_on(const Kind &kind, const std::string &document, size_t size, Parse parse)
{
    FILE *const stream = kind.open(document, size);
    if (stream == nullptr) return {};
    Outcome outcome;
    outcome.result = parse(stream, outcome.events);
    outcome.position = ftell(stream);
    std::string rest;
    for (int c = fgetc(stream); c != EOF; c = fgetc(stream)) rest += static_cast<char>(c);
    outcome.events.push_back("rest " + rest);
    kind.close(stream);
    return outcome;
}

TEST(SaxStreams, OfEveryKindAreReadAndLeftAsByTheCharacter)
{
    std::mt19937 random(44);
    for (const Kind &kind : kKinds) {
        for (size_t i = 0; i < (kind.close == pclose ? 20 : 400); ++i) {
            const std::string document = "<first>" + random_document(random);
            const size_t size = 1 + i % 40;
            const auto real = [](FILE *stream, Events &events) {
                return sax_parse_file(stream, &kRecording, &events);
            };
            const auto plain = [](FILE *stream, Events &events) {
                return sax_reference::Machine(stream, events).run();
            };
            ASSERT_EQ(outcome_on(kind, document, size, real),
                      outcome_on(kind, document, size, plain))
                << kind.name << ", " << size << ": " << document;
        }
    }
}

// Callbacks that look where the stream stands, read some of it and push something back.
struct Meddler {
    FILE *stream;
    Events &events;

    void meddle()
    {
        events.push_back("at " + std::to_string(ftell(stream)));
        switch (events.size() / 2 % 5) {
        case 1: events.back() += static_cast<char>(fgetc(stream)); break;
        case 2: ungetc(fgetc(stream), stream); break;
        case 3: ungetc('u', stream); break;
        case 4:
            for (int i = 0; i < 7; ++i) fgetc(stream);
            break;
        default: break;
        }
    }
};
template <auto Record, typename... Arguments>
void record_and_meddle(Arguments... arguments, void *user)
{
    auto &meddler = *static_cast<Meddler *>(user);
    Record(arguments..., &meddler.events);
    meddler.meddle();
}

TEST(SaxStreams, MayBeMeddledWithByEveryCallback)
{
    using namespace sax_reference;
    constexpr sax_callbacks kMeddling = {
        record_and_meddle<on_start, const char *, const sax_attribute *>,
        record_and_meddle<on_end, const char *>,
        nullptr,
        nullptr,
        record_and_meddle<on_text, const char *, size_t>,
        record_and_meddle<on_comment, const char *>,
        record_and_meddle<on_error, const char *>};
    std::mt19937 random(45);
    for (const Kind &kind : kKinds) {
        if (kind.close == pclose) continue;
        for (size_t i = 0; i < 400; ++i) {
            const std::string document = "<first>" + random_document(random);
            const size_t size = 1 + i % 40;
            const auto real = [&](FILE *stream, Events &events) {
                Meddler meddler{stream, events};
                return sax_parse_file(stream, &kMeddling, &meddler);
            };
            const auto plain = [](FILE *stream, Events &events) {
                Meddler meddler{stream, events};
                return sax_reference::Machine(stream, events, [&] { meddler.meddle(); }).run();
            };
            ASSERT_EQ(outcome_on(kind, document, size, real),
                      outcome_on(kind, document, size, plain))
                << kind.name << ", " << size << ": " << document;
        }
    }
}

// ---- elements and attributes
// ---------------------------------------------------------------------

TEST(SaxElements, ReportStartTextAndEnd)
{
    EXPECT_EQ(events_of("<a x=\"1\" y=\"2\">hi</a>"),
              (Events{"start a [y=2] [x=1]", "text 2 hi", "end a"}));
}

TEST(SaxElements, AnEmptyElementStartsAndEnds)
{
    EXPECT_EQ(events_of("<br/>"), (Events{"start br", "end br"}));
    EXPECT_EQ(events_of("<br />"), (Events{"start br", "end br"}));
    EXPECT_EQ(events_of("<br a=\"1\"/>"), (Events{"start br [a=1]", "end br"}));
}

TEST(SaxElements, NamesAreLettersAndDigits)
{
    EXPECT_EQ(events_of("<9aZ></9aZ>"), (Events{"start 9aZ", "end 9aZ"}));
    for (const char c : {'-', '_', '.', ':'}) {
        expect_error(std::string("<a") + c,
                     std::string("Invalid XML Document: Invalid State (2: '") + c +
                         "') on line 0.");
    }
}

TEST(SaxElements, SpacesMayStandBeforeTheName)
{
    EXPECT_EQ(events_of("<  a><  /a>"), (Events{"start a", "end a"}));
}

TEST(SaxElements, AnEndTagMayHaveNoName)
{
    EXPECT_EQ(events_of("</>"), Events{"end "});
}

TEST(SaxElements, NestingIsNotChecked)
{
    EXPECT_EQ(events_of("</b><a></c>"), (Events{"end b", "start a", "end c"}));
}

TEST(SaxElements, NothingMayStandBetweenAnEndTagsNameAndItsEnd)
{
    expect_error("</a >", "Invalid XML Document: Invalid State (3: ' ') on line 0.");
}

TEST(SaxElements, OnlyASpaceMayFollowTheNameInAStartTag)
{
    expect_error("<a\tb=\"1\">", "Invalid XML Document: Invalid State (2: 0x09) on line 0.");
    expect_error("<a\n>", "Invalid XML Document: Invalid State (2: 0x0a) on line 1.");
}

TEST(SaxElements, AnEmptyTagIsAnError)
{
    expect_error("<>", "Invalid XML Document: Invalid State (1: '>') on line 0.");
}

TEST(SaxElements, NothingMayStandBehindTheSlashOfAnEmptyElement)
{
    expect_error("<a/ >", "Invalid XML Document: Invalid State (8: ' ') on line 0.");
}

TEST(SaxAttributes, MayBeSeparatedBySpacesTabsLineFeedsOrNothing)
{
    EXPECT_EQ(events_of("<a b=\"1\"\t\n c=\"2\"d=\"3\" >"), Events{"start a [d=3] [c=2] [b=1]"});
}

TEST(SaxAttributes, ValuesAreRaw)
{
    EXPECT_EQ(events_of("<a b=\"<&amp;'>\n\">"), Events{"start a [b=<&amp;'>\n]"});
    EXPECT_EQ(events_of("<a b=\"\">"), Events{"start a [b=]"});
}

TEST(SaxAttributes, NamesAreLettersAndDashesAndBeginWithALetter)
{
    EXPECT_EQ(events_of("<a X-y=\"1\">"), Events{"start a [X-y=1]"});
    expect_error("<a b1=\"1\">", "Invalid XML Document: Invalid State (5: '1') on line 0.");
    expect_error("<a -b=\"1\">", "Invalid XML Document: Invalid State (4: '-') on line 0.");
}

TEST(SaxAttributes, NoBlanksAroundTheEqualsSignAndDoubleQuotesOnly)
{
    expect_error("<a b =\"1\">", "Invalid XML Document: Invalid State (5: ' ') on line 0.");
    expect_error("<a b= \"1\">", "Invalid XML Document: Invalid State (6: ' ') on line 0.");
    expect_error("<a b='1'>", "Invalid XML Document: Invalid State (6: ''') on line 0.");
}

TEST(SaxAttributes, DoNotPassToTheNextElement)
{
    EXPECT_EQ(events_of("<a b=\"1\"><c><d e=\"2\"/><f>"),
              (Events{"start a [b=1]", "start c", "start d [e=2]", "end d", "start f"}));
}

TEST(SaxAttributes, AreStillThereWhenAnEmptyElementEnds)
{
    struct Seen {
        const sax_attribute *attributes = nullptr;
        std::string value_at_end;
    } seen;
    sax_callbacks callbacks{};
    callbacks.start_element = [](const char *, const sax_attribute *attributes, void *user) {
        static_cast<Seen *>(user)->attributes = attributes;
    };
    callbacks.end_element = [](const char *, void *user) {
        static_cast<Seen *>(user)->value_at_end = static_cast<Seen *>(user)->attributes->value;
    };
    const std::string document = "<a b=\"kept\"/>";
    const Stream stream = open_memory(document);
    EXPECT_EQ(sax_parse_file(stream.get(), &callbacks, &seen), 0);
    EXPECT_EQ(seen.value_at_end, "kept");
}

TEST(SaxAttributes, AThousandOfThem)
{
    std::string document = "<a", expected = "start a";
    for (int i = 0; i < 1000; ++i) document += " b=\"" + std::to_string(i) + "\"";
    for (int i = 1000; i-- > 0;) expected += " [b=" + std::to_string(i) + "]";
    EXPECT_EQ(events_of(document + ">"), Events{expected});
}

// ---- character data and entities
// -----------------------------------------------------------------

TEST(SaxText, KeepsWhitespaceAndLineEnds)
{
    EXPECT_EQ(events_of(" \r\n\ta<"), (Events{"text 5  \r\n\ta"}));
}

TEST(SaxText, IsNotDeliveredBetweenAdjacentTags)
{
    EXPECT_EQ(events_of("<a></a>"), (Events{"start a", "end a"}));
}

TEST(SaxText, IsNotDeliveredAtTheEndOfTheStream)
{
    EXPECT_EQ(parse("<a>left behind"), (Outcome{0, 14, {"start a"}}));
}

TEST(SaxText, MayHoldNulAndHighBytes)
{
    EXPECT_EQ(events_of(std::string("a\0b\x80\xFF<", 6)),
              Events{std::string("text 5 a\0b\x80\xFF", 12)});
}

TEST(SaxText, ComesInPartsOf256)
{
    const std::string part(256, 'p');
    EXPECT_EQ(events_of(part + "<"), Events{"text 256 " + part});
    EXPECT_EQ(events_of(part + "q<"), (Events{"text 256 " + part, "text 1 q"}));
    EXPECT_EQ(events_of(part + part + "q<"),
              (Events{"text 256 " + part, "text 256 " + part, "text 1 q"}));
    EXPECT_EQ(events_of(part), Events{}); // full, but nothing came after it
    EXPECT_EQ(events_of(part + "q"), Events{"text 256 " + part});
}

TEST(SaxText, AClosingBracketIsAnError)
{
    expect_error("a > b", "Invalid XML Document");
}

TEST(SaxEntities, StandForTheirCharacters)
{
    EXPECT_EQ(events_of("&quot;<"), Events{"text 1 \""});
    EXPECT_EQ(events_of("&amp;<"), Events{"text 1 &"});
    EXPECT_EQ(events_of("&apos;<"), Events{"text 1 '"});
    EXPECT_EQ(events_of("&lt;<"), Events{"text 1 <"});
    EXPECT_EQ(events_of("&gt;<"), Events{"text 1 >"});
}

TEST(SaxEntities, OnlyTheFirstOfADocumentIsResolved)
{
    EXPECT_EQ(events_of("<a>&amp;&lt;</a>"), (Events{"start a", "text 1 &", "end a"}));
    EXPECT_EQ(events_of("<a>&x;</a>&amp;y<"), (Events{"start a", "end a", "text 1 y"}));
    EXPECT_EQ(events_of("&am;&p;<"), (Events{"text 1 &"})); // their names add up
    EXPECT_EQ(events_of("&;&lt;<"), (Events{"text 1 <"}));  // an empty one adds nothing
    EXPECT_EQ(events_of("&lt;&;<"), (Events{"text 2 <<"})); // and the known name stands
}

TEST(SaxEntities, UnknownOnesVanish)
{
    EXPECT_EQ(events_of("a&nbsp;b<"), Events{"text 2 ab"});
    EXPECT_EQ(events_of("&AMP<"),
              Events{"error Invalid XML Document: Invalid State (9: 'A') on line 0."});
    expect_error("&#65;", "Invalid XML Document: Invalid State (9: '#') on line 0.");
}

TEST(SaxEntities, FillThePartOfTheText)
{
    const std::string part(256, 'p');
    EXPECT_EQ(events_of(part + "&lt;<"), (Events{"text 256 " + part, "text 1 <"}));
}

// ---- comments and declarations
// -------------------------------------------------------------------

TEST(SaxComments, EndWithOneDash)
{
    EXPECT_EQ(events_of("<!-- hi -->"), Events{"comment  hi -"});
    EXPECT_EQ(events_of("<!---->"), Events{"comment -"});
    EXPECT_EQ(events_of("<!--a-b--><!--c-->"), (Events{"comment a-b-", "comment c-"}));
}

TEST(SaxComments, MayHoldMarkup)
{
    EXPECT_EQ(events_of("<!--<a>&amp;</a>-->"), Events{"comment <a>&amp;</a>-"});
}

TEST(SaxComments, TwoDashesMustEndThem)
{
    expect_error("<!--a--b", "Invalid XML Document");
    expect_error("<!--a--->", "Invalid XML Document");
    expect_error("<!-a", "Invalid XML Document");
}

TEST(SaxComments, LongOnesReachTheCommentCallbackWithTheirLastPart)
{
    const std::string part(256, 'c');
    EXPECT_EQ(events_of("<!--" + part + "-->"), (Events{"text 256 " + part, "comment -"}));
    EXPECT_EQ(events_of("<!--" + part + part + "d-->"),
              (Events{"text 256 " + part, "text 256 " + part, "comment d-"}));
    const std::string most(255, 'c');
    EXPECT_EQ(events_of("<!--" + most + "-->"), Events{"comment " + most + "-"});
}

TEST(SaxComments, DoNotFlushTheTextInFrontOfThem)
{
    EXPECT_EQ(events_of("a<!--b-->c<"), (Events{"text 1 a", "comment b-", "text 1 c"}));
}

TEST(SaxDeclarations, AreSkippedToTheFirstBracket)
{
    EXPECT_EQ(events_of("<!DOCTYPE a [<b]><c>"), Events{"start c"});
    expect_error("<!E", "Invalid XML Document: Invalid State (11: 'E') on line 0.");
}

TEST(SaxDeclarations, ProcessingInstructionsAreUnsupported)
{
    expect_error("<?xml version=\"1.0\"?>", "Unsupported XML Encountered");
}

// ---- limits
// --------------------------------------------------------------------------------------

struct Limit {
    const char *name;
    std::string before, after;
};
const Limit kLimits[] = {{"an element name", "<", ">"},
                         {"an end tag's name", "</", ">"},
                         {"an attribute name", "<a ", "=\"\">"},
                         {"an attribute value", "<a b=\"", "\">"},
                         {"an entity name", "&", ";"}};

TEST(SaxLimits, NamesAndValuesReach256Characters)
{
    const std::string longest(256, 'n');
    for (const Limit &limit : kLimits) {
        EXPECT_EQ(parse(limit.before + longest + limit.after).result, 0) << limit.name;
    }
    EXPECT_EQ(events_of("<" + longest + ">"), Events{"start " + longest});
    EXPECT_EQ(events_of("<a " + longest + "=\"" + longest + "\">"),
              Events{"start a [" + longest + "=" + longest + "]"});
}

TEST(SaxLimits, AFullBufferLeavesTheOthersAsTheyAre)
{
    const std::string full(256, 'n');
    EXPECT_EQ(events_of("<a " + full + "=\"b\">"), Events{"start a [" + full + "=b]"});
    EXPECT_EQ(events_of("<" + full + " b=\"c\">"), Events{"start " + full + " [b=c]"});
    EXPECT_EQ(events_of("&x;<!--" + full + "-->&amp;<a>"), // "xamp" is no entity
              (Events{"text 256 " + full, "comment -", "start a"}));
}

TEST(SaxLimits, The257thCharacterIsAnError)
{
    const std::string too_long(257, 'n');
    for (const Limit &limit : kLimits) {
        const Outcome outcome = parse(limit.before + too_long + limit.after);
        EXPECT_EQ(outcome, (Outcome{-1,
                                    static_cast<long>(limit.before.size() + 257),
                                    {"error XML identifier exceeded buffer"}}))
            << limit.name;
    }
}

TEST(SaxLimits, EntityNamesOfADocumentAddUp)
{
    std::string document;
    for (int i = 0; i < 128; ++i) document += "&lt;";
    EXPECT_EQ(parse(document).result, 0);
    EXPECT_EQ(events_of(document + "&a"), Events{"error XML identifier exceeded buffer"});
}

// ---- errors, lines, positions
// --------------------------------------------------------------------

TEST(SaxErrors, NameTheStateTheCharacterAndTheLine)
{
    expect_error("<a\x01", "Invalid XML Document: Invalid State (2: 0x01) on line 0.");
    expect_error("<a\x7F", "Invalid XML Document: Invalid State (2: 0x7f) on line 0.");
    expect_error("<a\x80", "Invalid XML Document: Invalid State (2: 0x80) on line 0.");
    expect_error("<a\xFF", "Invalid XML Document: Invalid State (2: 0xff) on line 0.");
    expect_error("<a~", "Invalid XML Document: Invalid State (2: '~') on line 0.");
    expect_error(std::string("<a\0", 3), "Invalid XML Document: Invalid State (2: 00) on line 0.");
}

TEST(SaxErrors, LinesCountTheLineFeedsReadSoFar)
{
    EXPECT_EQ(events_of("\n\n\n<!Da\nb><!="),
              (Events{"text 3 \n\n\n",
                      "error Invalid XML Document: Invalid State (11: '=') on line 4."}));
    EXPECT_EQ(events_of(std::string(700, '\n') + "<=").back(),
              "error Invalid XML Document: Invalid State (1: '=') on line 700.");
}

TEST(SaxErrors, ComeOnceAndEndTheParse)
{
    EXPECT_EQ(events_of("<a>></b><c>"), (Events{"start a", "error Invalid XML Document"}));
}

TEST(SaxErrors, LeaveTheStreamBehindTheOffendingCharacter)
{
    const std::string document = "<a>text > the rest";
    const Stream stream = open_memory(document);
    Events events;
    EXPECT_EQ(sax_parse_file(stream.get(), &kRecording, &events), -1);
    char rest[32] = "";
    ASSERT_NE(fgets(rest, sizeof rest, stream.get()), nullptr);
    EXPECT_STREQ(rest, " the rest");
}

TEST(SaxErrors, LeaveAnUnbufferedDescriptorThereToo)
{
    const Stream stream(tmpfile());
    fputs("<a b=\"1\"><c?after", stream.get());
    rewind(stream.get());
    const Stream unbuffered(fdopen(dup(fileno(stream.get())), "r"));
    setvbuf(unbuffered.get(), nullptr, _IONBF, 0);
    Events events;
    EXPECT_EQ(sax_parse_file(unbuffered.get(), &kRecording, &events), -1);
    char rest[32] = "";
    EXPECT_EQ(read(fileno(unbuffered.get()), rest, sizeof rest), 5);
    EXPECT_STREQ(rest, "after");
}

TEST(SaxErrors, NullArgumentsAreRefused)
{
    const std::string document = "<a>";
    const Stream stream = open_memory(document);
    errno = 0;
    EXPECT_EQ(sax_parse_file(nullptr, &kRecording, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(sax_parse_file(stream.get(), nullptr, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(fgetc(stream.get()), '<');
}

TEST(SaxEnd, OfTheStreamIsSuccessInEveryState)
{
    for (const std::string &way : kWayInto) EXPECT_EQ(parse(way).result, 0) << way;
}

TEST(SaxEnd, AReadErrorIsTheEnd)
{
    const Stream directory(fopen("/", "r"));
    ASSERT_NE(directory, nullptr);
    Events events;
    EXPECT_EQ(sax_parse_file(directory.get(), &kRecording, &events), 0);
    EXPECT_EQ(events, Events{});
    EXPECT_NE(ferror(directory.get()), 0);
}

TEST(SaxEnd, ParsingGoesOnWhereTheStreamStands)
{
    const std::string document = "<a>><b>><c>";
    const Stream stream = open_memory(document);
    Events events;
    EXPECT_EQ(sax_parse_file(stream.get(), &kRecording, &events), -1);
    EXPECT_EQ(sax_parse_file(stream.get(), &kRecording, &events), -1);
    EXPECT_EQ(sax_parse_file(stream.get(), &kRecording, &events), 0);
    EXPECT_EQ(events, (Events{"start a", "error Invalid XML Document", "start b",
                              "error Invalid XML Document", "start c"}));
}

// ---- callbacks
// -----------------------------------------------------------------------------------

TEST(SaxCallbacks, AnyOfThemMayBeAbsent)
{
    const std::string documents[] = {"<a b=\"1\">text</a><!--c--><d/>" + std::string(600, 't') +
                                         "<!--" + std::string(600, 'c') + "-->",
                                     ">", "<?", "<=", "<" + std::string(300, 'n')};
    for (const std::string &document : documents) {
        for (int missing = 0; missing < 6; ++missing) {
            sax_callbacks callbacks = kRecording;
            const char *prefix = "";
            switch (missing) {
            case 0: callbacks.start_element = nullptr, prefix = "start"; break;
            case 1: callbacks.end_element = nullptr, prefix = "end"; break;
            case 2: callbacks.text = nullptr, prefix = "text"; break;
            case 3: callbacks.comment = nullptr, prefix = "comment"; break;
            case 4: callbacks.error = nullptr, prefix = "error"; break;
            default: callbacks = {}; break;
            }
            Events expected = events_of(document), events;
            std::erase_if(expected,
                          [&](const std::string &event) { return event.starts_with(prefix); });
            const Stream stream = open_memory(document);
            EXPECT_EQ(sax_parse_file(stream.get(), &callbacks, &events), parse(document).result);
            EXPECT_EQ(events, expected) << "without " << prefix;
        }
    }
}

TEST(SaxCallbacks, ReservedEntriesAreNeverCalled)
{
    sax_callbacks callbacks = kRecording;
    callbacks.reserved1 =
        callbacks.reserved2 = [] { ADD_FAILURE() << "a reserved entry was called"; };
    const std::string document = "<a b=\"1\">t&amp;</a><!--c--><!DOCTYPE><d/>>";
    const Stream stream = open_memory(document);
    Events events;
    EXPECT_EQ(sax_parse_file(stream.get(), &callbacks, &events), -1);
    EXPECT_EQ(events, events_of(document));
}

TEST(SaxCallbacks, MayReadOnInTheStream)
{
    struct Context {
        FILE *stream;
        std::string payload;
    };
    sax_callbacks callbacks{};
    callbacks.start_element = [](const char *, const sax_attribute *, void *user) {
        auto *context = static_cast<Context *>(user);
        for (int i = 0; i < 6; ++i) context->payload += static_cast<char>(fgetc(context->stream));
    };
    const std::string document = "<raw>>><<&&</raw>";
    const Stream stream = open_memory(document);
    Context context{stream.get(), {}};
    EXPECT_EQ(sax_parse_file(stream.get(), &callbacks, &context), 0);
    EXPECT_EQ(context.payload, ">><<&&");
}

// A peer that answers each tag only after it was seen: whoever reads ahead waits for ever.
TEST(SaxCallbacks, ComeAsSoonAsTheirLastCharacterWasRead)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const Stream stream(fdopen(ends[0], "r"));
    struct Peer {
        int fd;
        unsigned tags = 0;
        void say(const std::string &text) const
        {
            EXPECT_EQ(write(fd, text.data(), text.size()), ssize_t(text.size()));
        }
    } peer{ends[1]};
    sax_callbacks callbacks{};
    callbacks.start_element = [](const char *, const sax_attribute *, void *user) {
        auto *with = static_cast<Peer *>(user);
        if (++with->tags < 5)
            with->say("<tag>");
        else
            with->say(std::string(257, 't'));
    };
    callbacks.text = [](const char *, size_t length, void *user) {
        EXPECT_EQ(length, 256u);
        close(static_cast<Peer *>(user)->fd);
    };
    peer.say("<tag>");
    alarm(20);
    EXPECT_EQ(sax_parse_file(stream.get(), &callbacks, &peer), 0);
    alarm(0);
    EXPECT_EQ(peer.tags, 5u);
}

TEST(SaxCallbacks, MayParseAnotherStream)
{
    sax_callbacks callbacks = kRecording;
    callbacks.comment = [](const char *, void *user) {
        const std::string inner = "<inner/>";
        const Stream stream = open_memory(inner);
        EXPECT_EQ(sax_parse_file(stream.get(), &kRecording, user), 0);
    };
    const std::string document = "<a x=\"1\">t<!---->u</a>";
    const Stream stream = open_memory(document);
    Events events;
    EXPECT_EQ(sax_parse_file(stream.get(), &callbacks, &events), 0);
    EXPECT_EQ(events, (Events{"start a [x=1]", "text 1 t", "start inner", "end inner", "text 1 u",
                              "end a"}));
}

// ---- threads
// -------------------------------------------------------------------------------------

TEST(SaxThreads, DifferentStreamsAreParsedAtTheSameTime)
{
    std::mt19937 random(4);
    std::string document;
    while (document.size() < 50000)
        document += "<row n=\"1\">" + std::string(random() % 900, 't') + "</row>\n";
    const Outcome expected = parse_plainly(document);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5; ++round) EXPECT_TRUE(parse(document) == expected);
        });
    }
    for (std::thread &thread : threads) thread.join();
}

TEST(SaxThreads, TheStreamIsUnlockedAfterwards)
{
    for (const std::string document : {"<a>", "<>"}) {
        const Stream stream = open_memory(document);
        Events events;
        sax_parse_file(stream.get(), &kRecording, &events);
        std::thread([&] {
            EXPECT_EQ(ftrylockfile(stream.get()), 0);
            funlockfile(stream.get());
        }).join();
    }
}

} // namespace
