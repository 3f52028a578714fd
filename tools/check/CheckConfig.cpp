// The section [config]: board, channel, CPU, feeds and their addresses.

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "DataType/ZceRegMap.h"
#include "check/Check.h"

namespace ZceCheck {

namespace {

using Vela2_U50::ZceNetAddrRegs_t;

constexpr const char* CONFIG = "config";
constexpr unsigned MAX_PORT = 65535;
constexpr unsigned FEED_ITEMS = 6;

// An end of a feed: how its keys begin, and its registers.
struct End {
    const char* keys;
    const ZceNetAddrRegs_t& regs;
};

struct FeedParts {
    const char* name;
    const char* switchKey;
    unsigned switchBit;
    unsigned long switchReg;
    End destination;
    End source;
};

const std::array<FeedParts, 2> FEEDS = {{
    {"L1",
     "czce_level1",
     Vela2_U50::ZCE_SWITCH_L1,
     Vela2_U50::ZCE_REG_L1_NET_SWITCH,
     {"l1_dst", Vela2_U50::ZCE_REG_L1_DST},
     {"l1_src", Vela2_U50::ZCE_REG_L1_SRC}},
    {"L5",
     "czce_level2",
     Vela2_U50::ZCE_SWITCH_L5,
     Vela2_U50::ZCE_REG_L5_NET_SWITCH,
     {"l5_dst", Vela2_U50::ZCE_REG_L5_DST},
     {"l5_src", Vela2_U50::ZCE_REG_L5_SRC}},
}};

std::optional<unsigned> Written(const CheckResult& result, unsigned long reg) {
    const auto found = result.library.registers.find(reg);
    return found == result.library.registers.end() ? std::nullopt
                                                   : std::optional<unsigned>(found->second);
}

unsigned Byte(unsigned value, unsigned from) {
    return value >> from & 0xFFU;
}

// The addresses as the board has them, of what was written.
FeedEnd WrittenEnd(const CheckResult& result, const ZceNetAddrRegs_t& regs) {
    FeedEnd end;
    if (const auto upper = Written(result, regs.macUpper)) {
        const unsigned lower = Written(result, regs.macLower).value_or(0);
        end.mac = fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", Byte(*upper, 8),
                              Byte(*upper, 0), Byte(lower, 24), Byte(lower, 16), Byte(lower, 8),
                              Byte(lower, 0));
    }
    if (const auto ip = Written(result, regs.ip)) {
        end.ip =
            fmt::format("{}.{}.{}.{}", Byte(*ip, 24), Byte(*ip, 16), Byte(*ip, 8), Byte(*ip, 0));
    }
    end.port = Written(result, regs.port);
    return end;
}

// In small letters, each number without leading zeros: two texts of one address are then the same.
std::string Plain(std::string_view address, char separator) {
    std::string plain;
    while (true) {
        const auto end = address.find(separator);
        const std::string number = Lowered(address.substr(0, end));
        const auto first = number.find_first_not_of('0');
        plain += first != std::string::npos ? number.substr(first) : number.substr(0, 1);
        if (end == std::string_view::npos) {
            return plain;
        }
        plain += separator;
        address.remove_prefix(end + 1);
    }
}

void CheckAddress(CheckResult& result, const std::string& key, char separator,
                  const std::optional<std::string>& written) {
    const Place place = PlaceOf(result, CONFIG, key);
    if (!written || Plain(place.value, separator) == Plain(*written, separator)) {
        return;
    }
    const bool bMac = separator == ':';
    result.findings.Add(
        bMac ? Code::BadMac : Code::BadIp, place,
        fmt::format("it is no {} address: the board gets {}, and counts it as one of the six",
                    bMac ? "MAC" : "IPv4", *written),
        bMac ? "write six hexadecimal bytes, as 01:00:5e:01:01:05"
             : "write four numbers from 0 to 255, as 239.1.1.5");
}

// A number of the file: what the reader makes of it. Says if it ends before the text does, is too
// large for the reader, or is octal.
void CheckNumber(CheckResult& result, const std::string& key, long read) {
    const Place place = PlaceOf(result, CONFIG, key);
    const char* const text = place.value.c_str();
    char* end = nullptr;
    const long number = std::strtol(text, &end, 0);
    if (end == text || *end != '\0') {
        result.findings.Add(
            Code::BadNumber, place,
            fmt::format("\"{}\" is no number: it is read as {}", Shown(place.value), read),
            "write the digits alone");
    } else if (number != read) {
        result.findings.Add(
            Code::BadNumber, place,
            fmt::format("{} is too large a number: it is read as {}", Shown(place.value), read),
            "write a smaller one");
    } else if (place.value.size() > 1 && place.value[0] == '0' &&
               std::isdigit(static_cast<unsigned char>(place.value[1])) != 0) {
        result.findings.Add(Code::OctalNumber, place,
                            fmt::format("a number that begins with 0 is octal: {} is read as {}",
                                        place.value, read),
                            "leave the leading zeros out");
    }
}

void CheckPort(CheckResult& result, const std::string& key, const std::optional<unsigned>& port) {
    if (result.library.Value(CONFIG, key) == nullptr) {
        return;
    }
    const Place place = PlaceOf(result, CONFIG, key);
    CheckNumber(result, key, port ? static_cast<int>(*port) : 0);
    if (!port) {
        result.findings.Add(Code::BadPort, place, "a port of 0 counts as absent",
                            "write the port of the exchange's notice");
    } else if (*port > MAX_PORT) {
        result.findings.Add(
            Code::BadPort, place,
            fmt::format("there is no port {}: the board gets 0x{:x}", Shown(place.value), *port),
            "write a port from 1 to 65535");
    }
}

void CheckEnd(CheckResult& result, const End& keys, const FeedEnd& end,
              std::vector<std::string>& lacking) {
    const std::string begin = keys.keys;
    CheckAddress(result, begin + "mac", ':', end.mac);
    CheckAddress(result, begin + "ip", '.', end.ip);
    CheckPort(result, begin + "port", end.port);
    std::string shown = begin;
    std::transform(shown.begin(), shown.end(), shown.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    for (const auto& [bThere, name] : {std::pair<bool, const char*>{end.mac.has_value(), "MAC"},
                                       {end.ip.has_value(), "IP"},
                                       {end.port.has_value(), "PORT"}}) {
        if (!bThere) {
            lacking.push_back(shown + name);
        }
    }
}

// The first line on which an address of the feed stands.
Place FirstOf(const CheckResult& result, const char* feed) {
    const std::string begin = Lowered(feed) + "_";
    for (const IniKey& entry : result.lines.keys) {
        if (entry.section == CONFIG && entry.key.starts_with(begin)) {
            return {entry.line, CONFIG, entry.written, ""};
        }
    }
    return {result.lines.LineOf(CONFIG), CONFIG, "", ""};
}

void CheckFeedSwitch(const FeedParts& parts, CheckResult& result) {
    const std::string* const value = result.library.Value(CONFIG, parts.switchKey);
    if (value == nullptr || *value == "disabled" || *value == "enabled") {
        return;
    }
    const std::string lowered = Lowered(*value);
    const bool bOff = lowered.find("disable") != std::string::npos || lowered == "off" ||
                      lowered == "no" || lowered == "0" || lowered == "false";
    result.findings.Add(
        bOff ? Code::NotDisabled : Code::OddFeedSwitch, PlaceOf(result, CONFIG, parts.switchKey),
        fmt::format("{} stays on: only the exact word disabled switches it off", parts.name),
        bOff ? "write disabled" : "write enabled or disabled");
}

void CheckFeed(const FeedParts& parts, Feed& feed, CheckResult& result) {
    feed.name = parts.name;
    feed.switchKey = parts.switchKey;
    feed.bOn = (result.library.feeds & parts.switchBit) != 0;
    feed.switchReg = parts.switchReg;
    feed.bOpens = Written(result, parts.switchReg).has_value();
    feed.destination = WrittenEnd(result, parts.destination.regs);
    feed.source = WrittenEnd(result, parts.source.regs);
    CheckFeedSwitch(parts, result);
    std::vector<std::string> lacking;
    CheckEnd(result, parts.destination, feed.destination, lacking);
    CheckEnd(result, parts.source, feed.source, lacking);
    feed.items = FEED_ITEMS - static_cast<unsigned>(lacking.size());
    if (feed.items != 0 && feed.items != FEED_ITEMS) {
        result.findings.Add(
            Code::FeedIncomplete, FirstOf(result, parts.name),
            fmt::format("{} has {} of its 6 addresses: the board's switch 0x{:x} stays closed",
                        parts.name, feed.items, parts.switchReg),
            fmt::format("add {}", Listed(lacking)));
    }
}

std::string DeviceHint() {
    return "write xilinx, the board (0 to 4), a colon and the DMA channel (0 to 15), as xilinx0:3";
}

void CheckDeviceText(CheckResult& result) {
    const Place place = PlaceOf(result, CONFIG, "device");
    if (result.library.Value(CONFIG, "device") == nullptr) {
        result.findings.Add(Code::DeviceMissing, place,
                            "there is none: the start fails, and the process ends", DeviceHint());
        return;
    }
    if (!result.library.bStarts) {
        result.findings.Add(Code::BadDevice, place,
                            "it names no board and channel: the start fails, and the process ends",
                            DeviceHint());
        return;
    }
    const bool bCapitals = std::any_of(place.value.begin(), place.value.end(),
                                       [](unsigned char c) { return std::isupper(c) != 0; });
    const auto colon = place.value.find(':');
    const auto number = place.value.find_first_of("0123456789", colon);
    const auto behind = place.value.find_first_not_of("0123456789", number);
    if (behind != std::string::npos) {
        result.findings.Add(Code::DeviceTextBehind, place,
                            fmt::format("what stands behind the channel is ignored: \"{}\"",
                                        Shown(place.value.substr(behind))),
                            "put a ; before a comment");
    } else if (bCapitals) {
        result.findings.Add(Code::DeviceCapitals, place,
                            "the start logs an ERROR line about capital letters, and goes on",
                            "write xilinx in small letters");
    }
}

}  // namespace

void CheckDevice(CheckResult& result) {
    CheckDeviceText(result);
    if (result.library.Value(CONFIG, "cpucore") == nullptr) {
        return;
    }
    CheckNumber(result, "cpucore", result.library.cpu.value_or(-1));
    if (result.library.cpu && !result.library.bBound) {
        result.findings.Add(
            Code::CpuAbsent, PlaceOf(result, CONFIG, "cpucore"),
            fmt::format("CPU {} is not there, or not for this process (this machine has {}, "
                        "counted from 0): the thread stays unbound",
                        *result.library.cpu, sysconf(_SC_NPROCESSORS_ONLN)),
            "name a CPU of the machine that will run it, or -1 for none");
    }
}

void CheckFeeds(CheckResult& result) {
    for (std::size_t at = 0; at < FEEDS.size(); ++at) {
        CheckFeed(FEEDS[at], result.feeds[at], result);
    }
    if (result.library.feeds == 0) {
        result.findings.Add(Code::FeedsOff, PlaceOf(result, CONFIG, "czce_level2"),
                            "both feeds are off: nobody receives any data",
                            "take disabled away from one of them");
    }
    const Feed& one = result.feeds[0];
    const Feed& two = result.feeds[1];
    for (const auto& [feed, other] : {std::pair{&one, &two}, std::pair{&two, &one}}) {
        if (feed->bOn && feed->items == 0 && other->items != 0) {
            result.findings.Add(
                Code::FeedWithoutAddresses, {result.lines.LineOf(CONFIG), CONFIG, "", ""},
                fmt::format("{} is on and has no address, unlike {}: the board's switch 0x{:x} "
                            "stays as it is",
                            feed->name, other->name, feed->switchReg),
                fmt::format("add its six addresses, or write {} = disabled", feed->switchKey));
        }
    }
}

}  // namespace ZceCheck
