#ifndef ENYX_HW_H
#define ENYX_HW_H

/*
 * The board vendor's C interface (libenyx-hw-c.so.5), as far as it is used here: the one
 * declaration of these calls. The drivers call them, the software board implements them. What the
 * comments below say of a call is what its users here rely on.
 *
 * It was written without the vendor's own header: the documents at hand name the calls, their
 * arguments in words and what is expected of their results, but leave most types open. Assumed is:
 *
 * - Handles: pointers to opaque structs, one struct for each kind of object; NULL for none. What
 * the library does with a null handle is not known, and nothing relies on it.
 * - Descriptor lists (accelerators, MMIOs, a2c and c2a streams): an array of pointers to opaque
 *   descriptors, which the caller provides and the enumeration fills up to `capacity`; the free
 * call is given the same array and the number of pointers in it. Not: one pointer to an array of
 *   descriptors that the library allocates, nor an array of descriptor structs of the caller's.
 * - Opening an object (accelerator_get, mmio_create, a2c_ and c2a_stream_create) takes one such
 *   pointer, to a const descriptor.
 * - Results of the enumerations and of core_enumerate: int, the number found, -1 for a failure.
 * - Other results that are looked at: int. filter_set_index, filter_set_name, get_mtu and the
 *   counters give 0 for success; read and write a negative number for a failure; poll_once 1 for a
 *   delivered packet; send 0, or 11 for "try again".
 * - Results of destroy, free, lock and unlock: none. core_reset is declared with an int, which
 *   nobody looks at.
 * - Reasons: a failed call sets errno; a call without a result may change it.
 * - Capacities and counts: size_t. Indices (filter_set_index), the streams' flags, MTUs, counters
 *   and packet sizes: uint32_t. Core ids: uint16_t.
 * - MTUs and the four counters come through an out pointer, the result being a status.
 * - The register description: the struct below, 64 + 8 + 8 bits, handed over by const pointer, not
 *   by value. read gives its word through an out pointer, write takes it by value, 64 bits both.
 * - The receive handler gets the packet, its size as an unsigned int, and the context.
 * - Of the const qualifiers nothing depends, nor of uint32_t against unsigned int or int.
 * - mmio_destroy is not named in those documents. It exists as the counterpart of mmio_create; who
 *   calls it imports it weakly, and does without it where it is not.
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

/* As all enumerations: fills the list with what the filter matches, up to `capacity`, and returns
 * how many it found, or -1. What was filled goes back with the free call. */
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
/* May not be there, see above. */
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
