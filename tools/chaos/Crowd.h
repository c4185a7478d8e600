#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Catalogue.h"
#include "Gate.h"
#include "Ledger.h"

namespace chaos {

/// What all actors of a run share.
struct Stage {
    uint64_t seed;
    Ledger& ledger;
    const Catalogue& catalogue;
    /// Nothing where the agent answers what it rejects: there nothing may need it.
    Repairer* repairer;
    std::atomic<bool> stop{false};
    /// One flood at a time.
    std::atomic<bool> flooding{false};
    std::shared_ptr<Gate> gates[2] = {std::make_shared<Gate>(), std::make_shared<Gate>()};

    /// Enters the plan into the ledger and sends it.
    void deliver(Plan plan);
    /// Sleeps, but no longer than the actors play.
    void pause(int milliseconds) const;
};

/// Reads one name's socket into the ledger for as long as it lives.
class Mailbox {
public:
    Mailbox(std::string name, Ledger& ledger);
    ~Mailbox();
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    [[nodiscard]] const std::string& name() const { return mName; }

private:
    void read();

    const std::string mName;
    Ledger& mLedger;
    const int mSocket;
    const int mStop;
    std::thread mReader;
};

/// The clients that live as long as the run, and read all the time.
class Crowd {
public:
    Crowd(Stage& stage, int clients);
    ~Crowd();
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    /// Begins, ends the asking; replies are read before, between and after.
    void start();
    void stop();
    /// One quick request to each controller.
    void ping();

private:
    class Window;
    struct Member;
    void play(Member& member, Dice& dice);
    void ask(Member& member, Plan plan);
    void askSlowly(Member& member, Dice& dice, int controller, const Gate::Ticket& ticket);
    void flood(Member& member, Dice& dice);

    Stage& mStage;
    int mRound = 0;
    std::vector<std::unique_ptr<Member>> mMembers;
    /// Outside the directory that names live in: nothing may ever arrive.
    Mailbox mOutside;
};

}  // namespace chaos
