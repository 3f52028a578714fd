#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ZceBoard {

// Rows of text in aligned columns for people: two blanks between columns, none at a line's end.
class CTextTable {
  public:
    // One column for each title. A title that begins with '>' (not shown) stands for a column that
    // is aligned to the right.
    explicit CTextTable(const std::vector<std::string>& titles);

    // A row of as many cells as there are columns.
    void Add(std::vector<std::string> row);

    // The titles and the rows, a line each.
    std::string Text() const;

  private:
    std::vector<std::vector<std::string>> m_rows;  // the first one is the titles
    std::vector<bool> m_right;
    std::vector<size_t> m_widths;
};

}  // namespace ZceBoard
