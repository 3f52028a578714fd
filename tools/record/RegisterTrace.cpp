#include "record/RegisterTrace.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <cstring>
#include <utility>

#include "record/Settings.h"

namespace ZceRecord {

namespace {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr size_t FLUSH_BYTES = size_t{256} << 10;
constexpr uint64_t FLUSH_PASSES = 25;
constexpr uint64_t BYTES_PER_REGISTER = 4;
constexpr unsigned int BITS_PER_BYTE = 8;
constexpr unsigned int REGISTER_BITS = 32;

void AppendHex(std::string& text, uint64_t value) {
    std::array<char, 16> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, 16).ptr;
    text += "0x";
    text.append(digits.data(), end);
}

// A point and nine digits.
void AppendFraction(std::string& text, int64_t ns) {
    std::array<char, 10> digits{};
    for (size_t k = digits.size() - 1; k > 0; --k, ns /= 10) {
        digits[k] = static_cast<char>('0' + ns % 10);
    }
    digits[0] = '.';
    text.append(digits.data(), digits.size());
}

}  // namespace

bool CRegisterTrace::Open(CFileMaker& maker, int64_t timeNs) {
    NameParts parts;
    parts.timeNs = timeNs;
    parts.bus = "all";
    parts.channel = "all";
    parts.processId = std::to_string(getpid());
    CFileMaker::File file;
    std::string taken;
    std::string error;
    const bool made = maker.MakeRegisters(parts, m_file, file, taken, error);
    m_name = file.name;
    if (!made) {
        Say(m_name + ": " + error + ": no register accesses are recorded");
    } else if (!taken.empty()) {
        Say(taken + " is there already: recording to " + m_name);
    }
    return made;
}

void CRegisterTrace::Add(const RegisterAccess& access) {
    const std::lock_guard guard(m_mutex);
    ++m_added;
    if (m_accesses.size() < m_maxWaiting) {
        m_accesses.push_back(access);
    } else {
        ++m_lost;
    }
}

void CRegisterTrace::Pass(bool last) {
    uint64_t lost = 0;
    m_taken.clear();
    {
        const std::lock_guard guard(m_mutex);
        m_taken.swap(m_accesses);
        lost = std::exchange(m_lost, 0);
    }
    if (m_failed) {
        return;
    }
    m_text.reserve(2 * FLUSH_BYTES);
    for (const RegisterAccess& access : m_taken) {
        Format(access);
        ++m_recorded;
        if (m_text.size() >= FLUSH_BYTES) {
            Flush();
        }
    }
    if (lost != 0) {
        m_text += "# " + std::to_string(lost) + " accesses lost\n";
    }
    m_totalLost += lost;
    ++m_passes;
    if (last || m_taken.empty() || m_passes % FLUSH_PASSES == 0) {
        Flush();
    }
}

void CRegisterTrace::Format(const RegisterAccess& access) {
    const auto second = static_cast<time_t>(access.timeNs / NS_PER_SECOND);
    if (second != m_second || m_date.empty()) {
        tm local{};
        std::array<char, 32> date{};
        localtime_r(&second, &local);
        strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &local);
        m_date = date.data();
        m_second = second;
    }
    m_text += m_date;
    AppendFraction(m_text, access.timeNs % NS_PER_SECOND);
    m_text += access.write ? " write " : " read ";
    if (access.described) {
        AppendHex(m_text, access.byteOffset / BYTES_PER_REGISTER);
        const auto bit =
            static_cast<unsigned int>(access.byteOffset % BYTES_PER_REGISTER) * BITS_PER_BYTE +
            access.bitOffset;
        if (bit != 0 || access.width != REGISTER_BITS) {
            m_text += '[' + std::to_string(bit) + ':' + std::to_string(access.width) + ']';
        }
    } else {
        m_text += "(no register)";
    }
    if (access.write || !access.failed) {
        m_text += ' ';
        AppendHex(m_text, access.value);
    }
    if (access.failed) {
        const char* reason = strerrordesc_np(access.error);
        m_text += std::string(" failed: ") + (reason != nullptr ? reason : "unknown error") + " (" +
                  std::to_string(access.error) + ")";
    }
    m_text += '\n';
}

void CRegisterTrace::Flush() {
    std::string error;
    if (!m_failed && m_file.Write(m_text.data(), m_text.size(), error)) {
        m_inFile = m_recorded;
    } else if (!m_failed) {
        m_failed = true;
        m_file.Close();
        Say(m_name + ": cannot write: " + error + ": the recording of registers has ended");
    }
    m_text.clear();
}

std::string CRegisterTrace::Summary() const {
    if (m_failed) {
        return "";
    }
    return m_name + ": " + std::to_string(m_recorded) + " register accesses recorded, " +
           std::to_string(m_totalLost) + " lost";
}

std::string CRegisterTrace::Missing() {
    const std::lock_guard guard(m_mutex);
    return m_failed ? "" : MissingLine(m_name, m_added, m_inFile, "register accesses");
}

}  // namespace ZceRecord
