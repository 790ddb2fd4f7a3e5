#include "support/terminal.h"

#include <algorithm>
#include <cstdlib>

namespace test {

std::string &Terminal::here()
{
    if (rows_.size() <= row_) rows_.resize(row_ + 1);
    return rows_[row_];
}

void Terminal::put(char character)
{
    std::string &text = here();
    if (text.size() <= column_) text.resize(column_ + 1, ' ');
    text[column_++] = character;
}

// `rest` starts behind "ESC ["; returns how much of it the sequence takes.
size_t Terminal::control_sequence(std::string_view rest)
{
    const size_t end = std::min(rest.find_first_not_of("-0123456789;"), rest.size());
    const std::string number(rest.substr(0, end));
    const char function = end < rest.size() ? rest[end] : '\0';
    switch (function) {
    case 'H': row_ = column_ = 0; break;
    case 'B': row_ += static_cast<size_t>(std::max(1, atoi(number.c_str()))); break;
    case 'J': rows_.clear(); break;
    case 'K':
        if (here().size() > column_) here().resize(column_);
        break;
    default: unknown_ += function; break;
    }
    return std::min(end + 1, rest.size());
}

void Terminal::write(std::string_view bytes)
{
    for (size_t at = 0; at < bytes.size(); ++at) {
        const char character = bytes[at];
        if (bytes.substr(at).starts_with("\x1b["))
            at += 1 + control_sequence(bytes.substr(at + 2));
        else if (character == '\r')
            column_ = 0;
        else if (character == '\n') // as a terminal line discipline sends it on
            ++row_, column_ = 0;
        else if (character == '\t')
            column_ = (column_ / 8 + 1) * 8;
        else
            put(character);
    }
}

std::string Terminal::row(size_t number) const
{
    if (number >= rows_.size()) return "";
    std::string text = rows_[number];
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

} // namespace test
