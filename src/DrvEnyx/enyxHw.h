#ifndef ENYX_HW_H
#define ENYX_HW_H

/*
 * The board vendor's C interface (libenyx-hw-c.so.5), as far as it is used here: the one
 * declaration of these calls. The drivers call them, the software board implements them.
 *
 * Handles are opaque. An enumeration fills up to `capacity` descriptors and returns how many it
 * found, or -1 with errno set; the caller gives the list back with the matching free call, count
 * being the number of descriptors filled. Calls that return a pointer return NULL on failure, calls
 * that return an int return 0 for success unless said otherwise; both set errno. A null handle is
 * never followed: a call that can fail then fails with EINVAL, the others (destroy, free, lock,
 * unlock) do nothing.
 *
 * Register accesses may come from any thread and any process; a stream is used by one thread.
 */

#include <stddef.h> /* NOLINT(modernize-deprecated-headers): a C interface */
#include <stdint.h> /* NOLINT(modernize-deprecated-headers) */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct enyx_hw_filter enyx_hw_filter;                                 /* NOLINT */
typedef struct enyx_hw_accelerator_descriptor enyx_hw_accelerator_descriptor; /* NOLINT */
typedef struct enyx_hw_accelerator enyx_hw_accelerator;                       /* NOLINT */
typedef struct enyx_hw_mmio_descriptor enyx_hw_mmio_descriptor;               /* NOLINT */
typedef struct enyx_hw_mmio enyx_hw_mmio;                                     /* NOLINT */
typedef struct enyx_hw_core_tree enyx_hw_core_tree;                           /* NOLINT */
typedef struct enyx_hw_core enyx_hw_core;                                     /* NOLINT */
typedef struct enyx_hw_a2c_stream_descriptor enyx_hw_a2c_stream_descriptor;   /* NOLINT */
typedef struct enyx_hw_a2c_stream enyx_hw_a2c_stream;                         /* NOLINT */
typedef struct enyx_hw_c2a_stream_descriptor enyx_hw_c2a_stream_descriptor;   /* NOLINT */
typedef struct enyx_hw_c2a_stream enyx_hw_c2a_stream;                         /* NOLINT */

/* ---- Filters: which objects an enumeration is to find ---- */

/* A filter that matches everything. Destroy it with enyx_hw_filter_destroy. */
enyx_hw_filter* enyx_hw_filter_create(void);
void enyx_hw_filter_destroy(enyx_hw_filter* filter);
/* Match only the object with this index (an accelerator's bus index, an MMIO's number). */
int enyx_hw_filter_set_index(enyx_hw_filter* filter, uint32_t index);
/* Match only the object with this name (a stream's). The name is copied. */
int enyx_hw_filter_set_name(enyx_hw_filter* filter, const char* name);

/* ---- Accelerators: the boards of this machine ---- */

int enyx_hw_enumerate_accelerators(const enyx_hw_filter* filter,
                                   enyx_hw_accelerator_descriptor** descriptors, size_t capacity);
void enyx_hw_free_accelerator_descriptors(enyx_hw_accelerator_descriptor** descriptors,
                                          size_t count);
/* Opens the described accelerator; it lives as long as the process. */
enyx_hw_accelerator* enyx_hw_accelerator_get(const enyx_hw_accelerator_descriptor* descriptor);

/* ---- MMIOs: the register spaces of an accelerator ---- */

int enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator* accelerator,
                                        const enyx_hw_filter* filter,
                                        enyx_hw_mmio_descriptor** descriptors, size_t capacity);
void enyx_hw_free_mmio_descriptors(enyx_hw_mmio_descriptor** descriptors, size_t count);
enyx_hw_mmio* enyx_hw_mmio_create(const enyx_hw_mmio_descriptor* descriptor);
void enyx_hw_mmio_destroy(enyx_hw_mmio* mmio);

/* ---- Cores: the register blocks found in an MMIO ---- */

/* The tree of the cores in the register space; the tree and its cores live as long as the MMIO. */
enyx_hw_core_tree* enyx_hw_enumerate_cores(enyx_hw_mmio* mmio);
enyx_hw_core* enyx_hw_core_tree_get_root(enyx_hw_core_tree* tree);
/* Resets the core and those below it. */
int enyx_hw_core_reset(enyx_hw_core* core);
/* Fills up to `capacity` cores with this hardware id at or below `root`; returns how many there
 * are (0: none), or -1. */
int enyx_hw_core_enumerate(enyx_hw_core* root, uint16_t core_id, enyx_hw_core** cores,
                           size_t capacity);

/* Exclusive use of the core among all threads and processes, until unlocked by the same thread. */
void enyx_hw_core_lock(enyx_hw_core* core);
void enyx_hw_core_unlock(enyx_hw_core* core);

/* Which bits of the core's register space an access means. */
typedef struct enyx_hw_register_description { /* NOLINT(modernize-use-using) */
    uint64_t byte_offset;                     /* of the register in the core's space */
    uint8_t bit_offset;                       /* of the field in the register */
    uint8_t width;                            /* of the field in bits, 1 to 64 */
} enyx_hw_register_description;

/* Reads the described bits into the low bits of *value. Negative on failure, *value untouched. */
int enyx_hw_read(enyx_hw_core* core, const enyx_hw_register_description* description,
                 uint64_t* value);
/* Writes the low bits of `value` to the described bits. Negative on failure. */
int enyx_hw_write(enyx_hw_core* core, const enyx_hw_register_description* description,
                  uint64_t value);

/* ---- Accelerator-to-CPU streams: the board's messages ---- */

/* One packet: its first byte, its size in bytes, the context given to the poll. The packet is the
 * stream's and is valid only during the call. */
typedef void (*enyx_hw_a2c_handler)(const unsigned char* data, unsigned int size, /* NOLINT */
                                    void* context);

int enyx_hw_accelerator_enumerate_a2c_streams(enyx_hw_accelerator* accelerator,
                                              const enyx_hw_filter* filter,
                                              enyx_hw_a2c_stream_descriptor** descriptors,
                                              size_t capacity);
void enyx_hw_free_a2c_stream_descriptors(enyx_hw_a2c_stream_descriptor** descriptors, size_t count);
/* Opens the stream for this process alone; flags is 0. Fails with EBUSY while it is open. */
enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(const enyx_hw_a2c_stream_descriptor* descriptor,
                                              uint32_t flags);
void enyx_hw_a2c_stream_destroy(enyx_hw_a2c_stream* stream);
/* The largest packet of the stream in bytes. */
int enyx_hw_a2c_stream_get_mtu(enyx_hw_a2c_stream* stream, uint32_t* mtu);
/* Hands at most one waiting packet to `handler`, on the calling thread, without a copy.
 * Returns 1 if it did, 0 if none was waiting, negative on failure. */
int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                 void* context);

/* Counters since the stream was opened. */
int enyx_hw_a2c_stream_stats_get_backpressure(enyx_hw_a2c_stream* stream, uint32_t* value);
int enyx_hw_a2c_stream_stats_get_packet_count(enyx_hw_a2c_stream* stream, uint32_t* value);
int enyx_hw_a2c_stream_stats_get_fifo_errors(enyx_hw_a2c_stream* stream, uint32_t* value);
int enyx_hw_a2c_stream_stats_get_errors(enyx_hw_a2c_stream* stream, uint32_t* value);

/* ---- CPU-to-accelerator streams: the host's requests ---- */

int enyx_hw_accelerator_enumerate_c2a_streams(enyx_hw_accelerator* accelerator,
                                              const enyx_hw_filter* filter,
                                              enyx_hw_c2a_stream_descriptor** descriptors,
                                              size_t capacity);
void enyx_hw_free_c2a_stream_descriptors(enyx_hw_c2a_stream_descriptor** descriptors, size_t count);
enyx_hw_c2a_stream* enyx_hw_c2a_stream_create(const enyx_hw_c2a_stream_descriptor* descriptor,
                                              uint32_t flags);
void enyx_hw_c2a_stream_destroy(enyx_hw_c2a_stream* stream);
int enyx_hw_c2a_stream_get_mtu(enyx_hw_c2a_stream* stream, uint32_t* mtu);
/* Sends one packet. 0: sent; 11: the board is busy, try again; anything else: failed. */
int enyx_hw_c2a_stream_send(enyx_hw_c2a_stream* stream, const void* packet, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* ENYX_HW_H */
