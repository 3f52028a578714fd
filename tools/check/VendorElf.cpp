#include "check/VendorElf.h"

#include <elf.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "check/Machine.h"

namespace ZceMachine {

namespace {

constexpr std::uintmax_t MAX_FILE = std::uintmax_t{256} << 20U;
constexpr std::size_t MAX_TEXT = 4096;  // of a name: many long ones would be read for hours

// What the software board's library asks the environment for, and no other library does.
constexpr char BOARD_MARK[] = "ZCE_BOARD_SHM_PREFIX";

// The bytes of a file; every access is checked.
class CElfBytes {
  public:
    explicit CElfBytes(std::string_view bytes) : m_bytes(bytes) {}

    // The record at an offset. False if it is not wholly there.
    template <typename Record>
    bool Read(std::uint64_t offset, Record& record) const {
        if (offset > m_bytes.size() || m_bytes.size() - offset < sizeof(Record)) {
            return false;
        }
        std::memcpy(&record, m_bytes.data() + offset, sizeof(Record));
        return true;
    }
    // The text at an offset, to its zero. Nothing if there is no zero.
    std::optional<std::string> Text(std::uint64_t offset) const {
        if (offset >= m_bytes.size()) {
            return std::nullopt;
        }
        const std::string_view rest = m_bytes.substr(offset, MAX_TEXT);
        const std::size_t end = rest.find('\0');
        return end == std::string_view::npos ? std::nullopt
                                             : std::optional<std::string>(rest.substr(0, end));
    }
    std::size_t Size() const { return m_bytes.size(); }

  private:
    std::string_view m_bytes;
};

// The loader's view of a library: its segments and its dynamic section.
class CElfReader {
  public:
    explicit CElfReader(std::string_view bytes) : m_bytes(bytes) {}

    bool Read(ElfLibrary& library) {
        return ReadHead(library) && ReadSegments() && ReadDynamic() && ReadSoname(library) &&
               ReadSymbols(library);
    }
    const char* Reason() const { return m_reason; }

  private:
    bool Fail(const char* reason) {
        m_reason = reason;
        return false;
    }

    bool ReadHead(ElfLibrary& library) {
        if (!m_bytes.Read(0, m_head) || std::memcmp(m_head.e_ident, ELFMAG, SELFMAG) != 0) {
            return Fail("no ELF file");
        }
        if (m_head.e_ident[EI_CLASS] != ELFCLASS64 || m_head.e_ident[EI_DATA] != ELFDATA2LSB) {
            return Fail("no 64-bit little-endian library");
        }
        library.machine = m_head.e_machine;
        return m_head.e_type == ET_DYN ? true : Fail("an ELF file, but no shared library");
    }

    bool ReadSegments() {
        for (unsigned int number = 0; number < m_head.e_phnum; ++number) {
            Elf64_Phdr segment{};
            if (!m_bytes.Read(m_head.e_phoff + std::uint64_t{number} * sizeof(segment), segment)) {
                return Fail("its segments lead beyond the file");
            }
            m_segments.push_back(segment);
        }
        return true;
    }

    bool ReadDynamic() {
        const auto dynamic =
            std::find_if(m_segments.begin(), m_segments.end(),
                         [](const Elf64_Phdr& segment) { return segment.p_type == PT_DYNAMIC; });
        if (dynamic == m_segments.end()) {
            return Fail("it has no dynamic section");
        }
        Elf64_Dyn entry{};
        for (std::uint64_t at = dynamic->p_offset;; at += sizeof(entry)) {
            if (!m_bytes.Read(at, entry)) {
                return Fail("its dynamic section leads beyond the file");
            }
            if (entry.d_tag == DT_NULL) {
                return true;
            }
            if (entry.d_tag == DT_SONAME) {
                m_soname = entry.d_un.d_val;
            } else if (entry.d_tag == DT_STRTAB) {
                m_strings = entry.d_un.d_ptr;
            } else if (entry.d_tag == DT_SYMTAB) {
                m_symbols = entry.d_un.d_ptr;
            } else if (entry.d_tag == DT_HASH) {
                m_hash = entry.d_un.d_ptr;
            } else if (entry.d_tag == DT_GNU_HASH) {
                m_gnuHash = entry.d_un.d_ptr;
            }
        }
    }

    // Where an address of the loaded library lies in the file; beyond its end if nowhere.
    std::uint64_t OffsetOf(std::uint64_t address) const {
        for (const Elf64_Phdr& segment : m_segments) {
            if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
                address - segment.p_vaddr < segment.p_filesz) {
                return address - segment.p_vaddr + segment.p_offset;
            }
        }
        return m_bytes.Size();
    }

    bool ReadSoname(ElfLibrary& library) {
        if (!m_strings || !m_symbols) {
            return Fail("it exports nothing");
        }
        if (m_soname) {
            const std::optional<std::string> text = m_bytes.Text(OffsetOf(*m_strings) + *m_soname);
            if (!text) {
                return Fail("its strings lead beyond the file");
            }
            library.soname = *text;
        }
        return true;
    }

    // How many symbols there are: the old hash table says it, the new one has to be followed.
    std::optional<std::uint64_t> SymbolCount() const {
        if (m_hash) {
            std::uint32_t chains = 0;
            return m_bytes.Read(OffsetOf(*m_hash) + sizeof(chains), chains)
                       ? std::optional<std::uint64_t>(chains)
                       : std::nullopt;
        }
        if (!m_gnuHash) {
            return std::nullopt;
        }
        const std::uint64_t table = OffsetOf(*m_gnuHash);
        std::uint32_t head[4] = {};  // buckets, first symbol, words of the filter, its shift
        if (!m_bytes.Read(table, head)) {
            return std::nullopt;
        }
        const std::uint64_t buckets = table + sizeof(head) + head[2] * sizeof(std::uint64_t);
        std::uint64_t last = 0;
        for (std::uint64_t at = 0; at < head[0]; ++at) {
            std::uint32_t first = 0;
            if (!m_bytes.Read(buckets + at * sizeof(first), first)) {
                return std::nullopt;
            }
            last = std::max<std::uint64_t>(last, first);
        }
        if (last < head[1]) {
            return head[1];
        }
        const std::uint64_t chains = buckets + std::uint64_t{head[0]} * sizeof(std::uint32_t);
        for (;; ++last) {
            std::uint32_t hash = 0;
            if (!m_bytes.Read(chains + (last - head[1]) * sizeof(hash), hash)) {
                return std::nullopt;
            }
            if ((hash & 1U) != 0) {
                return last + 1;
            }
        }
    }

    bool ReadSymbols(ElfLibrary& library) {
        const std::optional<std::uint64_t> count = SymbolCount();
        if (!count) {
            return Fail("its symbols cannot be found");
        }
        const std::uint64_t symbols = OffsetOf(*m_symbols);
        const std::uint64_t strings = OffsetOf(*m_strings);
        for (std::uint64_t number = 0; number < *count; ++number) {
            Elf64_Sym symbol{};
            if (!m_bytes.Read(symbols + number * sizeof(symbol), symbol)) {
                return Fail("its symbols lead beyond the file");
            }
            if (!IsCall(symbol)) {
                continue;
            }
            const std::optional<std::string> name = m_bytes.Text(strings + symbol.st_name);
            if (!name) {
                return Fail("its strings lead beyond the file");
            }
            library.calls.insert(*name);
        }
        return true;
    }

    static bool IsCall(const Elf64_Sym& symbol) {
        const unsigned int binding = ELF64_ST_BIND(symbol.st_info);
        const unsigned int type = ELF64_ST_TYPE(symbol.st_info);
        const unsigned int visibility = ELF64_ST_VISIBILITY(symbol.st_other);
        return symbol.st_shndx != SHN_UNDEF && (binding == STB_GLOBAL || binding == STB_WEAK) &&
               (type == STT_FUNC || type == STT_GNU_IFUNC || type == STT_NOTYPE) &&
               (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
    }

    CElfBytes m_bytes;
    Elf64_Ehdr m_head{};
    std::vector<Elf64_Phdr> m_segments;
    std::optional<std::uint64_t> m_soname;
    std::optional<std::uint64_t> m_strings;
    std::optional<std::uint64_t> m_symbols;
    std::optional<std::uint64_t> m_hash;
    std::optional<std::uint64_t> m_gnuHash;
    const char* m_reason = "";
};

}  // namespace

std::optional<ElfLibrary> ReadElf(std::string_view bytes, std::string& reason) {
    ElfLibrary library;
    CElfReader reader(bytes);
    if (!reader.Read(library)) {
        reason = reader.Reason();
        return std::nullopt;
    }
    library.bSoftwareBoard = bytes.find({BOARD_MARK, sizeof(BOARD_MARK)}) != std::string_view::npos;
    return library;
}

std::optional<ElfLibrary> ReadElfFile(const std::string& path, std::string& reason) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        reason = std::strerror(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        reason = "no regular file";
        return std::nullopt;
    }
    if (static_cast<std::uintmax_t>(status.st_size) > MAX_FILE) {
        reason = "larger than 256 MiB";
        return std::nullopt;
    }
    errno = 0;
    const std::string bytes = FileText(path, MAX_FILE);
    if (bytes.empty() && errno != 0) {
        reason = std::strerror(errno);
        return std::nullopt;
    }
    return ReadElf(bytes, reason);
}

}  // namespace ZceMachine
