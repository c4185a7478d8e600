#pragma once

#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Dice.h"
#include "Ledger.h"

namespace chaos {

/// How many requests that take seconds may be on their way to one controller, and how closely they follow each other.
/// Any thread may call.
class Gate : public std::enable_shared_from_this<Gate> {
public:
    /// Leaves when the last copy of it goes.
    using Ticket = std::shared_ptr<void>;

    /// Nothing when the controller has enough to bear.
    [[nodiscard]] Ticket enter();

private:
    static constexpr int kMost = 2;
    static constexpr std::chrono::milliseconds kPause{700};

    std::mutex mMutex;
    int mInside = 0;
    Clock::time_point mNext = {};
};

/// Frees controllers that wait for a result which never comes, some time after somebody noticed: a result in their own
/// worker's name, which no active request asked for. Any thread may call.
class Repairer {
public:
    explicit Repairer(uint64_t seed);
    ~Repairer();
    Repairer(const Repairer&) = delete;
    Repairer& operator=(const Repairer&) = delete;

    /// @param ticket held until it is done
    void call(const std::string& controller, Gate::Ticket ticket);
    [[nodiscard]] size_t repairs() const;

private:
    struct Patient {
        std::string controller;
        Gate::Ticket ticket;
        Clock::time_point at;
    };
    void work();

    Dice mDice;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::list<Patient> mPatients;
    size_t mRepairs = 0;
    bool mStopping = false;
    std::thread mThread;
};

}  // namespace chaos
