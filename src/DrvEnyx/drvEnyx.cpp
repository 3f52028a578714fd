#include "DrvEnyx/drvEnyx.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "DrvEnyx/drvCore.h"
#include "DrvEnyx/enyxHw.h"
#include "DrvEnyx/enyxOwned.h"
#include "log/elog.h"

CDrvEnyxReg* CDrvEnyxReg::instance = nullptr;

namespace {

constexpr unsigned long g_uiBytesPerRegister = 4;
constexpr unsigned long g_uiBytesPerWord = 8;
constexpr std::uint8_t g_uiBitsPerByte = 8;
constexpr std::uint8_t g_uiBitsPerWord = 64;
// The longest block that is moved in reversed order.
constexpr unsigned long g_uiReversedLimit = 128;

enyx_hw_register_description Describe(unsigned long addr, std::uint8_t bits) {
    return {addr * g_uiBytesPerRegister, 0, bits};
}

// Under the core's lock; `report` logs a failure, while errno is still the vendor's. `value` is
// written on success only.
template <typename Value, typename Report>
int ReadRegister(enyx_hw_core* core, unsigned long addr, Value& value, Report report) {
    const enyx_hw_register_description description =
        Describe(addr, static_cast<std::uint8_t>(sizeof(Value) * g_uiBitsPerByte));
    std::uint64_t word = 0;
    if (enyx_hw_read(core, &description, &word) < 0) {
        report();
        return -1;
    }
    value = static_cast<Value>(word);
    return 0;
}

// As ReadRegister.
template <typename Value, typename Report>
int WriteRegister(enyx_hw_core* core, unsigned long addr, Value value, Report report) {
    const enyx_hw_register_description description =
        Describe(addr, static_cast<std::uint8_t>(sizeof(Value) * g_uiBitsPerByte));
    if (enyx_hw_write(core, &description, value) < 0) {
        report();
        return -1;
    }
    return 0;
}

// A 32-bit write under a lock that the caller holds.
int WriteLocked(enyx_hw_core* core, unsigned long addr, unsigned int value) {
    return WriteRegister(core, addr, value, [addr, value] {
        LOG_ERROR("Write int32 failed, addr[0x%x] value[0x%x], errmsg:%s.",
                  static_cast<unsigned int>(addr), value, std::strerror(errno));
    });
}

bool IsReversible(const unsigned char* block, unsigned long len) {
    return len <= g_uiReversedLimit && block != nullptr;
}

long RejectBlock() {
    LOG_ERROR("length should less than 128!");
    return 0;
}

}  // namespace

int CDrvEnyxReg::Init(void* param) {
    if (param == nullptr) {
        LOG_ERROR("Init param error!");
        return -1;
    }
    static std::mutex initMutex;
    const std::lock_guard<std::mutex> guard(initMutex);
    if (m_bInited) {
        return 0;
    }
    const auto& parms = *static_cast<const DrvRegInitParms_t*>(param);
    enyx_hw_core* core = nullptr;
    const int count = DrvEnyxGetCore(parms.busId, parms.coreId, &core, 1);
    if (core != nullptr && count == 1) {
        m_pCore = core;
        m_bInited = true;
        return 0;
    }
    LOG_ERROR("enumerate core error!, get core num %d, msg:%s, busid:%d, coreId:%d.", count,
              std::strerror(errno), parms.busId, parms.coreId);
    return -1;
}

int CDrvEnyxReg::ReadInt8(unsigned long addr, unsigned char& value) {
    const CCoreLock lock(m_pCore);
    return ReadRegister(m_pCore, addr, value,
                        [addr] { LOG_ERROR("read int8 failed, addr:%lu", addr); });
}

int CDrvEnyxReg::ReadInt16(unsigned long addr, unsigned short& value) {
    const CCoreLock lock(m_pCore);
    return ReadRegister(m_pCore, addr, value,
                        [addr] { LOG_ERROR("read int16 failed, addr:%lu", addr); });
}

int CDrvEnyxReg::ReadInt32(unsigned long addr, unsigned int& value) {
    const CCoreLock lock(m_pCore);
    return ReadRegister(m_pCore, addr, value, [addr] {
        LOG_ERROR("read int32 failed, addr[0x%x], errmsg:%s.", static_cast<unsigned int>(addr),
                  std::strerror(errno));
    });
}

int CDrvEnyxReg::ReadInt64(unsigned long addr, unsigned long& value) {
    const CCoreLock lock(m_pCore);
    return ReadRegister(m_pCore, addr, value, [addr] {
        LOG_ERROR("read int64 failed, addr[0x%x] ", static_cast<unsigned int>(addr));
    });
}

int CDrvEnyxReg::WriteInt8(unsigned long addr, unsigned char value) {
    const CCoreLock lock(m_pCore);
    return WriteRegister(m_pCore, addr, value,
                         [addr] { LOG_ERROR("write int8 failed, addr:%lu", addr); });
}

int CDrvEnyxReg::WriteInt16(unsigned long addr, unsigned short value) {
    const CCoreLock lock(m_pCore);
    return WriteRegister(m_pCore, addr, value,
                         [addr] { LOG_ERROR("write int16 failed, addr:%lu", addr); });
}

int CDrvEnyxReg::WriteInt32(unsigned long addr, unsigned int value) {
    const CCoreLock lock(m_pCore);
    return WriteLocked(m_pCore, addr, value);
}

int CDrvEnyxReg::WriteInt32_Log(unsigned long addr, unsigned int value) {
    const CCoreLock lock(m_pCore);
    return WriteLocked(m_pCore, addr, value);
}

int CDrvEnyxReg::WriteInt32_LogWithRead(unsigned long addr, unsigned int value) {
    const CCoreLock lock(m_pCore);
    // Deliberate: a failed write alone is logged and does not count.
    (void)WriteLocked(m_pCore, addr, value);
    unsigned int readBack = 0;
    return ReadRegister(m_pCore, addr, readBack, [addr] {
        LOG_ERROR("ReadReg int32 failed, addr[0x%x], errmsg:%s.", static_cast<unsigned int>(addr),
                  std::strerror(errno));
    });
}

int CDrvEnyxReg::WriteInt64(unsigned long addr, unsigned long value) {
    const CCoreLock lock(m_pCore);
    return WriteRegister(m_pCore, addr, value,
                         [addr] { LOG_ERROR("write int64 failed, addr:%lu", addr); });
}

long CDrvEnyxReg::ReadBytes(unsigned long addr, unsigned char* dst, unsigned long len) {
    const CCoreLock lock(m_pCore);
    if (dst == nullptr) {
        LOG_ERROR("Didn't inited in yet!");
        return 0;
    }
    enyx_hw_register_description description = Describe(addr, g_uiBitsPerWord);
    for (unsigned long done = 0; done < len; done += g_uiBytesPerWord) {
        // A short tail too is read with a whole word. Deliberate, unlike WriteBytes.
        std::uint64_t word = 0;
        if (enyx_hw_read(m_pCore, &description, &word) < 0) {
            LOG_ERROR("Read value failed, addr:%lu", addr);
            return -1;
        }
        std::memcpy(dst + done, &word, std::min(g_uiBytesPerWord, len - done));
        description.byte_offset += g_uiBytesPerWord;
    }
    return static_cast<long>(len);
}

long CDrvEnyxReg::WriteBytes(unsigned long addr, unsigned char* src, unsigned long len) {
    const CCoreLock lock(m_pCore);
    if (src == nullptr) {
        LOG_ERROR("Didn't inited out yet!");
        return 0;
    }
    enyx_hw_register_description description = Describe(addr, g_uiBitsPerWord);
    const unsigned long tail = len % g_uiBytesPerWord;
    const unsigned long whole = len - tail;
    for (unsigned long done = 0; done < whole; done += g_uiBytesPerWord) {
        std::uint64_t word = 0;
        std::memcpy(&word, src + done, g_uiBytesPerWord);
        if (enyx_hw_write(m_pCore, &description, word) < 0) {
            LOG_ERROR("write int8 failed, addr:%lu", addr);
            return -1;
        }
        description.byte_offset += g_uiBytesPerWord;
    }
    if (tail != 0) {
        // Exactly the remaining bytes are taken and written: no access past the end of the source
        // nor of the block.
        std::uint64_t word = 0;
        std::memcpy(&word, src + whole, tail);
        description.width = static_cast<std::uint8_t>(tail * g_uiBitsPerByte);
        if (enyx_hw_write(m_pCore, &description, word) < 0) {
            LOG_ERROR("Write int8 failed, addr:%lu", addr);
            return -1;
        }
    }
    return static_cast<long>(len);
}

long CDrvEnyxReg::ReadLess128Bytes(unsigned long addr, unsigned char* dst, unsigned long len) {
    if (!IsReversible(dst, len)) {
        return RejectBlock();
    }
    std::array<unsigned char, g_uiReversedLimit> block{};
    const long count = ReadBytes(addr, block.data(), len);
    if (count != static_cast<long>(len)) {
        LOG_ERROR("Read failed, should Read %ld, now %ld", static_cast<long>(len), count);
        return count;
    }
    std::reverse_copy(block.data(), block.data() + len, dst);
    return count;
}

long CDrvEnyxReg::WriteLess128Bytes(unsigned long addr, unsigned char* src, unsigned long len) {
    if (!IsReversible(src, len)) {
        return RejectBlock();
    }
    std::array<unsigned char, g_uiReversedLimit> block{};
    std::reverse_copy(src, src + len, block.data());
    return WriteBytes(addr, block.data(), len);
}
