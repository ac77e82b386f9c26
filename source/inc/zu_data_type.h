/*
 * Scalar types of the zu_net_dev interface, and the two helpers that its headers share.
 * Every width is fixed, because records built from these types travel to the device byte for byte.
 * The header needs C11 or C++11 and has no state, so it may be included anywhere.
 */
#ifndef ZU_DATA_TYPE_H
#define ZU_DATA_TYPE_H

#include <stddef.h>
#include <stdint.h>

/* A claim that the compiler checks, spelt for both languages. */
#ifdef __cplusplus
#define ZU_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define ZU_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/* The layout of a record: its size, and where a field starts. */
#define ZU_ASSERT_SIZE(record, bytes)                                                              \
    ZU_STATIC_ASSERT(sizeof(record) == (bytes), #record " is not " #bytes " bytes")
#define ZU_ASSERT_FIELD(record, field, offset)                                                     \
    ZU_STATIC_ASSERT(offsetof(record, field) == (offset), #record "." #field " not at " #offset)

/* Fixes the width of an enumeration where the language can say it; C compilers for the supported
 * platforms choose 32 bits by themselves. With a fixed width every 32-bit value is a valid one. */
#ifdef __cplusplus
#define ZU_ENUM_OF(type) : type
#else
#define ZU_ENUM_OF(type)
#endif

typedef uint8_t ZU_U8;
typedef uint16_t ZU_U16;
typedef uint32_t ZU_U32;
typedef int32_t ZU_S32;
typedef uint64_t ZU_U64;
typedef char ZU_CHAR;
typedef void ZU_VOID;

/* A device may send other values than these two; they mean whatever the device says. */
typedef enum ZU_Bool ZU_ENUM_OF(ZU_U32){ZU_FALSE = 0, ZU_TRUE = 1} ZU_BOOL;

ZU_ASSERT_SIZE(ZU_U8, 1);
ZU_ASSERT_SIZE(ZU_U16, 2);
ZU_ASSERT_SIZE(ZU_U32, 4);
ZU_ASSERT_SIZE(ZU_S32, 4);
ZU_ASSERT_SIZE(ZU_U64, 8);
ZU_ASSERT_SIZE(ZU_CHAR, 1);
ZU_ASSERT_SIZE(ZU_BOOL, 4);

#endif /* ZU_DATA_TYPE_H */
