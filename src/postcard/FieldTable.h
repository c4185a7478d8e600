#pragma once

#include <cstdint>

#include "postcard/FieldType.h"

// The simple types and the arrays in the order of the interfaces' operations, each line once for writer and reader:
// X(suffix of the operations, C++ type, field type). Pointers have no line: they travel as FT_INT64.

#define ZV_POSTCARD_SIMPLE_TYPES(X)          \
    X(Double, double, FT_DOUBLE)             \
    X(Float, float, FT_FLOAT)                \
    X(Int64, long long, FT_INT64)            \
    X(UInt64, unsigned long long, FT_UINT64) \
    X(Int32, int32_t, FT_INT32)              \
    X(UInt32, uint32_t, FT_UINT32)           \
    X(Int16, int16_t, FT_INT16)              \
    X(UInt16, uint16_t, FT_UINT16)           \
    X(Int8, int8_t, FT_INT8)                 \
    X(UInt8, uint8_t, FT_UINT8)              \
    X(Bool, bool, FT_BOOL)

#define ZV_POSTCARD_ARRAY_TYPES(X)                 \
    X(Double, double, FT_ARRAY_DOUBLE)             \
    X(Float, float, FT_ARRAY_FLOAT)                \
    X(Int64, long long, FT_ARRAY_INT64)            \
    X(UInt64, unsigned long long, FT_ARRAY_UINT64) \
    X(Int32, int32_t, FT_ARRAY_INT32)              \
    X(UInt32, uint32_t, FT_ARRAY_UINT32)           \
    X(Int16, int16_t, FT_ARRAY_INT16)              \
    X(UInt16, uint16_t, FT_ARRAY_UINT16)           \
    X(Int8, int8_t, FT_ARRAY_INT8)                 \
    X(UInt8, uint8_t, FT_ARRAY_UINT8)              \
    X(Bool, bool, FT_ARRAY_BOOL)
