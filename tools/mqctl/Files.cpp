#include "Files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace mqctl {

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

bool fail(const std::string& path, std::string* error) {
    *error = path + ": " + std::strerror(errno != 0 ? errno : EIO);
    return false;
}

bool readAll(std::FILE* file, std::string* content) {
    char part[65536];
    content->clear();
    while (true) {
        const size_t count = std::fread(part, 1, sizeof(part), file);
        content->append(part, count);
        if (count < sizeof(part)) {
            return std::ferror(file) == 0;
        }
    }
}

}  // namespace

bool readWholeFile(const std::string& path, std::string* content, std::string* error) {
    errno = 0;
    if (path == "-") {
        return readAll(stdin, content) || fail("standard input", error);
    }
    const FilePtr file(std::fopen(path.c_str(), "rb"));
    return (file != nullptr && readAll(file.get(), content)) || fail(path, error);
}

bool writeWholeFile(const std::string& path, const void* data, size_t size, std::string* error) {
    errno = 0;
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (file == nullptr || (size > 0 && std::fwrite(data, 1, size, file.get()) != size)) {
        return fail(path, error);
    }
    return std::fclose(file.release()) == 0 || fail(path, error);
}

}  // namespace mqctl
