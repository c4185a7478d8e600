#include "support/files.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace test_support {
namespace {

[[noreturn]] void giveUp(const char* what, const std::string& path) {
    std::fprintf(stderr, "test files: cannot %s %s\n", what, path.c_str());
    std::abort();
}

}  // namespace

void writeFile(const std::string& path, const std::string& content) {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file) {
        giveUp("write", path);
    }
}

std::string readFile(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    if (!file) {
        giveUp("read", path);
    }
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

TempDir::TempDir() : mPath("/tmp/inet-agent-test.XXXXXX") {
    if (mkdtemp(mPath.data()) == nullptr) {
        giveUp("make", mPath);
    }
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::string TempDir::write(const std::string& name, const std::string& content) const {
    writeFile(file(name), content);
    return file(name);
}

}  // namespace test_support
