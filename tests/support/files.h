#pragma once

#include <string>

/// Whole files for tests. A failure is the machine's, not the product's: it ends the test process with a message.
namespace test_support {

/// Makes the file and the directories above it, or replaces what it held.
void writeFile(const std::string& path, const std::string& content);
[[nodiscard]] std::string readFile(const std::string& path);

/// A fresh directory under /tmp, removed with everything in it at the end of the object's life.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::string& path() const { return mPath; }
    [[nodiscard]] std::string file(const std::string& name) const { return mPath + "/" + name; }
    /// @return file(name), written
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string mPath;
};

}  // namespace test_support
