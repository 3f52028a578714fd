#include "log/CRwLogger.h"

#include <cstdint>
#include <cstdio>

#include "log/elog.h"

namespace {

constexpr std::uint64_t g_ulFmtAll = ELOG_FMT_LVL | ELOG_FMT_TAG | ELOG_FMT_TIME | ELOG_FMT_P_INFO |
                                     ELOG_FMT_T_INFO | ELOG_FMT_DIR | ELOG_FMT_FUNC | ELOG_FMT_LINE;
constexpr std::uint64_t g_ulFmtShort = ELOG_FMT_LVL | ELOG_FMT_TAG | ELOG_FMT_TIME;
constexpr std::uint64_t g_ulFmtNoFunc = g_ulFmtAll & ~ELOG_FMT_FUNC;

// Indexed by level, ASSERT to VERBOSE.
constexpr std::uint64_t g_arrInstalledFormats[ELOG_LVL_TOTAL] = {
    g_ulFmtAll,   g_ulFmtShort,  g_ulFmtShort, g_ulFmtShort,
    g_ulFmtShort, g_ulFmtNoFunc, g_ulFmtNoFunc};

}  // namespace

CRwLogger::~CRwLogger() {
    elog_log_file_close();
}

int CRwLogger::Init(int /*unused*/, const char* dir, const char* name) {
    if (elog_log_file_init(dir, name) != 0) {
        return -1;
    }
    for (std::uint8_t level = 0; level < ELOG_LVL_TOTAL; ++level) {
        elog_set_level_format(level, g_arrInstalledFormats[level]);
    }
    elog_set_filter_level(ELOG_LVL_VERBOSE);
    setvbuf(stdout, nullptr, _IONBF, 0);
    elog_start();
    return 0;
}
