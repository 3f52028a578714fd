#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace ZceBoard {

enum class InstrumentKind : uint8_t { Future, Option, Combination };

// One instrument of the exchange, at the index that it has in its table of the board.
struct Instrument {
    std::string name;
    uint32_t table;
    uint16_t index;
    InstrumentKind kind;
};

// What a name tells: combinations begin "SPD-" or "IPS-"; options are a product, three digits, C or
// P and a strike (SR209C5000); everything else counts as a future.
InstrumentKind KindOf(std::string_view name);

// The exchange's instruments, each with an index of its own in its table, in the order of adding.
class CInstrumentList {
  public:
    // Adds one; the empty text, or why it is refused.
    std::string Add(const std::string& name);

    // Adds the names of a file, one a line; '#' begins a comment, blanks around a name and empty
    // lines do not count. False: `error` names the file, the line and the reason.
    bool ReadFile(const std::string& path, std::string& error);
    // The same of what is open already; `inputName` names it in `error`.
    bool Read(std::istream& input, const std::string& inputName, std::string& error);

    // Adds the full list of the exchange's products (ProductList.h).
    void AddAllProducts();

    const std::vector<Instrument>& All() const { return m_all; }
    size_t Count(uint32_t table) const { return m_count[table]; }

  private:
    std::vector<Instrument> m_all;
    std::unordered_set<std::string> m_names;
    size_t m_count[2] = {0, 0};
};

}  // namespace ZceBoard
