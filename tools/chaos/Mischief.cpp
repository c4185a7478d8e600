#include "Mischief.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Wire.h"

namespace chaos {

namespace {

constexpr int kGhosts = 5;

[[noreturn]] void giveUp(const char* what) {
    std::perror(what);
    std::abort();
}

std::string nameOf(const char* actor, Dice& dice) {
    return actor + std::to_string(dice.between(1, kGhosts));
}

}  // namespace

Mischief::Mischief(Stage& stage) : mStage(stage) {
    play(9001, 400, [this](Dice& dice) { die(dice); });
    play(9002, 600, [this](Dice& dice) { comeBack(dice); });
    play(9003, 8000, [this](Dice& dice) { neverRead(dice); });
    play(9004, 500, [this](Dice& dice) { smuggle(dice); });
}

Mischief::~Mischief() {
    mStage.stop = true;
    for (std::thread& actor : mActors) {
        actor.join();
    }
}

void Mischief::play(uint64_t actor, int longestPauseMs, const std::function<void(Dice&)>& scene) {
    mActors.emplace_back([this, actor, longestPauseMs, scene] {
        Dice dice(mStage.seed, actor);
        while (!mStage.stop) {
            if (mStage.ledger.hasRoomForOthers()) {
                scene(dice);
            }
            mStage.pause(dice.between(1, longestPauseMs));
        }
    });
}

Plan Mischief::vainly(Dice& dice, const std::string& kind, const std::string& from) const {
    Plan plan = mStage.catalogue.good(dice, from, dice.pick(kControllers));
    plan.request.kind = kind;
    plan.request.owed = false;
    return plan;
}

void Mischief::die(Dice& dice) {
    const std::string name = nameOf("ghost-", dice);
    const int socket = wire::bindName(name);
    for (int i = dice.between(1, 3); i > 0; --i) {
        mStage.deliver(vainly(dice, "vain: dies after asking", name));
    }
    mStage.pause(dice.between(0, 20));
    close(socket);
    if (dice.percent(50)) {
        wire::removeName(name);
    }
}

/// The reply to what it asked before may come to its new socket, too.
void Mischief::comeBack(Dice& dice) {
    const std::string name = nameOf("phoenix-", dice);
    const int before = wire::bindName(name);
    mStage.deliver(vainly(dice, "vain: asked before a restart", name));
    close(before);
    const int after = wire::bindName(name);
    Plan plan = mStage.catalogue.good(dice, name, dice.pick(kControllers));
    plan.request.kind = "good after a restart";
    const auto here = std::make_shared<std::atomic<bool>>(false);
    plan.request.settled = [here](Outcome) { *here = true; };
    mStage.deliver(std::move(plan));
    const auto until = Clock::now() + std::chrono::seconds(kGenerousSec);
    while (!*here && Clock::now() < until) {
        pollfd waited{after, POLLIN, 0};
        poll(&waited, 1, 100);
        for (const std::string& message : wire::drain(after)) {
            mStage.ledger.receive(name, message);
        }
    }
    close(after);
    wire::removeName(name);
}

void Mischief::neverRead(Dice& dice) {
    const std::string name = nameOf("sleeper-", dice);
    const int socket = wire::bindName(name);
    const std::string& controller = dice.pick(kControllers);
    for (int i = 0; i < 20; ++i) {
        Plan plan = mStage.catalogue.ping(name, controller);
        plan.request.kind = "vain: never reads";
        plan.request.owed = false;
        mStage.deliver(std::move(plan));
    }
    mStage.pause(dice.between(500, 3000));
    for (const std::string& message : wire::drain(socket)) {
        mStage.ledger.receive(name, message);
    }
    close(socket);
    wire::removeName(name);
}

void Mischief::smuggle(Dice& dice) {
    const std::string& controller = dice.pick(kControllers);
    Plan plan = mStage.catalogue.ping("client-0", controller);
    plan.request.expected = {};
    std::string& kind = plan.request.kind;
    const std::string& card = plan.bytes;
    std::string payload(1, '\0');
    std::vector<int> files;
    int pipe_ends[2] = {-1, -1};
    switch (dice.between(1, 10)) {
        case 1:
            kind = "silent file unsealed";
            files = {wire::memoryFile(card, 0)};
            break;
        case 2:
            kind = "silent file that may be written";
            files = {wire::memoryFile(card, wire::allSeals() & ~(F_SEAL_WRITE | F_SEAL_SEAL))};
            break;
        case 3:
            kind = "silent file that grows";
            files = {wire::memoryFile(card, F_SEAL_SHRINK)};
            break;
        case 4:
            kind = "silent pipe";
            if (pipe2(pipe_ends, O_CLOEXEC) != 0) {
                giveUp("chaos: pipe");
            }
            files = {pipe_ends[0], pipe_ends[1]};
            files.resize(static_cast<size_t>(dice.between(1, 2)));
            break;
        case 5:
            kind = "silent file on a disk";
            files = {open("/proc/self/exe", O_RDONLY | O_CLOEXEC)};
            break;
        case 6:
            kind = "silent files, three";
            files = {wire::memoryFile(card, wire::allSeals()), wire::memoryFile(card, wire::allSeals()),
                     wire::memoryFile(card, wire::allSeals())};
            break;
        case 7:
            kind = "silent file with a card beside";
            files = {wire::memoryFile(card, wire::allSeals())};
            payload = card;
            break;
        case 8:
            kind = "silent file empty";
            files = {wire::memoryFile("", wire::allSeals())};
            break;
        case 9: {
            kind = "silent file too long";
            const int file = wire::memoryFile(card, 0);
            if (ftruncate(file, 300L * 1024 * 1024) != 0 || fcntl(file, F_ADD_SEALS, wire::allSeals()) != 0) {
                giveUp("chaos: a long file");
            }
            files = {file};
            break;
        }
        default:
            kind = "silent file of a cut card";
            files = {wire::memoryFile(card.substr(0, card.size() / 2), wire::allSeals())};
    }
    const bool grows = kind.ends_with("grows");
    mStage.ledger.add(plan.txId, std::move(plan.request));
    (void)wire::send(controller, payload, files);
    if (grows && ftruncate(files.front(), 1 << 20) != 0) {
        giveUp("chaos: growing a file");
    }
    if (pipe_ends[0] >= 0) {
        files = {pipe_ends[0], pipe_ends[1]};
    }
    for (const int file : files) {
        close(file);
    }
}

}  // namespace chaos
