#include "ctl/TextTable.h"

#include <algorithm>
#include <utility>

namespace ZceBoard {

CTextTable::CTextTable(const std::vector<std::string>& titles) : m_widths(titles.size(), 0) {
    std::vector<std::string> row;
    for (const std::string& title : titles) {
        m_right.push_back(!title.empty() && title.front() == '>');
        row.push_back(m_right.back() ? title.substr(1) : title);
    }
    Add(std::move(row));
}

void CTextTable::Add(std::vector<std::string> row) {
    for (size_t k = 0; k < m_widths.size(); ++k) {
        m_widths[k] = std::max(m_widths[k], row.at(k).size());
    }
    m_rows.push_back(std::move(row));
}

std::string CTextTable::Text() const {
    std::string text;
    for (const std::vector<std::string>& row : m_rows) {
        std::string line;
        for (size_t k = 0; k < m_widths.size(); ++k) {
            const std::string padding(m_widths[k] - row[k].size(), ' ');
            line.append(k == 0 ? "" : "  ");
            line.append(m_right[k] ? padding + row[k] : row[k] + padding);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text.append(line).append("\n");
    }
    return text;
}

}  // namespace ZceBoard
