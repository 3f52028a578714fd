#pragma once

#include <cstdint>

#include "VelaZceExport.h"

/// @file
/// The library's free functions for host programs: is this machine fit to run, is the exchange
/// trading now, and small helpers for time stamps, CPU pinning and addresses. None of them needs a
/// started API object. None throws. Their messages go to standard output, never to the log.
/// Unless a comment says otherwise a function may be called from any thread at any time.

// ---- Environment of the machine ------------------------------------------------------------
// The checks run shell commands (lspci, lsmod, ps, grep, found through PATH) and count the lines
// printed. They take as long as those commands do and are meant for one thread, before the start.

/// What CheckEnvBoard found: 0 no FPGA board, 1 exactly one board of the Enyx stack ("E board"),
/// 2 exactly one Xilinx board ("Xi board"), 3 several E boards and no Xi board, 4 several Xi boards
/// and no E board, 5 both kinds, 6 (at load) the detection has not run yet. Setting it back to 6
/// makes the next CheckEnvBoard look again.
extern VELA_ZCE_API unsigned int g_curEnvBrdType;

/// The two detection commands: for E boards, for Xi boards.
extern VELA_ZCE_API const char* const g_szBrdChkCmd[2];

/// Returns the board environment, 0 to 5 as above. The commands run once a process: later calls
/// return the first result. A command that cannot be started counts as "no board of that kind".
VELA_ZCE_API unsigned int CheckEnvBoard();

/// Whether the kernel module of Xi boards (xdma) is loaded; false if that cannot be found out.
VELA_ZCE_API bool IsXiDriverInstalled();

/// Whether the module list could be asked for the driver of E boards (hfp). Deliberately lenient:
/// the answer is not looked at, so this is true whether or not the module is loaded, and false only
/// if the command cannot be started.
VELA_ZCE_API bool IsEDriverInstalled();

/// Combines the above: 0 the library may run, -1 it must not (no board, or the one kind of board
/// that is there lacks its driver); the reason is printed. With both kinds of board missing drivers
/// are only a warning.
VELA_ZCE_API int CheckBeforeRun();

/// Whether the sibling server program QyDeliverDmaServer runs. Exactly one line of the process list
/// must name it (exactly two when the calling process is that server itself): with more instances
/// the answer is false.
VELA_ZCE_API bool IsProdProgRunning();

/// Name of the real user of the process, from the password database; null if the user has no entry.
/// The text belongs to the C library and is overwritten by the next look-up: copy it to keep it.
/// One thread at a time.
VELA_ZCE_API char* GetCurUserName();

/// Whether that name is exactly "root".
VELA_ZCE_API bool IsCurUserRoot();

/// Version of the library, a constant text: "3.10.0".
VELA_ZCE_API const char* GetUpDmaLibVersion();

// ---- Reset wish and counters -----------------------------------------------------------------

/// Whether the board needs a reset; 1 at load. IsNeedFpgaRst returns it.
extern VELA_ZCE_API bool g_bFpgaNeedRst;
/// The reset mask bit; 1 at load.
extern VELA_ZCE_API unsigned int g_uiRstMaskBit;
/// Packet counter that FillDebugFileHex prints; 0 at load, the caller moves it.
extern VELA_ZCE_API unsigned int g_uiPktCnt;

/// Returns g_bFpgaNeedRst.
VELA_ZCE_API bool IsNeedFpgaRst();

// ---- Time -------------------------------------------------------------------------------------

/// Whether the exchange trades now by the host's local time of day: 09:00:01 to 14:59:59 or
/// 21:00:01 to 23:29:59, both ends included. 09:00:00 and 21:00:00 are outside; breaks within the
/// day session are inside. False if the local time cannot be determined.
VELA_ZCE_API bool ZceIsInTradeTime();

/// Wall-clock time (CLOCK_REALTIME) in ns since the epoch.
VELA_ZCE_API std::uint64_t get_time();
/// The same as get_time.
VELA_ZCE_API std::uint64_t TernGetTimeTamp();

/// Wall-clock ns that have gone by since `start` (ns since the epoch). Modulo 2^64 when `start`
/// lies in the future or the clock was set back.
VELA_ZCE_API std::uint64_t TernDiffTimeTamp(std::uint64_t start);

/// Monotonic clock (CLOCK_MONOTONIC) in ns.
VELA_ZCE_API std::uint64_t get_time_since_powerof();

/// Spins, without a sleeping call, until get_time() has reached `start` + `ns` (both in ns);
/// returns the last reading. Occupies its CPU fully for that time.
VELA_ZCE_API std::uint64_t NS_Sleep(std::uint64_t start, std::uint64_t ns);

/// Tells a new day: `*day` is the caller's day as yyyymmdd, 0 for none yet. 1 if today (local time)
/// is later than it, else 0; `*day` becomes today when it was 0 or earlier. 0 with nothing changed
/// if `day` is null or the local time cannot be determined.
VELA_ZCE_API int CheckIsRotateDay(unsigned long* day);

// ---- CPU and files ----------------------------------------------------------------------------

/// Pins the calling thread to CPU number `cpu`, 0 to 1023. On a larger number, and on a failure (no
/// such CPU, not allowed), prints why and leaves the thread where it was.
VELA_ZCE_API void bind_to_cpu(int cpu);

/// Size of the file in bytes, -1 if it cannot be examined.
VELA_ZCE_API long Uti_GetFileSize(const char* path);

/// Always false: the library is for little-endian hosts.
VELA_ZCE_API bool Uti_IsBigEndian();

/// 0 for n = 64, else `v` unchanged (deliberately: despite its name it shifts nothing).
VELA_ZCE_API std::uint64_t Uti_MoveLeft64(std::uint64_t v, int n);

// ---- Validation -------------------------------------------------------------------------------
// A null text is handled like an empty one.

/// Whether `str` is a MAC address, like 01:23:45:67:89:aB; prints why not.
VELA_ZCE_API bool IsValidMac(const char* str);

/// Whether `str` may be an IPv4 address: 7 to 15 digits and dots, at most 4 numbers of at most 255.
/// Deliberately loose: fewer than 4 numbers, or nothing between two dots, pass. Prints why not.
VELA_ZCE_API bool IsValidIp(const char* str);

/// Reads decimal numbers separated by dots into out[0], out[1], ... (their low bytes), at most
/// five: `out` has room for 5 bytes. Only the first 20 characters of `ip` count. Returns 0 if the
/// text ends right behind the last number read, else -1; also -1, at once, when a number's low byte
/// is 34 (deliberate). The numbers read so far are in `out` also when the result is -1.
VELA_ZCE_API int ipStr2val(const char* ip, unsigned char* out);

/// Whether the text holds a decimal digit.
VELA_ZCE_API bool contains_digit(const char* str);

// ---- Diagnostics ------------------------------------------------------------------------------

/// Writes g_uiPktCnt and "--" to the file descriptor `fd`, then fills `buf` (`bufLen` bytes) with
/// `data` (`dataLen` bytes) as pairs of upper-case hexadecimal digits, a line end and a zero: the
/// caller writes `buf` to the file. Bytes that do not fit are left out and counted on standard
/// output. A `bufLen` below 2 leaves no room for the line end: 1 takes the zero alone, 0 nothing.
VELA_ZCE_API void FillDebugFileHex(char* buf, unsigned int bufLen, int fd,
                                   const unsigned char* data, unsigned int dataLen);

/// Checks that sequence numbers go up by one. `table`, the caller's, has 256 entries, zeroed before
/// the first call; it keeps the last number of each key (its low 8 bits; 0 stands for "none yet").
/// Prints old and new number when `seq` is not the previous one + 1 (modulo 2^32); always stores
/// `seq`. One thread at a time for one table.
VELA_ZCE_API void CheckSeqNumIncre(unsigned int* table, unsigned int seq, unsigned int key);
