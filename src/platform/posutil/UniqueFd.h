#pragma once

#include <unistd.h>

#include <utility>

namespace pos_util {

/// Owns a descriptor, or -1 for none.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(mFd, other.mFd);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() {
        if (mFd >= 0) {
            close(mFd);
        }
    }

    [[nodiscard]] int get() const { return mFd; }
    [[nodiscard]] bool valid() const { return mFd >= 0; }

private:
    int mFd = -1;
};

}  // namespace pos_util
