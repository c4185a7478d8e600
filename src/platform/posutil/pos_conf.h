#pragma once

#include <cstdint>

/// The device's configuration files and the table-driven reader of the platform's own.

/// The agent's configuration file, "/vendor/etc/marlow.conf".
extern const char* const POS_PATH_MARLOW_CONF;
/// The platform's GNSS configuration file, "/vendor/etc/gps.conf".
extern const char* const POS_PATH_GPS_CONF;

/// One key that a caller is interested in.
struct pos_conf_entry {
    const char* name;
    /// out, written only when the key is there and its value is of the type: long* for 'n', char[string_limit] for 's'
    void* value;
    /// 'n' a number (decimal, 0x hexadecimal), 's' text
    char type;
    /// out, may be null: whether the key was there with a value of its type
    bool* found;
};

/// Reads "KEY = value" lines ("#" begins a comment line, the last line of a key wins, unknown keys and lines that make
/// no sense are skipped) into a table. Any thread.
/// @param string_limit bytes of a text value, its terminating zero included; longer text is cut
/// @return 0; -1 the file cannot be read (every output untouched)
int pos_read_conf_long(const char* path, const pos_conf_entry* table, uint32_t count, uint32_t string_limit);
