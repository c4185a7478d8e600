// Runs a fuzz target over files, without a fuzzing engine: any compiler, any sanitizer, a debugger.
//
//   fuzz_NAME FILE_OR_DIRECTORY...
//
// Each file is one input, in the order of the names. An input that breaks something ends the process, as it does under
// the engine; its name is the last line then.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "support/Input.h"

namespace {

bool replay(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad()) {
        (void)std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    (void)std::printf("%s\n", path.c_str());
    (void)std::fflush(stdout);  // before the input has its say
    // An exact copy: a sanitizer sees the first byte behind it.
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[content.size()]);
    if (!content.empty()) {
        std::memcpy(bytes.get(), content.data(), content.size());
    }
    (void)LLVMFuzzerTestOneInput(bytes.get(), content.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    (void)LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (!std::filesystem::is_directory(argv[i], error)) {
            files.emplace_back(argv[i]);
            continue;
        }
        std::vector<std::string> inside;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i], error)) {
            inside.push_back(entry.path().string());
        }
        std::sort(inside.begin(), inside.end());
        files.insert(files.end(), inside.begin(), inside.end());
    }
    if (files.empty()) {
        (void)std::fprintf(stderr, "nothing to replay\n");
        return 2;
    }
    for (const std::string& file : files) {
        if (!replay(file)) {
            return 1;
        }
    }
    (void)std::printf("%zu inputs, nothing found\n", files.size());
    return 0;
}
