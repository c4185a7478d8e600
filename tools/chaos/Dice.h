#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace chaos {

/// Chance that a seed repeats: each actor owns one, made from the run's seed and the actor's number. One thread.
class Dice {
public:
    Dice(uint64_t seed, uint64_t actor) : mEngine(seed * 0x9e3779b97f4a7c15ULL + actor) {}

    /// From `low` to `high`, both included. The library's own distributions may differ between versions.
    int between(int low, int high) {
        const auto span = static_cast<uint64_t>(high - low) + 1;
        return low + static_cast<int>(mEngine() % span);
    }
    bool percent(int chance) { return between(1, 100) <= chance; }

    template <typename T>
    const T& pick(const std::vector<T>& from) {
        return from[static_cast<size_t>(between(0, static_cast<int>(from.size()) - 1))];
    }
    template <typename T>
    void shuffle(std::vector<T>* list) {
        for (size_t i = list->size(); i > 1; --i) {
            std::swap((*list)[i - 1], (*list)[static_cast<size_t>(between(0, static_cast<int>(i) - 1))]);
        }
    }
    std::string bytes(size_t count) {
        std::string text(count, '\0');
        for (char& byte : text) {
            byte = static_cast<char>(between(0, 255));
        }
        return text;
    }

private:
    std::mt19937_64 mEngine;
};

}  // namespace chaos
