#include "exchange/Instruments.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "exchange/ProductList.h"
#include "memory/RegisterMap.h"

namespace ZceBoard {

namespace {

constexpr std::string_view COMBINATION_MARKS[] = {"SPD-", "IPS-"};
constexpr std::string_view BOM = "\xEF\xBB\xBF";
constexpr std::string_view BLANKS = " \t\r";

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsPrintable(char c) {
    return c > ' ' && c < 127;
}

// The name in a line, without comment and blanks around it.
std::string_view NameIn(std::string_view line) {
    line = line.substr(0, line.find('#'));
    const size_t first = line.find_first_not_of(BLANKS);
    if (first == std::string_view::npos) {
        return {};
    }
    return line.substr(first, line.find_last_not_of(BLANKS) - first + 1);
}

}  // namespace

InstrumentKind KindOf(std::string_view name) {
    for (const std::string_view mark : COMBINATION_MARKS) {
        if (name.substr(0, mark.size()) == mark) {
            return InstrumentKind::Combination;
        }
    }
    const size_t month = name.find_first_of("0123456789");
    const size_t right = name.find_first_not_of("0123456789", month);
    const bool option =
        month != std::string_view::npos && right != std::string_view::npos &&
        (name[right] == 'C' || name[right] == 'P') && right + 1 < name.size() &&
        std::all_of(name.begin() + static_cast<std::ptrdiff_t>(right) + 1, name.end(), IsDigit);
    return option ? InstrumentKind::Option : InstrumentKind::Future;
}

std::string CInstrumentList::Add(const std::string& name) {
    if (name.empty()) {
        return "the name is empty";
    }
    if (!std::all_of(name.begin(), name.end(), IsPrintable)) {
        return "the name holds a blank or a character that cannot be printed";
    }
    if (name.size() > NAME_SIZE) {
        return "\"" + name + "\" has more than 16 characters";
    }
    const InstrumentKind kind = KindOf(name);
    if (kind == InstrumentKind::Combination && name.size() == COMBINATION_MARKS[0].size()) {
        return "\"" + name + "\" names no legs";
    }
    const uint32_t table = kind == InstrumentKind::Combination ? TABLE_COMBINE : TABLE_SINGLE;
    if (m_count[table] == TABLE_USABLE_ENTRIES) {
        return std::string("more than 4095 ") +
               (table == TABLE_COMBINE ? "combinations" : "single-leg instruments");
    }
    if (!m_names.insert(name).second) {
        return "\"" + name + "\" is there twice";
    }
    m_all.push_back({name, table, static_cast<uint16_t>(m_count[table]), kind});
    ++m_count[table];
    return {};
}

bool CInstrumentList::ReadFile(const std::string& path, std::string& error) {
    errno = 0;
    std::ifstream file(path);
    if (!file.is_open()) {
        error = path + ": " + strerror(errno != 0 ? errno : EIO);
        return false;
    }
    return Read(file, path, error);
}

bool CInstrumentList::Read(std::istream& input, const std::string& inputName, std::string& error) {
    errno = 0;
    std::string line;
    size_t number = 0;
    while (std::getline(input, line)) {
        ++number;
        const std::string_view name = NameIn(line);
        if (name.empty()) {
            continue;
        }
        const std::string reason = number == 1 && name.substr(0, BOM.size()) == BOM
                                       ? "the list begins with a byte order mark: save it without"
                                       : Add(std::string(name));
        if (!reason.empty()) {
            error = inputName;
            error.append(":").append(std::to_string(number)).append(": ").append(reason);
            return false;
        }
    }
    if (input.bad()) {
        error = inputName + ": " + strerror(errno != 0 ? errno : EIO);
        return false;
    }
    if (m_all.empty()) {
        error = inputName + ": there is no instrument in it";
        return false;
    }
    return true;
}

void CInstrumentList::AddAllProducts() {
    for (const std::string& name : AllProductNames()) {
        Add(name);
    }
}

}  // namespace ZceBoard
