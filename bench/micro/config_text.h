#pragma once

#include <string>

namespace bench {

inline constexpr int kConfigPairs = 160;

/// A file that goes when the object does.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& text);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    [[nodiscard]] const char* path() const { return mPath.c_str(); }

private:
    std::string mPath;
};

/// 200 lines: pairs, and a comment and an empty line before every eighth.
/// @param first_line a group's head, for those who want one; stands for the first comment
std::string configText(const char* first_line);

}  // namespace bench
