#ifndef RPLY_STORE_H
#define RPLY_STORE_H
/*
 * Direct stores: an extension of this RPly implementation, beside the RPly
 * interface of rply.h (which it leaves unchanged).
 *
 * A property registered with ply_set_read_store gets no callback: the value
 * of instance i (i < count) is converted and written to base + i * stride,
 * and values of later instances are read and dropped. Everything else stays
 * as with callbacks: values are decoded exactly as the callbacks would see
 * them, errors are reported with the same texts at the same instance, and
 * what was stored before an error stays stored.
 *
 * An element whose wanted properties all have stores (no callbacks) is read
 * in bulk, straight from the file: binary records in blocks, ASCII lines
 * parsed by the line, split across threads when the file is a regular file
 * and the element large. The threads are joined before ply_read returns;
 * the result is the same as reading value by value. Any instance the bulk
 * reader cannot take as a plain record (a short file, a record spread over
 * several lines, a bad number) is read on value by value from there, so the
 * outcome and any message are those of the value-by-value reader.
 *
 * Threading: as for rply.h; the caller's memory behind a store is written by
 * several threads during ply_read, every byte by exactly one of them.
 */
#include "rply.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum e_ply_store_type_ {
  PLY_STORE_FLOAT32, /* the value rounded to single precision, as a C cast */
  PLY_STORE_UINT8_LOW /* ply_store_uint8_low of the value */
} e_ply_store_type;

/* Registers a store for the element and property that ply_set_read_cb would
 * reach (the first of each name), replacing any callback. Returns the
 * element's instance count, or 0 when the element or scalar property does not
 * exist or the store is unusable (no base, negative count). `base` must hold
 * `count` entries `stride` bytes apart until ply_read returns. */
long ply_set_read_store(p_ply ply, const char *element_name, const char *property_name, e_ply_store_type type,
                        void *base, size_t stride, long count);

/* Bulk reading uses at most `threads` threads (0: the CPUs this process may
 * run on, at most 8) and gives each at least `min_bytes` bytes of data
 * (0: 1 MiB). Returns 1; 0 for a NULL handle. */
int ply_set_read_threads(p_ply ply, unsigned threads, size_t min_bytes);

/* The most threads bulk reading uses, the default resolved; 0 for a NULL
 * handle. For callers that split work of their own the same way. */
unsigned ply_get_read_threads(p_ply ply);

/* Truncation toward zero that cannot overflow: saturates at the 64-bit range,
 * NaN gives 0. */
static inline long long ply_truncate_toward_zero(double value) {
  if (value != value) return 0;
  if (value >= 9.2233720368547758e18) return 0x7FFFFFFFFFFFFFFFLL;
  if (value <= -9.2233720368547758e18) return -0x7FFFFFFFFFFFFFFFLL - 1;
  return (long long)value;
}

/* The low 8 bits of the value truncated toward zero (300 gives 44, 12.9 gives
 * 12, -1 gives 255). */
static inline unsigned char ply_store_uint8_low(double value) {
  return (unsigned char)((unsigned long long)ply_truncate_toward_zero(value) & 0xFFu);
}

#ifdef __cplusplus
}
#endif

#endif /* RPLY_STORE_H */
