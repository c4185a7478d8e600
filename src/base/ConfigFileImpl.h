#pragma once

#include <cstdio>
#include <string_view>

#include "base/ConfigFile.h"
#include "base/List.h"
#include "base/TextArena.h"

namespace zv_loc_fw {

class ConfigFileImpl : public ConfigFile {
public:
    explicit ConfigFileImpl(const char* path);

    bool loaded() const override { return mLoaded; }
    int getString(const char* key, const char** value) const override;
    int getStringDup(const char* key, const char** value, const char* default_value) const override;
    int getInt32(const char* key, int32_t& value) const override;
    int getInt32Default(const char* key, int32_t& value, const int32_t& default_value) const override;
    int get_PZ_Int32Default(const char* key, int32_t& value, const int32_t& default_value) const override;
    int get_PNZ_Int32Default(const char* key, int32_t& value, const int32_t& default_value) const override;
    int getDouble(const char* key, double& value) const override;
    int getDoubleDefault(const char* key, double& value, const double& default_value) const override;

private:
    struct ConfigPair {
        const char* key;  // both in mTexts
        const char* value;
    };

    /// @param line out: lines read
    /// @param error out: errno of the failure
    int load(const char* path, int32_t& line, int& error);
    int readLines(FILE* file, int32_t& line);
    const char* subStringDup(std::string_view text);
    int addLine(const char* text, size_t length);
    /// @return the value, null when the key is absent
    const char* find(const char* key) const;
    template <typename T>
    int getNumber(const char* getter, const char* key, T& value, int (*convert)(const char*, T&)) const;
    int getAtLeast(int32_t lowest, const char* key, int32_t& value, const int32_t& default_value) const;

    bool mLoaded = false;
    TextArena mTexts;
    /// Newest line first, so that a later line hides an earlier one.
    List<ConfigPair> mPairs;
};

}  // namespace zv_loc_fw
