// sax_reference.h - the XML parser as plainly as it can be said, to hold the real one against.
//
// One fgetc() a character, a walk through all rows for each, and nothing clever. The rows are the
// test's own copy, so that a slip in the exported table shows. Events are kept as lines of text.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "vnlib/sax.h"

namespace sax_reference {

struct Row {
    unsigned state;
    int ch;
    int ch_last;
    unsigned next;
    unsigned action;
};

inline constexpr Row kRows[51] = {
    {0, '<', 0, 1, 8},   {0, '&', 0, 9, 7},   {0, '>', 0, 0, 13},  {0, 0, 0, 0, 3},
    {1, ' ', 0, 1, 7},   {1, 'a', 'z', 2, 0}, {1, 'A', 'Z', 2, 0}, {1, '0', '9', 2, 0},
    {1, '/', 0, 3, 7},   {1, '!', 0, 11, 7},  {1, '?', 0, 0, 14},  {11, '-', 0, 12, 7},
    {11, 'D', 0, 10, 7}, {9, ';', 0, 0, 16},  {9, 'a', 'z', 9, 5}, {9, '0', '9', 9, 5},
    {10, '>', 0, 0, 7},  {10, 0, 0, 10, 7},   {2, 'a', 'z', 2, 0}, {2, 'A', 'Z', 2, 0},
    {2, '0', '9', 2, 0}, {2, ' ', 0, 4, 7},   {2, '>', 0, 0, 9},   {2, '/', 0, 8, 7},
    {3, 'a', 'z', 3, 0}, {3, 'A', 'Z', 3, 0}, {3, '0', '9', 3, 0}, {3, '>', 0, 0, 11},
    {4, ' ', 0, 4, 7},   {4, '\t', 0, 4, 7},  {4, '\n', 0, 4, 7},  {4, 'a', 'z', 5, 1},
    {4, 'A', 'Z', 5, 1}, {5, 'a', 'z', 5, 1}, {5, 'A', 'Z', 5, 1}, {5, '-', 0, 5, 1},
    {5, '=', 0, 6, 7},   {6, '"', 0, 7, 7},   {4, '/', 0, 8, 7},   {4, '>', 0, 0, 9},
    {8, '>', 0, 0, 10},  {7, '"', 0, 4, 12},  {7, 0, 0, 7, 2},     {12, '-', 0, 13, 7},
    {12, 0, 0, 0, 13},   {13, '-', 0, 14, 4}, {13, 0, 0, 13, 4},   {14, '-', 0, 15, 7},
    {14, 0, 0, 13, 4},   {15, '>', 0, 0, 15}, {15, 0, 0, 0, 13},
};

using Events = std::vector<std::string>;

class Machine {
public:
    // `after_event` is called after each, where the real parser's caller is called back.
    Machine(
        FILE *stream, Events &events, std::function<void()> after_event = [] {})
        : stream_(stream), events_(events), after_event_(std::move(after_event))
    {
    }

    int run()
    {
        for (int c = fgetc(stream_); c != EOF; c = fgetc(stream_)) {
            if (c == '\n') ++line_;
            const Row *const row = find(c);
            if (row == nullptr) return no_row(c);
            if (!act(row->action, static_cast<char>(c))) return -1;
            state_ = row->next;
        }
        return 0;
    }

private:
    const Row *find(int c) const
    {
        for (const Row &row : kRows) {
            if (row.state != state_) continue;
            if (row.ch == 0 || c == row.ch) return &row;
            if (row.ch_last != 0 && row.ch <= c && c <= row.ch_last) return &row;
        }
        return nullptr;
    }
    void note(const std::string &event)
    {
        events_.push_back(event);
        after_event_();
    }
    int no_row(int c)
    {
        char text[256];
        snprintf(text, sizeof text,
                 c >= 0x20 && c < 0x7F ? "%s (%u: '%c') on line %u." : "%s (%u: %#.2x) on line %u.",
                 "Invalid XML Document: Invalid State", state_, c, line_);
        return error(text), -1;
    }
    bool error(const std::string &text)
    {
        note("error " + text);
        return false;
    }
    bool limited(std::string &buffer, char c)
    {
        if (buffer.size() > 255) return error("XML identifier exceeded buffer");
        buffer += c;
        return true;
    }
    bool in_parts(std::string &buffer, char c)
    {
        if (buffer.size() >= 256) text(buffer);
        buffer += c;
        return true;
    }
    void text(std::string &buffer)
    {
        note("text " + std::to_string(buffer.size()) + " " + buffer);
        buffer.clear();
    }
    void start()
    {
        std::string event = std::string("start ") + name_.c_str();
        for (auto attribute = attributes_.rbegin(); attribute != attributes_.rend(); ++attribute) {
            event += std::string(" [") + attribute->first.c_str() + "=" +
                     attribute->second.c_str() + "]";
        }
        note(event);
    }
    void end() { note("end " + name_); }
    void finish()
    {
        name_.clear();
        attributes_.clear();
    }
    bool entity()
    {
        static constexpr std::pair<const char *, char> kKnown[] = {
            {"quot", '"'}, {"amp", '&'}, {"apos", '\''}, {"lt", '<'}, {"gt", '>'}};
        for (const auto &[name, c] : kKnown) {
            if (entity_ == name) return in_parts(text_, c);
        }
        return true;
    }
    bool act(unsigned action, char c)
    {
        switch (action) {
        case 0: return limited(name_, c);
        case 1: return limited(attr_name_, c);
        case 2: return limited(attr_value_, c);
        case 3: return in_parts(text_, c);
        case 4: return in_parts(comment_, c);
        case 5: return limited(entity_, c);
        case 6: return error("Illegal XML State");
        case 7: return true;
        case 8:
            if (!text_.empty()) text(text_);
            return true;
        case 9: start(), finish(); return true;
        case 10: start(), end(), finish(); return true;
        case 11: end(), name_.clear(); return true;
        case 12:
            attributes_.emplace_back(attr_name_, attr_value_);
            attr_name_.clear(), attr_value_.clear();
            return true;
        case 13: return error("Invalid XML Document");
        case 14: return error("Unsupported XML Encountered");
        case 15:
            note(std::string("comment ") + comment_.c_str());
            comment_.clear();
            return true;
        default: return entity();
        }
    }

    FILE *stream_;
    Events &events_;
    std::function<void()> after_event_;
    unsigned state_ = 0, line_ = 0;
    std::string name_, attr_name_, attr_value_, text_, comment_, entity_;
    std::vector<std::pair<std::string, std::string>> attributes_;
};

// Callbacks for the real parser that write the same lines; `user` is an Events.
inline void on_start(const char *name, const sax_attribute *attributes, void *user)
{
    std::string event = std::string("start ") + name;
    for (; attributes != nullptr; attributes = attributes->next) {
        event += std::string(" [") + attributes->name + "=" + attributes->value + "]";
    }
    static_cast<Events *>(user)->push_back(event);
}
inline void on_end(const char *name, void *user)
{
    static_cast<Events *>(user)->push_back(std::string("end ") + name);
}
inline void on_text(const char *characters, size_t length, void *user)
{
    if (characters[length] != '\0') static_cast<Events *>(user)->push_back("text without its NUL");
    static_cast<Events *>(user)->push_back("text " + std::to_string(length) + " " +
                                           std::string(characters, length));
}
inline void on_comment(const char *comment, void *user)
{
    static_cast<Events *>(user)->push_back(std::string("comment ") + comment);
}
inline void on_error(const char *message, void *user)
{
    static_cast<Events *>(user)->push_back(std::string("error ") + message);
}
inline constexpr sax_callbacks kRecording = {on_start, on_end,     nullptr, nullptr,
                                             on_text,  on_comment, on_error};

} // namespace sax_reference
