#include "startFetch.h"

#include <cstring>

#include "DataType/ZceFpgaServ.h"
#include "DrvEnyx/IDrv.h"
#include "DrvEnyx/drvCore.h"
#include "DrvEnyx/drvFactory.h"
#include "DrvEnyx/enyxHw.h"
#include "benchMain.h"
#include "log/CRwLogger.h"
#include "memory/RegisterMap.h"

namespace velabench {

namespace {

constexpr int readings = 8;

struct NameText {
    char text[ZceBoard::NAME_SIZE + 1] = {};
};

// The plain loop.
class CTableLoop {
  public:
    explicit CTableLoop(enyx_hw_core* core) : m_pCore(core) {}

    bool Failed() const { return m_failed != 0; }

    // Calls take(name, entry) for each name in both tables.
    template <class Take>
    void Run(Take take) {
        for (const std::uint32_t window :
             {ZceBoard::REG_SINGLE_TABLE, ZceBoard::REG_COMBINE_TABLE}) {
            for (std::uint32_t entry = 0; entry < tableEntries; ++entry) {
                NameText last;
                for (int reading = 0; reading < readings; ++reading) {
                    const NameText name = ReadName(window, entry);
                    if (name.text[0] == '\0') {
                        continue;
                    }
                    if (std::memcmp(name.text, last.text, sizeof(name.text)) == 0) {
                        take(name, entry);
                        break;
                    }
                    last = name;
                }
            }
        }
    }

  private:
    static enyx_hw_register_description At(std::uint32_t index) {
        return {std::uint64_t{4} * index, 0, 32};
    }

    std::uint32_t ReadWord(std::uint32_t window, std::uint32_t address) {
        const enyx_hw_register_description place = At(window + ZceBoard::WINDOW_READ_ADDRESS);
        const enyx_hw_register_description data = At(window + ZceBoard::WINDOW_READ_DATA);
        std::uint64_t value = 0;
        enyx_hw_core_lock(m_pCore);
        m_failed |= enyx_hw_write(m_pCore, &place, address);
        m_failed |= enyx_hw_read(m_pCore, &place, &value);
        enyx_hw_core_unlock(m_pCore);
        enyx_hw_core_lock(m_pCore);
        m_failed |= enyx_hw_read(m_pCore, &data, &value);
        enyx_hw_core_unlock(m_pCore);
        return static_cast<std::uint32_t>(value);
    }

    NameText ReadName(std::uint32_t window, std::uint32_t entry) {
        NameText name;
        for (std::uint32_t part = 0; part < ZceBoard::TABLE_NAME_WORDS; ++part) {
            const std::uint32_t word = __builtin_bswap32(ReadWord(
                window, entry * ZceBoard::TABLE_ENTRY_WORDS + ZceBoard::TABLE_NAME_WORDS - part));
            std::memcpy(name.text + part * sizeof(word), &word, sizeof(word));
        }
        return name;
    }

    enyx_hw_core* m_pCore;
    int m_failed = 0;
};

}  // namespace

CNameReader::CNameReader() {
    static CRwLogger logger;
    DrvRegInitParms_t parms{0, coreId};
    m_pDrv = DrvEnyxProcessReg();
    if (logger.Init(0, "/tmp/fpgalog/", "fpga") != 0 || m_pDrv->Init(&parms) != 0 ||
        DrvEnyxGetCore(0, coreId, &m_pCore, 1) != 1) {
        Die("no register core");
    }
}

void CNameReader::ReadByLibrary(Names& names) {
    Vela2_U50::CZceFpgaServ tables(names, 0);
    tables.Init(m_pDrv);
    tables.FetchAllInst();
}

bool CNameReader::ReadByCalls(Names& names) {
    CTableLoop loop(m_pCore);
    loop.Run([&names](const NameText& name, std::uint32_t entry) {
        names[name.text] = static_cast<unsigned short>(entry);
    });
    return !loop.Failed();
}

int CNameReader::CountByCalls() {
    CTableLoop loop(m_pCore);
    int count = 0;
    loop.Run([&count](const NameText& /*name*/, std::uint32_t /*entry*/) { ++count; });
    return loop.Failed() ? -1 : count;
}

}  // namespace velabench
