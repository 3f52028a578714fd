#include "memory/RegisterFile.h"

#include <algorithm>
#include <cstddef>

namespace ZceBoard {

namespace {

constexpr uint32_t WORD_BITS = 32;

struct Range {
    uint32_t first;
    uint32_t last;
};

// What a reset sets to 0 besides the tables.
constexpr Range RESET_RANGES[] = {
    {REG_SWITCH, REG_MAP_TRANSMIT},
    {REG_DATE, REG_DATE},
    {REG_NET_FIRST, REG_NET_LAST},
    {REG_COUNTER_A, REG_COUNTER_A + COUNTERS_PER_GROUP - 1},
    {REG_COUNTER_B, REG_COUNTER_B + COUNTERS_PER_GROUP - 1},
    {REG_SINGLE_TABLE, REG_SINGLE_TABLE + WINDOW_SIZE - 1},
    {REG_COMBINE_TABLE, REG_COMBINE_TABLE + WINDOW_SIZE - 1},
};

// What a host cannot write.
constexpr Range BOARD_OWNED[] = {
    {REG_LINK_STATUS, REG_TIME_B},
    {REG_COUNTER_A, REG_COUNTER_A + COUNTERS_PER_GROUP - 1},
    {REG_COUNTER_B, REG_COUNTER_B + COUNTERS_PER_GROUP - 1},
    {REG_SINGLE_TABLE + WINDOW_READ_DATA, REG_SINGLE_TABLE + WINDOW_READ_DATA},
    {REG_COMBINE_TABLE + WINDOW_READ_DATA, REG_COMBINE_TABLE + WINDOW_READ_DATA},
};

// The bits of 32-bit word `k` (counted from the first one of the field) that the field covers.
uint32_t WordMask(uint32_t shift, uint32_t width, uint32_t k) {
    const uint32_t from = k == 0 ? shift : 0;
    const uint32_t to = std::min(shift + width - k * WORD_BITS, WORD_BITS);
    const uint32_t upTo = to == WORD_BITS ? ~0U : (1U << to) - 1;
    return upTo & ~((1U << from) - 1);
}

// `bits` moved so that bit 0 of the field comes to where it lies in word `k`.
uint32_t ToWord(uint64_t bits, uint32_t shift, uint32_t k) {
    return static_cast<uint32_t>(k == 0 ? bits << shift : bits >> (k * WORD_BITS - shift));
}

uint64_t FromWord(uint32_t word, uint32_t shift, uint32_t k) {
    return k == 0 ? uint64_t{word} >> shift : uint64_t{word} << (k * WORD_BITS - shift);
}

// The last of the characters in `word` as it reads at the n-th strike: never what is stored, never
// twice the same in a row, and printable if it was.
uint32_t ChangedName(uint32_t word, uint32_t strike) {
    constexpr uint32_t CHANGES = 15;
    return word ^ (1 + strike % CHANGES);
}

}  // namespace

bool CRegisterFile::Inside(const RegisterField& field) {
    if (field.width == 0 || field.width > 64 || field.byteOffset >= REGISTER_SPACE_BYTES) {
        return false;
    }
    return field.byteOffset * 8 + field.bitOffset + field.width <= REGISTER_SPACE_BYTES * 8;
}

bool CRegisterFile::Read(const RegisterField& field, uint64_t& value) const {
    if (!Inside(field)) {
        return false;
    }
    const uint64_t firstBit = field.byteOffset * 8 + field.bitOffset;
    const auto index = static_cast<uint32_t>(firstBit / WORD_BITS);
    const auto shift = static_cast<uint32_t>(firstBit % WORD_BITS);
    uint64_t bits = 0;
    for (uint32_t k = 0; k * WORD_BITS < shift + field.width; ++k) {
        bits |= FromWord(ReadWord(index + k) & WordMask(shift, field.width, k), shift, k);
    }
    value = bits;
    return true;
}

bool CRegisterFile::Write(const RegisterField& field, uint64_t value) {
    if (!Inside(field)) {
        return false;
    }
    const uint64_t firstBit = field.byteOffset * 8 + field.bitOffset;
    const auto index = static_cast<uint32_t>(firstBit / WORD_BITS);
    const auto shift = static_cast<uint32_t>(firstBit % WORD_BITS);
    for (uint32_t k = 0; k * WORD_BITS < shift + field.width; ++k) {
        const uint32_t mask = WordMask(shift, field.width, k);
        WriteWord(index + k, (Peek(index + k) & ~mask) | (ToWord(value, shift, k) & mask));
    }
    return true;
}

bool CRegisterFile::Strikes(Fault kind, const RegisterField& field) {
    if (!Inside(field)) {
        return false;
    }
    const uint64_t firstBit = field.byteOffset * 8 + field.bitOffset;
    return CFaults(m_shm).Strikes(
               kind, static_cast<uint32_t>(firstBit / WORD_BITS),
               static_cast<uint32_t>((firstBit + field.width - 1) / WORD_BITS)) != 0;
}

uint32_t CRegisterFile::ReadWord(uint32_t index) const {
    switch (index) {
        case REG_SINGLE_TABLE + WINDOW_READ_DATA:
            return ReadTable(TABLE_SINGLE, REG_SINGLE_TABLE);
        case REG_COMBINE_TABLE + WINDOW_READ_DATA:
            return ReadTable(TABLE_COMBINE, REG_COMBINE_TABLE);
        default:
            return Peek(index);
    }
}

uint32_t CRegisterFile::ReadTable(uint32_t table, uint32_t window) const {
    const uint32_t address = Peek(window + WINDOW_READ_ADDRESS);
    if (address >= TABLE_WORDS) {
        return 0;
    }
    const uint32_t word = m_shm.tables[table][address].load(std::memory_order_relaxed);
    CFaults faults(m_shm);
    // An entry without a name has none that could change.
    if (faults.Any() && address % TABLE_ENTRY_WORDS == TABLE_NAME_WORDS && word != 0) {
        const uint32_t strike = faults.Strikes(Fault::NameChanges, address / TABLE_ENTRY_WORDS);
        return strike != 0 ? ChangedName(word, strike) : word;
    }
    return word;
}

bool CRegisterFile::IsBoardOwned(uint32_t index) {
    return std::any_of(std::begin(BOARD_OWNED), std::end(BOARD_OWNED), [index](const Range& range) {
        return index >= range.first && index <= range.last;
    });
}

void CRegisterFile::WriteWord(uint32_t index, uint32_t value) {
    if (IsBoardOwned(index)) {
        return;
    }
    Poke(index, value);
    switch (index) {
        case REG_SINGLE_TABLE + WINDOW_WRITE_ADDRESS:
            WriteTable(TABLE_SINGLE, REG_SINGLE_TABLE);
            break;
        case REG_COMBINE_TABLE + WINDOW_WRITE_ADDRESS:
            WriteTable(TABLE_COMBINE, REG_COMBINE_TABLE);
            break;
        case REG_RESET:
            if ((value & 1) != 0) {
                Reset();
            }
            break;
        default:
            break;
    }
}

void CRegisterFile::WriteTable(uint32_t table, uint32_t window) {
    const uint32_t address = Peek(window + WINDOW_WRITE_ADDRESS);
    if (address >= TABLE_WORDS) {
        m_shm.header.ignoredTableWrites.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (CFaults(m_shm).Strikes(Fault::TableWriteLost, address / TABLE_ENTRY_WORDS) != 0) {
        return;
    }
    m_shm.tables[table][address].store(Peek(window + WINDOW_WRITE_DATA), std::memory_order_relaxed);
}

void CRegisterFile::Reset() {
    for (const Range& range : RESET_RANGES) {
        for (uint32_t index = range.first; index <= range.last; ++index) {
            Poke(index, 0);
        }
    }
    for (TableWords& table : m_shm.tables) {
        for (std::atomic<uint32_t>& word : table) {
            word.store(0, std::memory_order_relaxed);
        }
    }
    m_shm.header.boardResets.fetch_add(1, std::memory_order_relaxed);
}

void CRegisterFile::StoreName(uint32_t table, uint32_t entry, const std::string& name) {
    std::array<unsigned char, NAME_SIZE> bytes{};
    std::copy_n(name.begin(), std::min(name.size(), NAME_SIZE), bytes.begin());
    for (uint32_t k = 0; k < TABLE_NAME_WORDS; ++k) {
        uint32_t word = 0;
        for (uint32_t byte = 0; byte < sizeof(word); ++byte) {
            word = word << 8 | bytes[k * sizeof(word) + byte];
        }
        const size_t place = size_t{entry} * TABLE_ENTRY_WORDS + TABLE_NAME_WORDS - k;
        m_shm.tables[table][place].store(word, std::memory_order_relaxed);
    }
}

std::string CRegisterFile::LoadName(uint32_t table, uint32_t entry) const {
    std::string name;
    for (uint32_t k = 0; k < TABLE_NAME_WORDS; ++k) {
        const size_t place = size_t{entry} * TABLE_ENTRY_WORDS + TABLE_NAME_WORDS - k;
        const uint32_t word = m_shm.tables[table][place].load(std::memory_order_relaxed);
        for (int shift = 24; shift >= 0; shift -= 8) {
            const auto character = static_cast<char>(word >> shift & 0xFF);
            if (character == '\0') {
                return name;
            }
            name.push_back(character);
        }
    }
    return name;
}

}  // namespace ZceBoard
