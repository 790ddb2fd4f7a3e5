// sax.cpp - the XML parser: a table of transitions, and a machine that follows it.
//
//     state_machine          what is accepted: 51 rows, the first that fits counts (public)
//          | at compile time
//          v
//     kClassOf, kSteps       the same as two look-ups: byte to class, class x state to step
//     kRuns, kStoppers       what each state appends without being left: most of a document
//          |
//          v
//     Parser                 fills buffers, calls back; knows no XML beyond the actions
//
// Bytes that no row tells apart are of one class. There are so few classes that the derived tables
// take less than 1 KiB, where state x byte would take 8.
//
// Invariant: between two characters every byte of the stream up to here has been acted on and none
// behind it has been read, so that callbacks and whoever reads the stream after us see it in its
// place. That rules out reading ahead into a buffer of our own: a pipe cannot be put back. What the
// stream itself has read ahead may be looked at (input.h), and is told what was taken of it before
// anyone else can see the difference.
#include "vnlib/sax.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <string_view>

#include "sax/blocks.h"
#include "sax/input.h"

namespace vn::sax {
namespace {

enum State : uint8_t {
    kContent,     // between tags
    kTagOpen,     // after <
    kStartName,   // in the name of a start tag
    kEndName,     // in the name of an end tag, after </
    kInTag,       // in a start tag, between attributes
    kAttrName,    // in the name of an attribute
    kAttrEq,      // after =, before the quote
    kAttrValue,   // between the quotes
    kEmptyClose,  // after the / of an empty element
    kEntity,      // after &
    kDeclSkip,    // after <!D
    kBang,        // after <!
    kCommentOpen, // after <!-
    kComment,     // in a comment
    kCommentDash, // in a comment, after one -
    kCommentEnd,  // in a comment, after --
    kStates,
};

// The first six append to the buffer of the same number.
enum Action : uint8_t {
    kAppendName,
    kAppendAttrName,
    kAppendAttrValue,
    kAppendText,
    kAppendComment,
    kAppendEntity,
    kIllegalState, // reserved: in no row
    kNothing,
    kFlushText,
    kStartElement,
    kEmptyElement,
    kEndElement,
    kAddAttribute,
    kInvalid,
    kUnsupported,
    kEndComment,
    kEndEntity,
    kNoRow, // not in the table: what a byte without a row leads to
};
constexpr uint8_t kLineFeed = 0x80; // added to every action of a line feed, for counting lines
constexpr size_t kBuffers = kAppendEntity + 1;
constexpr bool appends(uint8_t action)
{
    return action < kBuffers;
}

constexpr signed char kAny = 0;

} // namespace
} // namespace vn::sax

using namespace vn::sax; // the table is public and has C linkage, its vocabulary is ours

constexpr sax_transition state_machine[] = {
    {kContent, '<', 0, kTagOpen, kFlushText},
    {kContent, '&', 0, kEntity, kNothing},
    {kContent, '>', 0, kContent, kInvalid},
    {kContent, kAny, 0, kContent, kAppendText},

    {kTagOpen, ' ', 0, kTagOpen, kNothing},
    {kTagOpen, 'a', 'z', kStartName, kAppendName},
    {kTagOpen, 'A', 'Z', kStartName, kAppendName},
    {kTagOpen, '0', '9', kStartName, kAppendName},
    {kTagOpen, '/', 0, kEndName, kNothing},
    {kTagOpen, '!', 0, kBang, kNothing},
    {kTagOpen, '?', 0, kContent, kUnsupported},

    {kBang, '-', 0, kCommentOpen, kNothing},
    {kBang, 'D', 0, kDeclSkip, kNothing},

    {kEntity, ';', 0, kContent, kEndEntity},
    {kEntity, 'a', 'z', kEntity, kAppendEntity},
    {kEntity, '0', '9', kEntity, kAppendEntity},

    {kDeclSkip, '>', 0, kContent, kNothing},
    {kDeclSkip, kAny, 0, kDeclSkip, kNothing},

    {kStartName, 'a', 'z', kStartName, kAppendName},
    {kStartName, 'A', 'Z', kStartName, kAppendName},
    {kStartName, '0', '9', kStartName, kAppendName},
    {kStartName, ' ', 0, kInTag, kNothing},
    {kStartName, '>', 0, kContent, kStartElement},
    {kStartName, '/', 0, kEmptyClose, kNothing},

    {kEndName, 'a', 'z', kEndName, kAppendName},
    {kEndName, 'A', 'Z', kEndName, kAppendName},
    {kEndName, '0', '9', kEndName, kAppendName},
    {kEndName, '>', 0, kContent, kEndElement},

    {kInTag, ' ', 0, kInTag, kNothing},
    {kInTag, '\t', 0, kInTag, kNothing},
    {kInTag, '\n', 0, kInTag, kNothing},
    {kInTag, 'a', 'z', kAttrName, kAppendAttrName},
    {kInTag, 'A', 'Z', kAttrName, kAppendAttrName},

    {kAttrName, 'a', 'z', kAttrName, kAppendAttrName},
    {kAttrName, 'A', 'Z', kAttrName, kAppendAttrName},
    {kAttrName, '-', 0, kAttrName, kAppendAttrName},
    {kAttrName, '=', 0, kAttrEq, kNothing},

    {kAttrEq, '"', 0, kAttrValue, kNothing},

    {kInTag, '/', 0, kEmptyClose, kNothing},
    {kInTag, '>', 0, kContent, kStartElement},

    {kEmptyClose, '>', 0, kContent, kEmptyElement},

    {kAttrValue, '"', 0, kInTag, kAddAttribute},
    {kAttrValue, kAny, 0, kAttrValue, kAppendAttrValue},

    {kCommentOpen, '-', 0, kComment, kNothing},
    {kCommentOpen, kAny, 0, kContent, kInvalid},

    {kComment, '-', 0, kCommentDash, kAppendComment},
    {kComment, kAny, 0, kComment, kAppendComment},

    {kCommentDash, '-', 0, kCommentEnd, kNothing},
    {kCommentDash, kAny, 0, kComment, kAppendComment},

    {kCommentEnd, '>', 0, kContent, kEndComment},
    {kCommentEnd, kAny, 0, kContent, kInvalid},
};

namespace vn::sax {
namespace {

// ---- from the table to two look-ups ----

struct Step {
    uint8_t next = kContent;
    uint8_t action = kNoRow;
    bool operator==(const Step &) const = default;
};
using Column = std::array<Step, kStates>; // what one byte does in each state

consteval std::array<Column, 256> columns()
{
    std::array<Column, 256> of_byte{};
    for (size_t i = std::size(state_machine); i-- > 0;) { // an earlier row replaces a later one
        const sax_transition &row = state_machine[i];
        const size_t first = row.ch == kAny ? 0 : static_cast<unsigned char>(row.ch);
        const size_t last = row.ch == kAny ? 255 : row.ch_last != 0 ? row.ch_last : first;
        for (size_t byte = first; byte <= last; ++byte) {
            of_byte[byte][row.state] = {static_cast<uint8_t>(row.next),
                                        static_cast<uint8_t>(row.action)};
        }
    }
    return of_byte;
}

// A line feed is alone in its class, as it is counted.
struct Classes {
    std::array<uint8_t, 256> of_byte{};
    std::array<uint8_t, 256> example{}; // a byte of each class
    size_t count = 0;
};
consteval Classes classes()
{
    constexpr auto kColumns = columns();
    Classes found;
    for (size_t byte = 0; byte < 256; ++byte) {
        size_t same = byte == '\n' ? found.count : 0;
        while (same < found.count && kColumns[found.example[same]] != kColumns[byte]) ++same;
        if (same == found.count) found.example[found.count++] = static_cast<uint8_t>(byte);
        found.of_byte[byte] = static_cast<uint8_t>(same);
    }
    return found;
}
constexpr size_t kClasses = classes().count;
constexpr std::array<uint8_t, 256> kClassOf = classes().of_byte;

// By class first: which row it is does not depend on the steps before, so that only the last
// look-up has to wait for them.
consteval std::array<Column, kClasses> steps()
{
    constexpr auto kColumns = columns();
    constexpr auto kExample = classes().example;
    std::array<Column, kClasses> table{};
    for (size_t i = 0; i < kClasses; ++i) {
        for (size_t state = 0; state < kStates; ++state) {
            table[i][state] = kColumns[kExample[i]][state];
            if (kExample[i] == '\n') table[i][state].action |= kLineFeed;
        }
    }
    return table;
}
constexpr std::array<Column, kClasses> kSteps = steps();

Step step_for(size_t state, int c)
{
    return kSteps[kClassOf[static_cast<unsigned char>(c)]][state];
}

// What each state appends without being left: the classes, one bit each. Line feeds are not among
// them, so that they are counted where single characters pass.
consteval std::array<uint32_t, kStates> runs()
{
    static_assert(kClasses <= 32);
    std::array<uint32_t, kStates> of_state{};
    for (size_t state = 0; state < kStates; ++state) {
        for (size_t i = 0; i < kClasses; ++i) {
            const Step step = kSteps[i][state];
            if (appends(step.action) && step.next == state) of_state[state] |= uint32_t{1} << i;
        }
    }
    return of_state;
}
constexpr std::array<uint32_t, kStates> kRuns = runs();

constexpr bool goes_on(uint32_t run, unsigned char c)
{
    return (run >> kClassOf[c] & 1) != 0;
}

// A run is copied into the buffer of the character that led to it.
consteval bool runs_stay_in_one_buffer()
{
    for (const Column &column : kSteps) {
        for (const Step &step : column) {
            for (size_t i = 0; appends(step.action) && i < kClasses; ++i) {
                const bool in_run = (kRuns[step.next] >> i & 1) != 0;
                if (in_run && kSteps[i][step.next].action != step.action) return false;
            }
        }
    }
    return true;
}
static_assert(runs_stay_in_one_buffer());

// The same the other way round, for text, values and comments: the few characters that end the run.
// In other states there are too many; theirs stay zero.
consteval std::array<Stoppers, kStates> all_stoppers()
{
    std::array<Stoppers, kStates> of_state{};
    for (size_t state = 0; state < kStates; ++state) {
        Stoppers stoppers{};
        size_t count = 0;
        for (size_t byte = 0; byte < 256; ++byte) {
            if (goes_on(kRuns[state], static_cast<unsigned char>(byte))) continue;
            if (count < stoppers.size())
                std::fill(&stoppers[count], stoppers.end(), static_cast<uint8_t>(byte));
            ++count;
        }
        if (count <= stoppers.size()) of_state[state] = stoppers;
    }
    return of_state;
}
constexpr std::array<Stoppers, kStates> kStoppers = all_stoppers();

// ---- the machine ----

constexpr uint32_t kCapacity = 256; // characters in a buffer, and in a part of character data

struct Buffer {
    uint32_t length = 0;
    char bytes[kCapacity + 1]; // one for the NUL

    [[nodiscard]] bool full() const { return length == kCapacity; }
    void append(int c) { bytes[length++] = static_cast<char>(c); }
    [[nodiscard]] const char *text()
    {
        bytes[length] = '\0';
        return bytes;
    }
};

struct Entity {
    char name[5]; // an array, not a pointer: nothing to relocate
    char stands_for;
};
constexpr Entity kEntities[] = {
    {"quot", '"'}, {"amp", '&'}, {"apos", '\''}, {"lt", '<'}, {"gt", '>'},
};

class Parser {
public:
    Parser(FILE *stream, const sax_callbacks &callbacks, void *user)
        : callbacks_(callbacks), user_(user), stream_(stream)
    {
    }
    ~Parser() { release_attributes(); } // those of a tag that was never finished
    Parser(const Parser &) = delete;
    Parser &operator=(const Parser &) = delete;

    [[nodiscard]] bool parse();

private:
    size_t copy_run(char *to, std::span<const unsigned char> from, size_t state);
    [[nodiscard]] bool perform(uint8_t action, size_t state, int c);

    [[nodiscard]] bool append_limited(Buffer &buffer, int c);
    void append_in_parts(Buffer &buffer, int c);
    void flush_to_text(Buffer &buffer);
    void start_element();
    void end_element();
    void finish_tag();
    [[nodiscard]] bool add_attribute();
    void release_attributes();
    void end_comment();
    void end_entity();

    [[nodiscard]] bool fail(const char *message);
    [[nodiscard]] bool fail_without_row(size_t state, int c);

    Buffer buffers_[kBuffers];
    sax_attribute *attributes_ = nullptr;
    const sax_callbacks &callbacks_;
    void *const user_;
    FILE *const stream_;
    unsigned lines_ = 0;
};

bool Parser::parse()
{
    Input input(stream_);
    size_t state = kContent;
    for (int c; (c = input.get()) != EOF;) {
        const Step step = step_for(state, c);
        if (appends(step.action) && !buffers_[step.action].full()) {
            Buffer &buffer = buffers_[step.action];
            buffer.append(c);
            const size_t more = copy_run(buffer.bytes + buffer.length,
                                         input.ahead(kCapacity - buffer.length), step.next);
            buffer.length += static_cast<uint32_t>(more);
            input.take(more);
        } else if (step.action != kNothing) {
            if ((step.action & kLineFeed) != 0) ++lines_;
            input.commit(); // it may call back
            if (!perform(step.action & ~kLineFeed, state, c)) return false;
            input.resume();
        }
        state = step.next;
    }
    return true;
}

// Copies what goes on with the run of a state; says how much. Most bytes of a document pass here.
inline size_t Parser::copy_run(char *__restrict to, std::span<const unsigned char> from,
                               size_t state)
{
    const size_t in_blocks =
        kStoppers[state][0] != 0 ? copy_blocks(to, from, kStoppers[state], lines_) : 0;
    const uint32_t run = kRuns[state];
    const unsigned char *at = from.data() + in_blocks;
    const unsigned char *const end = from.data() + from.size();
    for (to += in_blocks; at != end && goes_on(run, *at); ++at) *to++ = static_cast<char>(*at);
    return static_cast<size_t>(at - from.data());
}

bool Parser::perform(uint8_t action, size_t state, int c)
{
    switch (action) {
    case kAppendName:
    case kAppendAttrName:
    case kAppendAttrValue:
    case kAppendEntity: return append_limited(buffers_[action], c);
    case kAppendText:
    case kAppendComment: append_in_parts(buffers_[action], c); return true;
    case kNothing: return true;
    case kFlushText: flush_to_text(buffers_[kAppendText]); return true;
    case kStartElement:
        start_element();
        finish_tag();
        return true;
    case kEmptyElement:
        start_element();
        end_element();
        finish_tag();
        return true;
    case kEndElement:
        end_element();
        finish_tag();
        return true;
    case kAddAttribute: return add_attribute();
    case kInvalid: return fail("Invalid XML Document");
    case kUnsupported: return fail("Unsupported XML Encountered");
    case kEndComment: end_comment(); return true;
    case kEndEntity: end_entity(); return true;
    case kNoRow: return fail_without_row(state, c);
    default: return fail("Illegal XML State");
    }
}

bool Parser::append_limited(Buffer &buffer, int c)
{
    if (buffer.full()) return fail("XML identifier exceeded buffer");
    buffer.append(c);
    return true;
}

// A long comment leaves through `text` too: the parts of both are one stream for their reader.
void Parser::append_in_parts(Buffer &buffer, int c)
{
    if (buffer.full()) flush_to_text(buffer);
    buffer.append(c);
}

void Parser::flush_to_text(Buffer &buffer)
{
    if (buffer.length == 0) return;
    if (callbacks_.text != nullptr) callbacks_.text(buffer.text(), buffer.length, user_);
    buffer.length = 0;
}

void Parser::start_element()
{
    if (callbacks_.start_element == nullptr) return;
    callbacks_.start_element(buffers_[kAppendName].text(), attributes_, user_);
}

void Parser::end_element()
{
    if (callbacks_.end_element == nullptr) return;
    callbacks_.end_element(buffers_[kAppendName].text(), user_);
}

void Parser::finish_tag()
{
    release_attributes();
    buffers_[kAppendName].length = 0;
}

// The record and its two texts are one block.
bool Parser::add_attribute()
{
    Buffer &name = buffers_[kAppendAttrName];
    Buffer &value = buffers_[kAppendAttrValue];
    const size_t name_size = name.length + 1, value_size = value.length + 1;
    void *const block = malloc(sizeof(sax_attribute) + name_size + value_size);
    if (block == nullptr) return fail("Out of memory");
    char *const texts = static_cast<char *>(block) + sizeof(sax_attribute);
    memcpy(texts, name.text(), name_size);
    memcpy(texts + name_size, value.text(), value_size);
    attributes_ = new (block) sax_attribute{texts, texts + name_size, attributes_};
    name.length = value.length = 0;
    return true;
}

void Parser::release_attributes()
{
    while (attributes_ != nullptr) {
        sax_attribute *const next = attributes_->next;
        free(attributes_);
        attributes_ = next;
    }
}

void Parser::end_comment()
{
    Buffer &comment = buffers_[kAppendComment];
    if (callbacks_.comment != nullptr) callbacks_.comment(comment.text(), user_);
    comment.length = 0;
}

// The name deliberately stays in its buffer, and the next entity's is appended to it: only the
// first entity of a document is resolved, later ones vanish.
void Parser::end_entity()
{
    Buffer &buffer = buffers_[kAppendEntity];
    const std::string_view name(buffer.text(), buffer.length);
    for (const Entity &entity : kEntities) {
        if (name == entity.name) append_in_parts(buffers_[kAppendText], entity.stands_for);
    }
}

bool Parser::fail(const char *message)
{
    if (callbacks_.error != nullptr) callbacks_.error(message, user_);
    return false;
}

bool Parser::fail_without_row(size_t state, int c)
{
    const bool printable = c >= ' ' && c <= '~'; // whatever the locale
    char message[256];
    snprintf(message, sizeof message,
             printable ? "%s (%u: '%c') on line %u." : "%s (%u: %#.2x) on line %u.",
             "Invalid XML Document: Invalid State", static_cast<unsigned>(state), c, lines_);
    return fail(message);
}

// One lock for the whole document instead of one for each character.
class StreamLock {
public:
    explicit StreamLock(FILE *stream) : stream_(stream) { flockfile(stream_); }
    ~StreamLock() { funlockfile(stream_); }
    StreamLock(const StreamLock &) = delete;
    StreamLock &operator=(const StreamLock &) = delete;

private:
    FILE *const stream_;
};

} // namespace
} // namespace vn::sax

// The parser lives on the heap: threads of our devices have small stacks.
int sax_parse_file(FILE *stream, const sax_callbacks *callbacks, void *user)
{
    if (stream == nullptr || callbacks == nullptr) {
        errno = EINVAL;
        return -1;
    }
    void *const block = malloc(sizeof(Parser));
    if (block == nullptr) {
        if (callbacks->error != nullptr) callbacks->error("Out of memory", user);
        return -1;
    }
    const StreamLock hold(stream);
    Parser *const parser = new (block) Parser(stream, *callbacks, user);
    const bool parsed = parser->parse();
    parser->~Parser();
    free(block);
    return parsed ? 0 : -1;
}
