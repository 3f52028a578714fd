#include "configDoc.h"

#include <fstream>
#include <regex>
#include <utility>

namespace velatest {

namespace {

const std::string blockBegin = "```ini";
const std::string blockEnd = "```";

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string WithoutBackticks(std::string text) {
    std::erase(text, '`');
    return text;
}

std::vector<std::string> SpansOf(const std::string& text) {
    std::vector<std::string> spans;
    for (auto begin = text.find('`'); begin != std::string::npos;) {
        const auto end = text.find('`', begin + 1);
        if (end == std::string::npos) {
            break;
        }
        spans.push_back(ExpandShorthand(text.substr(begin + 1, end - begin - 1)));
        begin = text.find('`', end + 1);
    }
    return spans;
}

std::vector<DocCell> CellsOf(const std::string& line) {
    std::vector<DocCell> cells;
    auto begin = line.find('|');
    for (auto end = line.find('|', begin + 1); end != std::string::npos;
         begin = end, end = line.find('|', begin + 1)) {
        const std::string raw = Trimmed(line.substr(begin + 1, end - begin - 1));
        cells.push_back({raw, SpansOf(raw)});
    }
    return cells;
}

bool IsRule(const std::string& line) {
    return line.find_first_not_of("|- :") == std::string::npos;
}

// The page line by line.
class Reader {
  public:
    void Take(const std::string& line) {
        ++m_line;
        if (m_inBlock || line == blockBegin) {
            TakeBlock(line);
            return;
        }
        if (line.starts_with("|")) {
            TakeTable(line);
            return;
        }
        m_inTable = false;
        if (line.starts_with("#")) {
            m_title = WithoutBackticks(Trimmed(line.substr(line.find_first_not_of('#'))));
            m_block.clear();
        }
    }
    std::vector<DocTable> Result() && { return std::move(m_tables); }

  private:
    void TakeBlock(const std::string& line) {
        if (!m_inBlock) {
            m_inBlock = true;
            m_block.clear();
        } else if (line == blockEnd) {
            m_inBlock = false;
        } else {
            m_block.push_back(line);
        }
    }

    void TakeTable(const std::string& line) {
        if (!std::exchange(m_inTable, true)) {
            DocTable table{m_title, m_block, {}, {}};
            for (const DocCell& cell : CellsOf(line)) {
                table.columns.push_back(cell.raw);
            }
            m_tables.push_back(std::move(table));
        } else if (!IsRule(line)) {
            m_tables.back().rows.push_back({m_line, CellsOf(line)});
        }
    }

    std::vector<DocTable> m_tables;
    std::vector<std::string> m_block;
    std::string m_title;
    int m_line = 0;
    bool m_inBlock = false;
    bool m_inTable = false;
};

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

}  // namespace

std::string ExpandShorthand(const std::string& text) {
    static const std::regex shorthand(R"(\{(.)\*([0-9]+)\}|\\x([0-9A-Fa-f]{2}))");
    std::string result;
    auto rest = text.cbegin();
    for (std::sregex_iterator match(text.begin(), text.end(), shorthand), end; match != end;
         ++match) {
        result.append(rest, (*match)[0].first);
        result += (*match)[1].matched
                      ? std::string(std::stoul((*match)[2]), *(*match)[1].first)
                      : std::string(1, static_cast<char>(std::stoul((*match)[3], nullptr, 16)));
        rest = (*match)[0].second;
    }
    result.append(rest, text.cend());
    return Replaced(Replaced(Replaced(result, "␣", " "), "⇥", "\t"), "␍", "\r");
}

std::vector<IniSample> ReadIniSamples(const std::string& path) {
    std::ifstream page(path);
    std::vector<IniSample> samples;
    bool inBlock = false;
    int number = 0;
    for (std::string line; std::getline(page, line);) {
        ++number;
        if (!inBlock && line == blockBegin) {
            samples.push_back({number + 1, {}});
            inBlock = true;
        } else if (inBlock && line == blockEnd) {
            inBlock = false;
        } else if (inBlock) {
            samples.back().lines.push_back(line);
        }
    }
    return samples;
}

std::vector<DocTable> ReadDocTables(const std::string& path) {
    std::ifstream page(path);
    Reader reader;
    for (std::string line; std::getline(page, line);) {
        reader.Take(line);
    }
    return std::move(reader).Result();
}

std::vector<DocTable> DocTablesOf(const std::string& path, const std::string& firstColumn) {
    std::vector<DocTable> tables = ReadDocTables(path);
    std::erase_if(tables, [&firstColumn](const DocTable& table) {
        return table.columns.empty() || table.columns.front() != firstColumn;
    });
    return tables;
}

}  // namespace velatest
