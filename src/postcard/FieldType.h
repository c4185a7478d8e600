#pragma once

#include <cstdint>

namespace zv_loc_fw {

/// Type code of a postcard field as it stands in the bytes (16 bits). The gaps are no valid types. The floating-point
/// types follow string and blob among the simple types but come last among the arrays: deliberate.
enum eFieldType : uint16_t {
    FT_CARD = 1,
    FT_INT64 = 10,
    FT_UINT64 = 11,
    FT_INT32 = 12,
    FT_UINT32 = 13,
    FT_INT16 = 14,
    FT_UINT16 = 15,
    FT_INT8 = 16,
    FT_UINT8 = 17,
    FT_BOOL = 18,
    FT_STRING = 19,
    FT_BLOB = 20,
    FT_DOUBLE = 21,
    FT_FLOAT = 22,
    FT_ARRAY_INT64 = 30,
    FT_ARRAY_UINT64 = 31,
    FT_ARRAY_INT32 = 32,
    FT_ARRAY_UINT32 = 33,
    FT_ARRAY_INT16 = 34,
    FT_ARRAY_UINT16 = 35,
    FT_ARRAY_INT8 = 36,
    FT_ARRAY_UINT8 = 37,
    FT_ARRAY_BOOL = 38,
    FT_ARRAY_DOUBLE = 39,
    FT_ARRAY_FLOAT = 40,
};

}  // namespace zv_loc_fw
