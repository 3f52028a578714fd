/*
 * A library called libenyx-hw-c.so.5 with the calls of vendorNames.txt and no other, and a small
 * board in the process's own memory behind it. It stands for a vendor's library that was never
 * seen: it shares no header with the product, core_reset has a "result" that means nothing, and
 * there is no enyx_hw_mmio_destroy.
 *
 * The board was used today. Its clock is the host's local time until instrument-map packets are
 * asked for (register 0x12): of those it sends three, the first before the end of the call auction,
 * the others after it. On channel 0 it sends market data once the decoder is on and SR301 is
 * subscribed there, on the other channels at once: one message of each type, and then a line to
 * standard output when it is polled again.
 *
 * STUB_NO_TREE in the environment: the cores cannot be enumerated.
 */
#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { REGISTERS = 0x20000, TABLE_WORDS = 4096 * 64, ENTRY_WORDS = 64, SR301 = 5, CF301 = 7 };
enum { DECODE = 0x11, TRANSMIT = 0x12, LINK = 0x103, TIME_A = 0x104, TIME_B = 0x105, DATE = 0x106 };
enum { PARSED = 0x200b, SINGLE = 0x11000, COMBINATION = 0x12000 };
enum { MAP_PACKETS = 3, FIRST_TYPE = 17, TYPES = 4 };

struct Register { /* as the calls take it */
    uint64_t byteOffset;
    uint8_t bitOffset;
    uint8_t width;
};
struct Stream {
    unsigned int channel;
    unsigned int maps;
    unsigned int sent;
};
typedef void (*Handler)(const unsigned char*, unsigned int, void*);

static uint32_t s_registers[REGISTERS];
static uint32_t s_tables[2][TABLE_WORDS]; /* single-leg, combination */
static char s_objects[8];                 /* the handles of what there is one of */
static int s_isLocked;

/* ---- Filters hold an index or a name; a stream's descriptor holds its channel ---- */

struct Filter {
    unsigned int index;
    char name[64];
};

void* enyx_hw_filter_create(void) {
    return calloc(1, sizeof(struct Filter));
}
void enyx_hw_filter_destroy(struct Filter* filter) {
    free(filter);
}
int enyx_hw_filter_set_index(struct Filter* filter, uint32_t index) {
    filter->index = index;
    return 0;
}
int enyx_hw_filter_set_name(struct Filter* filter, const char* name) {
    snprintf(filter->name, sizeof(filter->name), "%s", name);
    return 0;
}

static int Enumerate(const struct Filter* filter, void** list) {
    if (filter->index != 0) {
        return 0;
    }
    *list = malloc(1);
    return 1;
}
static int EnumerateStream(const struct Filter* filter, void** list) {
    struct Stream found = {0, 0, 0};
    char tail[8] = "";
    if (sscanf(filter->name, "CUSTOM_CHAN%u_%4s", &found.channel, tail) != 2 ||
        strcmp(tail, "DATA") != 0) {
        return 0;
    }
    *list = malloc(sizeof(found));
    memcpy(*list, &found, sizeof(found));
    return 1;
}

int enyx_hw_enumerate_accelerators(const struct Filter* filter, void** list, size_t capacity) {
    return capacity == 1 ? Enumerate(filter, list) : -1;
}
void enyx_hw_free_accelerator_descriptors(void** list, size_t count) {
    free(count == 1 ? *list : NULL);
}
void* enyx_hw_accelerator_get(const void* descriptor) {
    return descriptor == NULL ? NULL : &s_objects[0];
}
int enyx_hw_accelerator_enumerate_mmios(void* accelerator, const struct Filter* filter, void** list,
                                        size_t capacity) {
    return capacity == 1 && accelerator == &s_objects[0] ? Enumerate(filter, list) : -1;
}
void enyx_hw_free_mmio_descriptors(void** list, size_t count) {
    free(count == 1 ? *list : NULL);
}
void* enyx_hw_mmio_create(const void* descriptor) {
    return descriptor == NULL ? NULL : &s_objects[1];
}

/* ---- The board ---- */

static void PutName(unsigned int table, unsigned int entry, const char* name) {
    for (unsigned int i = 0; name[i] != '\0'; ++i) {
        s_tables[table][entry * ENTRY_WORDS + 4 - i / 4] |= (uint32_t)(unsigned char)name[i]
                                                            << (24 - i % 4 * 8);
    }
}

static uint32_t MaskWord(size_t entry) {
    return s_tables[0][entry * ENTRY_WORDS];
}

static void ReadLocalTime(void) {
    const time_t now = time(NULL);
    struct tm local;
    localtime_r(&now, &local);
    s_registers[DATE] =
        (uint32_t)((local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday);
    s_registers[TIME_A] = (uint32_t)(local.tm_hour * 10000 + local.tm_min * 100 + local.tm_sec);
    s_registers[TIME_B] = s_registers[TIME_A];
}

void* enyx_hw_enumerate_cores(void* mmio) {
    if (mmio != &s_objects[1] || getenv("STUB_NO_TREE") != NULL) {
        errno = EIO;
        return NULL;
    }
    return &s_objects[2];
}
void* enyx_hw_core_tree_get_root(void* tree) {
    return tree == &s_objects[2] ? &s_objects[3] : NULL;
}
int enyx_hw_core_reset(void* root) {
    s_registers[LINK] = root == &s_objects[3] ? 0xF : 0;
    s_registers[DECODE] = 3;
    PutName(0, SR301, "SR301");
    PutName(0, CF301, "CF301");
    ReadLocalTime();
    errno = EIO;
    return -1;
}
int enyx_hw_core_enumerate(void* root, uint16_t id, void** cores, size_t capacity) {
    if (root != &s_objects[3] || id != 474 || capacity != 1) {
        return 0;
    }
    cores[0] = &s_objects[4];
    return 1;
}
void enyx_hw_core_lock(void* core) {
    s_isLocked = core == &s_objects[4];
}
void enyx_hw_core_unlock(void* core) {
    s_isLocked = s_isLocked && core != &s_objects[4];
}

static uint32_t* TableWord(unsigned int first, unsigned int addressRegister) {
    const uint32_t word = s_registers[first + addressRegister] % TABLE_WORDS;
    return &s_tables[first == COMBINATION][word];
}

int enyx_hw_read(void* core, const struct Register* what, uint64_t* value) {
    const uint64_t number = what->byteOffset / 4;
    if (core != &s_objects[4] || !s_isLocked || what->width != 32 || number >= REGISTERS) {
        errno = EINVAL;
        return -1;
    }
    if (number == SINGLE + 3 || number == COMBINATION + 3) {
        *value = *TableWord((unsigned int)number - 3, 2);
    } else {
        *value = s_registers[number];
    }
    s_registers[PARSED] += 1; /* it parses */
    return 0;
}

int enyx_hw_write(void* core, const struct Register* what, uint64_t value) {
    const uint64_t number = what->byteOffset / 4;
    if (core != &s_objects[4] || !s_isLocked || what->width != 32 || number >= REGISTERS) {
        errno = EINVAL;
        return -1;
    }
    s_registers[number] = (uint32_t)value;
    if (number == SINGLE || number == COMBINATION) {
        *TableWord((unsigned int)number, 0) = s_registers[number + 1];
    }
    return 0;
}

/* ---- Streams ---- */

static void* OpenStream(const struct Stream* descriptor, uint32_t flags) {
    struct Stream* const stream = flags == 0 ? malloc(sizeof(*stream)) : NULL;
    if (stream != NULL) {
        *stream = *descriptor;
    }
    return stream;
}

int enyx_hw_accelerator_enumerate_a2c_streams(void* accelerator, const struct Filter* filter,
                                              void** list, size_t capacity) {
    return capacity == 1 && accelerator == &s_objects[0] ? EnumerateStream(filter, list) : -1;
}
void enyx_hw_free_a2c_stream_descriptors(void** list, size_t count) {
    free(count == 1 ? *list : NULL);
}
void* enyx_hw_a2c_stream_create(const struct Stream* descriptor, uint32_t flags) {
    return OpenStream(descriptor, flags);
}
void enyx_hw_a2c_stream_destroy(struct Stream* stream) {
    free(stream);
}
int enyx_hw_a2c_stream_get_mtu(struct Stream* stream, uint32_t* mtu) {
    *mtu = 2048;
    return stream == NULL;
}

static int Hand(Handler handler, void* context, const unsigned char* packet, unsigned int size) {
    unsigned char* const copy = malloc(size); /* read beyond it, and a checker sees it */
    memcpy(copy, packet, size);
    handler(copy, size, context);
    free(copy);
    return 1;
}

int enyx_hw_a2c_stream_poll_once(struct Stream* stream, Handler handler, void* context) {
    /* type, eight bytes, length of what follows; SR301 with index 5, CF301 with index 7 */
    static const unsigned char map[] = {
        2, 0,   0, 0,     0,   0,   0,   0,   0,   0, 0,  0,   0, 24,    0,   14,  0,   0,   0,
        0, 'x', 0, SR301, 'S', 'R', '3', '0', '1', 0, 10, 'x', 0, CF301, 'C', 'F', '3', '0', '1'};
    unsigned char data[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xB0, 0xB1};
    if (stream->channel == 0) {
        if (s_registers[TRANSMIT] == 1 && stream->maps < MAP_PACKETS) {
            s_registers[TIME_A] = stream->maps == 0 ? 85000 : 85511;
            stream->maps += 1;
            return Hand(handler, context, map, sizeof(map));
        }
        if (s_registers[TRANSMIT] != 0 || s_registers[DECODE] == 0 || (MaskWord(SR301) & 1) == 0) {
            return 0;
        }
    }
    if (stream->sent < TYPES) {
        data[0] = (unsigned char)(FIRST_TYPE + stream->sent);
        stream->sent += 1;
        return Hand(handler, context, data, sizeof(data));
    }
    if (stream->sent == TYPES) {
        stream->sent += 1;
        printf("stub: all sent on channel %u, maps %u, masks %x %x, decoder %u\n", stream->channel,
               stream->maps, MaskWord(SR301), MaskWord(CF301), s_registers[DECODE]);
        fflush(stdout);
    }
    return 0;
}

static int Count(const struct Stream* stream, uint32_t* value, uint32_t count) {
    *value = count;
    return stream == NULL;
}
int enyx_hw_a2c_stream_stats_get_backpressure(struct Stream* stream, uint32_t* value) {
    return Count(stream, value, 0);
}
int enyx_hw_a2c_stream_stats_get_packet_count(struct Stream* stream, uint32_t* value) {
    return Count(stream, value, TYPES);
}
int enyx_hw_a2c_stream_stats_get_fifo_errors(struct Stream* stream, uint32_t* value) {
    return Count(stream, value, 0);
}
int enyx_hw_a2c_stream_stats_get_errors(struct Stream* stream, uint32_t* value) {
    return Count(stream, value, 0);
}

int enyx_hw_accelerator_enumerate_c2a_streams(void* accelerator, const struct Filter* filter,
                                              void** list, size_t capacity) {
    return capacity == 1 && accelerator == &s_objects[0] ? EnumerateStream(filter, list) : -1;
}
void enyx_hw_free_c2a_stream_descriptors(void** list, size_t count) {
    free(count == 1 ? *list : NULL);
}
void* enyx_hw_c2a_stream_create(const struct Stream* descriptor, uint32_t flags) {
    return OpenStream(descriptor, flags);
}
void enyx_hw_c2a_stream_destroy(struct Stream* stream) {
    free(stream);
}
int enyx_hw_c2a_stream_get_mtu(struct Stream* stream, uint32_t* mtu) {
    *mtu = 2048;
    return stream == NULL;
}
int enyx_hw_c2a_stream_send(struct Stream* stream, const void* packet, uint32_t size) {
    return stream == NULL || packet == NULL || size == 0;
}
