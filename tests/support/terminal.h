// terminal.h - a terminal that understands what the memory debugger sends, to see what a person
// sees.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace test {

// Rows are made as they are needed; lines are as long as their text.
class Terminal {
public:
    explicit Terminal(std::string_view bytes) { write(bytes); }

    void write(std::string_view bytes);

    // What stands in the row, counted from 0 at the top, without blanks at its end.
    [[nodiscard]] std::string row(size_t number) const;

    // The memory debugger's line: three rows further down. (Line -3 is drawn with a movement by
    // zero rows, which terminals take for one: the banner stands in row 1, like line -2.)
    [[nodiscard]] std::string line(int number) const
    {
        return row(number == -3 ? 1 : static_cast<size_t>(number + 3));
    }

    [[nodiscard]] size_t cursor_row() const { return row_; }
    [[nodiscard]] size_t cursor_column() const { return column_; }
    [[nodiscard]] bool understood_everything() const { return unknown_.empty(); }

private:
    std::string &here();
    void put(char character);
    size_t control_sequence(std::string_view rest);

    std::vector<std::string> rows_;
    size_t row_ = 0, column_ = 0;
    std::string unknown_;
};

} // namespace test
