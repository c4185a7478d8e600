#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace test_support {

/// A fresh directory that goes with everything in it.
class TempDir {
public:
    TempDir() { mPath = mkdtemp(mPath.data()); }
    ~TempDir() { std::filesystem::remove_all(mPath); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] std::string path(const std::string& name) const { return mPath + "/" + name; }
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

private:
    std::string mPath = "/tmp/platform-test-XXXXXX";
};

}  // namespace test_support
