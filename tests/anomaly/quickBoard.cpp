#include "quickBoard.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "DrvEnyx/enyxHw.h"
#include "points.h"
#include "quickClock.h"

// One handle of each kind is enough: what lives is counted.
struct enyx_hw_filter {
    int live;
};
struct enyx_hw_accelerator_descriptor {
    int live;
};
struct enyx_hw_accelerator {
    int live;
};
struct enyx_hw_mmio_descriptor {
    int live;
};
struct enyx_hw_mmio {
    int live;
};
struct enyx_hw_core_tree {
    int live;
};
struct enyx_hw_core {
    int locks;
};
struct enyx_hw_a2c_stream_descriptor {
    int live;
};
struct enyx_hw_a2c_stream {
    int live;
};
struct enyx_hw_c2a_stream_descriptor {
    int live;
};
struct enyx_hw_c2a_stream {
    int live;
};

namespace anomaly {

namespace {

constexpr std::uint32_t entryWords = 64;
constexpr std::uint32_t tableWords = 4096 * entryWords;
constexpr std::uint32_t nameWords = 4;

struct Table {
    std::array<std::uint32_t, tableWords> words;
    std::uint32_t data;
    std::uint32_t readAddr;
};

struct Packet {
    std::array<unsigned char, 512> bytes;
    unsigned int size;
};

std::array<Table, 2> s_tables;
std::uint32_t s_decode = 0;
std::uint32_t s_tradeDate = 0;
std::uint32_t s_counter = 0;
std::array<Packet, 64> s_packets;
std::size_t s_queued = 0;
std::size_t s_taken = 0;

enyx_hw_filter s_filter;
enyx_hw_accelerator_descriptor s_accDescriptor;
enyx_hw_accelerator s_accelerator;
enyx_hw_mmio_descriptor s_mmioDescriptor;
enyx_hw_mmio s_mmio;
enyx_hw_core_tree s_tree;
enyx_hw_core s_root;
enyx_hw_core s_core;
enyx_hw_a2c_stream_descriptor s_a2cDescriptor;
enyx_hw_a2c_stream s_a2c;
enyx_hw_c2a_stream_descriptor s_c2aDescriptor;
enyx_hw_c2a_stream s_c2a;

void Misuse(const char* what) {
    auto& text = TheReport().misuse;
    if (text[0] == '\0') {
        std::snprintf(text.data(), text.size(), "%s", what);
    }
}

// Notes the call's name under its number; whether it fails, errno set.
bool FailsHere(const char* call) {
    const bool fails = Fails(Kind::Vendor);
    Report& report = TheReport();
    const std::uint32_t number = report.counts.at(static_cast<std::size_t>(Kind::Vendor));
    if (number != 0 && number <= Report::vendorMax) {
        std::snprintf(report.vendorCalls.at(number - 1).data(), Report::nameBytes, "%s", call);
    }
    errno = fails ? EIO : errno;
    return fails;
}

template <typename Object>
Object* Open(const char* call, Object& object) {
    if (FailsHere(call)) {
        return nullptr;
    }
    ++object.live;
    return &object;
}

template <typename Object>
void Close(const char* call, Object* object, Object& known) {
    if (object != &known || known.live == 0) {
        Misuse(call);
    } else {
        --known.live;
    }
    errno = ENOTTY;  // the calls without a result may change it
}

template <typename Descriptor>
int Find(const char* call, Descriptor** list, Descriptor& descriptor) {
    if (FailsHere(call)) {
        return -1;
    }
    ++descriptor.live;
    list[0] = &descriptor;
    return 1;
}

int Value(const char* call, std::uint32_t* value, std::uint32_t result) {
    if (FailsHere(call)) {
        return -1;
    }
    *value = result;
    return 0;
}

bool IsTableRegister(std::uint32_t addr) {
    return (addr & ~0x3U) == 0x11000 || (addr & ~0x3U) == 0x12000;
}

// Numbers a register access and notes it; whether it fails.
bool AccessFails(Kind kind, std::uint32_t addr, std::uint32_t value) {
    const bool fails = Fails(kind);
    Report& report = TheReport();
    const std::uint32_t number = report.counts.at(static_cast<std::size_t>(kind));
    if (number != 0 && !IsTableRegister(addr)) {
        auto& list = kind == Kind::Read ? report.controlReads : report.controlWrites;
        auto& count = kind == Kind::Read ? report.controlReadNum : report.controlWriteNum;
        if (count < list.size()) {
            list.at(count++) = {number, addr};
        }
    }
    if (s_core.locks != 1) {
        Misuse("register access without the core's lock");
    }
    if (fails) {
        report.failedAddr = addr;
        report.failedValue = value;
        errno = EIO;
    }
    return fails;
}

std::uint32_t ReadBoard(std::uint32_t addr) {
    switch (addr) {
        case 0x11003:
        case 0x12003: {
            const Table& table = s_tables.at(addr == 0x11003 ? 0 : 1);
            return table.readAddr < tableWords ? table.words[table.readAddr] : 0;
        }
        case 0x11:
            return s_decode;
        case 0x103:
            return 0xF;
        case 0x104:
        case 0x105:
            return ClockTime();
        case 0x106:
            return s_tradeDate;
        case 0x210d:
            return ++s_counter;
        default:
            return 0;
    }
}

void WriteTable(Table& table, std::uint32_t which, std::uint32_t value) {
    if (which == 0 && value < tableWords) {
        table.words[value] = table.data;
    } else if (which == 1) {
        table.data = value;
    } else if (which == 2) {
        table.readAddr = value;
    }
}

void WriteBoard(std::uint32_t addr, std::uint32_t value) {
    if (IsTableRegister(addr)) {
        WriteTable(s_tables.at(addr < 0x12000 ? 0 : 1), addr & 0x3U, value);
    } else if (addr == 0x11) {
        s_decode = value;
    } else if (addr == 0x106) {
        s_tradeDate = value;
    } else if (addr == 0x10 && value == 1) {
        for (Table& table : s_tables) {
            table.words.fill(0);
        }
        s_decode = 0;
    }
}

}  // namespace

void QuickBoard::Clear() {
    for (Table& table : s_tables) {
        table.words.fill(0);
    }
    s_decode = 0;
    s_tradeDate = clockDate;
    s_queued = s_taken = 0;
}

void QuickBoard::SetTradeDate(std::uint32_t date) {
    s_tradeDate = date;
}

void QuickBoard::SetDecode(std::uint32_t value) {
    s_decode = value;
}

void QuickBoard::SetName(unsigned int type, unsigned int index, std::string_view name) {
    for (std::uint32_t part = 0; part < nameWords; ++part) {
        std::uint32_t word = 0;
        for (std::size_t at = part * std::size_t{4}; at < part * std::size_t{4} + 4; ++at) {
            word = word << 8U | (at < name.size() ? static_cast<unsigned char>(name[at]) : 0U);
        }
        s_tables.at(type).words.at(index * entryWords + nameWords - part) = word;
    }
}

void QuickBoard::Queue(const unsigned char* packet, unsigned int size) {
    Packet& slot = s_packets.at(s_queued++);
    std::memcpy(slot.bytes.data(), packet, size);
    slot.size = size;
}

void QuickBoard::EnterEnd() {
    Report& report = TheReport();
    report.locksHeld = s_core.locks + s_root.locks;
    report.filters = s_filter.live;
    report.descriptors =
        s_accDescriptor.live + s_mmioDescriptor.live + s_a2cDescriptor.live + s_c2aDescriptor.live;
    report.a2cStreams = s_a2c.live;
    report.c2aStreams = s_c2a.live;
    report.decode = s_decode;
    report.masks = 0;
    for (std::uint64_t type = 0; type < s_tables.size(); ++type) {
        for (std::uint64_t index = 0; index < tableWords / entryWords; ++index) {
            report.masks +=
                s_tables.at(type).words.at(index * entryWords) * (index + 1) * (type + 1);
        }
    }
}

}  // namespace anomaly

extern "C" {

using namespace anomaly;  // NOLINT(google-build-using-namespace)

enyx_hw_filter* enyx_hw_filter_create(void) {
    return Open("filter_create", s_filter);
}
void enyx_hw_filter_destroy(enyx_hw_filter* filter) {
    Close("filter_destroy", filter, s_filter);
}
int enyx_hw_filter_set_index(enyx_hw_filter* /*filter*/, uint32_t /*index*/) {
    return FailsHere("filter_set_index") ? -1 : 0;
}
int enyx_hw_filter_set_name(enyx_hw_filter* /*filter*/, const char* /*name*/) {
    return FailsHere("filter_set_name") ? -1 : 0;
}
int enyx_hw_enumerate_accelerators(const enyx_hw_filter* /*filter*/,
                                   enyx_hw_accelerator_descriptor** descriptors,
                                   size_t /*capacity*/) {
    return Find("enumerate_accelerators", descriptors, s_accDescriptor);
}
void enyx_hw_free_accelerator_descriptors(enyx_hw_accelerator_descriptor** descriptors,
                                          size_t /*count*/) {
    Close("free_accelerator_descriptors", descriptors[0], s_accDescriptor);
}
enyx_hw_accelerator* enyx_hw_accelerator_get(const enyx_hw_accelerator_descriptor* /*descriptor*/) {
    return Open("accelerator_get", s_accelerator);
}
int enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator* /*accelerator*/,
                                        const enyx_hw_filter* /*filter*/,
                                        enyx_hw_mmio_descriptor** descriptors,
                                        size_t /*capacity*/) {
    return Find("accelerator_enumerate_mmios", descriptors, s_mmioDescriptor);
}
void enyx_hw_free_mmio_descriptors(enyx_hw_mmio_descriptor** descriptors, size_t /*count*/) {
    Close("free_mmio_descriptors", descriptors[0], s_mmioDescriptor);
}
enyx_hw_mmio* enyx_hw_mmio_create(const enyx_hw_mmio_descriptor* /*descriptor*/) {
    return Open("mmio_create", s_mmio);
}
void enyx_hw_mmio_destroy(enyx_hw_mmio* mmio) {
    Close("mmio_destroy", mmio, s_mmio);
}
enyx_hw_core_tree* enyx_hw_enumerate_cores(enyx_hw_mmio* /*mmio*/) {
    return Open("enumerate_cores", s_tree);
}
enyx_hw_core* enyx_hw_core_tree_get_root(enyx_hw_core_tree* /*tree*/) {
    return FailsHere("core_tree_get_root") ? nullptr : &s_root;
}
int enyx_hw_core_reset(enyx_hw_core* /*core*/) {
    return FailsHere("core_reset") ? -1 : 0;
}
int enyx_hw_core_enumerate(enyx_hw_core* /*root*/, uint16_t /*core_id*/, enyx_hw_core** cores,
                           size_t /*capacity*/) {
    if (FailsHere("core_enumerate")) {
        return -1;
    }
    cores[0] = &s_core;
    return 1;
}
void enyx_hw_core_lock(enyx_hw_core* core) {
    if (core != &s_core || ++core->locks != 1) {
        Misuse("core_lock");
    }
}
void enyx_hw_core_unlock(enyx_hw_core* core) {
    if (core != &s_core || --core->locks != 0) {
        Misuse("core_unlock");
    }
}
int enyx_hw_read(enyx_hw_core* /*core*/, const enyx_hw_register_description* description,
                 uint64_t* value) {
    const auto addr = static_cast<std::uint32_t>(description->byte_offset / 4);
    if (AccessFails(Kind::Read, addr, 0)) {
        return -1;
    }
    *value = ReadBoard(addr);
    return 0;
}
int enyx_hw_write(enyx_hw_core* /*core*/, const enyx_hw_register_description* description,
                  uint64_t value) {
    const auto addr = static_cast<std::uint32_t>(description->byte_offset / 4);
    if (AccessFails(Kind::Write, addr, static_cast<std::uint32_t>(value))) {
        return -1;
    }
    WriteBoard(addr, static_cast<std::uint32_t>(value));
    return 0;
}

int enyx_hw_accelerator_enumerate_a2c_streams(enyx_hw_accelerator* /*accelerator*/,
                                              const enyx_hw_filter* /*filter*/,
                                              enyx_hw_a2c_stream_descriptor** descriptors,
                                              size_t /*capacity*/) {
    return Find("accelerator_enumerate_a2c_streams", descriptors, s_a2cDescriptor);
}
void enyx_hw_free_a2c_stream_descriptors(enyx_hw_a2c_stream_descriptor** descriptors,
                                         size_t /*count*/) {
    Close("free_a2c_stream_descriptors", descriptors[0], s_a2cDescriptor);
}
enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(const enyx_hw_a2c_stream_descriptor* /*descriptor*/,
                                              uint32_t /*flags*/) {
    return Open("a2c_stream_create", s_a2c);
}
void enyx_hw_a2c_stream_destroy(enyx_hw_a2c_stream* stream) {
    Close("a2c_stream_destroy", stream, s_a2c);
}
int enyx_hw_a2c_stream_get_mtu(enyx_hw_a2c_stream* /*stream*/, uint32_t* mtu) {
    return Value("a2c_stream_get_mtu", mtu, 2048);
}
int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                 void* context) {
    if (stream != &s_a2c || s_a2c.live != 1) {
        Misuse("a2c_stream_poll_once");
    }
    if (FailsHere("a2c_stream_poll_once")) {
        return -1;
    }
    if (s_taken == s_queued) {
        return 0;
    }
    Packet& packet = s_packets.at(s_taken++);
    handler(packet.bytes.data(), packet.size, context);
    packet.bytes.fill(0xDD);
    return 1;
}
int enyx_hw_a2c_stream_stats_get_backpressure(enyx_hw_a2c_stream* /*stream*/, uint32_t* value) {
    return Value("a2c_stream_stats_get_backpressure", value, 0);
}
int enyx_hw_a2c_stream_stats_get_packet_count(enyx_hw_a2c_stream* /*stream*/, uint32_t* value) {
    return Value("a2c_stream_stats_get_packet_count", value, 9);
}
int enyx_hw_a2c_stream_stats_get_fifo_errors(enyx_hw_a2c_stream* /*stream*/, uint32_t* value) {
    return Value("a2c_stream_stats_get_fifo_errors", value, 0);
}
int enyx_hw_a2c_stream_stats_get_errors(enyx_hw_a2c_stream* /*stream*/, uint32_t* value) {
    return Value("a2c_stream_stats_get_errors", value, 0);
}
int enyx_hw_accelerator_enumerate_c2a_streams(enyx_hw_accelerator* /*accelerator*/,
                                              const enyx_hw_filter* /*filter*/,
                                              enyx_hw_c2a_stream_descriptor** descriptors,
                                              size_t /*capacity*/) {
    return Find("accelerator_enumerate_c2a_streams", descriptors, s_c2aDescriptor);
}
void enyx_hw_free_c2a_stream_descriptors(enyx_hw_c2a_stream_descriptor** descriptors,
                                         size_t /*count*/) {
    Close("free_c2a_stream_descriptors", descriptors[0], s_c2aDescriptor);
}
enyx_hw_c2a_stream* enyx_hw_c2a_stream_create(const enyx_hw_c2a_stream_descriptor* /*descriptor*/,
                                              uint32_t /*flags*/) {
    return Open("c2a_stream_create", s_c2a);
}
void enyx_hw_c2a_stream_destroy(enyx_hw_c2a_stream* stream) {
    Close("c2a_stream_destroy", stream, s_c2a);
}
int enyx_hw_c2a_stream_get_mtu(enyx_hw_c2a_stream* /*stream*/, uint32_t* mtu) {
    return Value("c2a_stream_get_mtu", mtu, 2048);
}
int enyx_hw_c2a_stream_send(enyx_hw_c2a_stream* /*stream*/, const void* /*packet*/,
                            uint32_t /*size*/) {
    return FailsHere("c2a_stream_send") ? -1 : 0;
}

}  // extern "C"
