#pragma once

#include <functional>
#include <thread>
#include <vector>

#include "Crowd.h"

namespace chaos {

/// Participants that do not behave: they die after asking, come back under their name, never read, or send
/// descriptors of all kinds. A thread for each, between construction and the stage's stop.
class Mischief {
public:
    explicit Mischief(Stage& stage);
    ~Mischief();
    Mischief(const Mischief&) = delete;
    Mischief& operator=(const Mischief&) = delete;

private:
    void play(uint64_t actor, int longestPauseMs, const std::function<void(Dice&)>& scene);
    void die(Dice& dice);
    void comeBack(Dice& dice);
    void neverRead(Dice& dice);
    void smuggle(Dice& dice);

    /// A good request of somebody who may not be there for the reply.
    [[nodiscard]] Plan vainly(Dice& dice, const std::string& kind, const std::string& from) const;

    Stage& mStage;
    std::vector<std::thread> mActors;
};

}  // namespace chaos
