#pragma once

#include <cstdint>

namespace zv_loc_fw {

/// A text file of key = value lines, read once. Later lines win over earlier ones with the same key. A file with one
/// bad line counts as absent as a whole: loaded() is false and every key takes its default.
///
///   # comment (whole lines only)
///   KEY-1 = text up to the end of the line     # this is part of the value
///   KEY_2 = "  quotes keep the blanks  "
///
/// Read-only after creation: any thread may call the getters.
class ConfigFile {
public:
    /// The key is not in the file, or (numbers, copies) there is no file.
    static constexpr int kAbsent = 1000;

    /// @param unused_size, unused_flag have no effect: a line may be 1022 characters long
    /// @return the caller's, deleted through this interface; null only without memory. What is wrong with the file is
    ///         logged as "ConfigFileImpl: cannot load config file result [%d] [%s], error [%d][%s], line[%d]":
    ///         2 no path, 3 not opened, 4 no memory, 10 read error, 101 line too long, 110 key does not begin with a
    ///         letter, 111 no "=", 112 no value or an open quote, 113 to 115 no memory for pair, key, value
    [[nodiscard]] static ConfigFile* createInstance(const char* path, uint64_t unused_size, bool unused_flag);

    virtual ~ConfigFile() = default;

    /// Whether the whole file was read without an error.
    [[nodiscard]] virtual bool loaded() const = 0;

    /// @param value out: the object's own text, valid as long as the object
    /// @return 0; kAbsent; 2 not loaded; 3 no key; 4 no output
    virtual int getString(const char* key, const char** value) const = 0;
    /// @param value out: a copy for the caller to free with delete[]; of the default when the key is absent
    /// @param default_value may be null: then an absent key is kAbsent
    /// @return 0; kAbsent; 3 no key; 4 no output; 101, 111 no memory
    virtual int getStringDup(const char* key, const char** value, const char* default_value) const = 0;
    /// Decimal, 0x hexadecimal or 0 octal. The output is written on success only.
    /// @return 0; kAbsent; 3 no key; 101 empty, 102 beyond 64 bits, 103 conversion, 104 trailing text,
    ///         105 beyond 32 bits
    virtual int getInt32(const char* key, int32_t& value) const = 0;
    /// An absent key is the default and 0; an error stays an error and leaves the output untouched.
    virtual int getInt32Default(const char* key, int32_t& value, const int32_t& default_value) const = 0;
    /// Positive or zero: as getInt32Default, but when the output is negative afterwards it becomes the default and the
    /// result 1 (after an error the output is what the caller had put there: deliberate).
    virtual int get_PZ_Int32Default(const char* key, int32_t& value, const int32_t& default_value) const = 0;
    /// Positive, not zero: the same for zero and negative values.
    virtual int get_PNZ_Int32Default(const char* key, int32_t& value, const int32_t& default_value) const = 0;
    /// @return 0; kAbsent; 3 no key; 101 empty, 102 out of range, 103 trailing text
    virtual int getDouble(const char* key, double& value) const = 0;
    virtual int getDoubleDefault(const char* key, double& value, const double& default_value) const = 0;
};

}  // namespace zv_loc_fw
