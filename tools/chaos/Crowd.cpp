#include "Crowd.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>

#include "Wire.h"

namespace chaos {

void Stage::deliver(Plan plan) {
    const std::string controller = plan.request.controller;
    ledger.add(plan.txId, std::move(plan.request));
    const int error = wire::sendMessage(controller, plan.bytes, plan.inFile);
    if (error != 0) {
        ledger.withdraw(plan.txId);
        ledger.violation(controller + " does not take messages: " + std::strerror(error));
        pause(1000);
    }
}

void Stage::pause(int milliseconds) const {
    const auto until = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (!stop && Clock::now() < until) {
        std::this_thread::sleep_for(
            std::min(std::chrono::duration_cast<Clock::duration>(std::chrono::milliseconds(20)), until - Clock::now()));
    }
}

Mailbox::Mailbox(std::string name, Ledger& ledger)
    : mName(std::move(name)),
      mLedger(ledger),
      mSocket(wire::bindName(mName)),
      mStop(eventfd(0, EFD_CLOEXEC)),
      mReader([this] { read(); }) {}

Mailbox::~Mailbox() {
    eventfd_write(mStop, 1);
    mReader.join();
    wire::removeName(mName);
    close(mSocket);
    close(mStop);
}

void Mailbox::read() {
    pollfd waited[] = {{mStop, POLLIN, 0}, {mSocket, POLLIN, 0}};
    while (waited[0].revents == 0) {
        if (poll(waited, 2, -1) < 0 && errno != EINTR) {
            return;
        }
        for (const std::string& message : wire::drain(mSocket)) {
            mLedger.receive(mName, message);
        }
    }
}

/// How many requests of a client may wait for their replies. Outlives the client where a reply is late.
class Crowd::Window {
public:
    void enter() {
        const std::lock_guard guard(mMutex);
        ++mInside;
    }
    void leave() {
        const std::lock_guard guard(mMutex);
        --mInside;
        mChanged.notify_all();
    }
    /// Waits for room, but not for long: whoever waits also looks whether the run is over.
    bool hasRoom(int most) {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::milliseconds(100), [&] { return mInside < most; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    int mInside = 0;
};

struct Crowd::Member {
    Member(const std::string& name, Ledger& ledger) : mailbox(name, ledger) {}

    Mailbox mailbox;
    std::shared_ptr<Window> window = std::make_shared<Window>();
    std::thread player;
};

Crowd::Crowd(Stage& stage, int clients) : mStage(stage), mOutside("../escape", stage.ledger) {
    for (int i = 0; i < clients; ++i) {
        mMembers.push_back(std::make_unique<Member>("client-" + std::to_string(i), stage.ledger));
    }
}

Crowd::~Crowd() {
    stop();
}

void Crowd::start() {
    ++mRound;
    for (size_t i = 0; i < mMembers.size(); ++i) {
        mMembers[i]->player = std::thread([this, i] {
            Dice dice(mStage.seed, 100 * static_cast<uint64_t>(mRound) + i);
            while (!mStage.stop) {
                play(*mMembers[i], dice);
            }
        });
    }
}

void Crowd::stop() {
    mStage.stop = true;
    for (const std::unique_ptr<Member>& member : mMembers) {
        if (member->player.joinable()) {
            member->player.join();
        }
    }
}

void Crowd::ping() {
    for (const std::string& controller : kControllers) {
        mStage.deliver(mStage.catalogue.ping(mMembers.front()->mailbox.name(), controller));
    }
}

void Crowd::ask(Member& member, Plan plan) {
    if (plan.request.expected.outcomes != 0 && !plan.request.settled) {
        member.window->enter();
        plan.request.settled = [window = member.window](Outcome) { window->leave(); };
    }
    mStage.deliver(std::move(plan));
}

void Crowd::play(Member& member, Dice& dice) {
    if (!member.window->hasRoom(dice.between(1, 6))) {
        return;
    }
    const int controller = dice.between(0, 1);
    const std::string& to = kControllers[static_cast<size_t>(controller)];
    const std::string& from = member.mailbox.name();
    const Catalogue& catalogue = mStage.catalogue;
    const int die = dice.between(1, 1000);
    if (die <= 60) {
        if (const Gate::Ticket ticket = mStage.gates[controller]->enter()) {
            askSlowly(member, dice, controller, ticket);
        }
    } else if (die <= 160) {
        ask(member, catalogue.failing(dice, from, to));
    } else if (die <= 175) {
        ask(member, catalogue.expired(dice, from, to));
    } else if (die <= 195) {
        ask(member, catalogue.silent(dice, from, to));
    } else if (die <= 210) {
        // In another's name: that one gets the reply.
        Plan plan = catalogue.good(dice, dice.pick(mMembers)->mailbox.name(), to);
        plan.request.kind = "good in another's name";
        ask(member, std::move(plan));
    } else if (die <= 213) {
        flood(member, dice);
    } else {
        ask(member, catalogue.good(dice, from, to));
    }
    mStage.pause(dice.between(0, 30));
}

/// What takes seconds: the controller's gate holds the next one back until it is over, a repair included.
void Crowd::askSlowly(Member& member, Dice& dice, int controller, const Gate::Ticket& ticket) {
    const std::string& to = kControllers[static_cast<size_t>(controller)];
    const std::string& from = member.mailbox.name();
    const auto send = [&](Plan plan) {
        plan.request.settled = [ticket, to, repairer = mStage.repairer](Outcome outcome) {
            if (outcome == kActiveTimedOut && repairer != nullptr) {
                repairer->call(to, ticket);
            }
        };
        ask(member, std::move(plan));
    };
    const Catalogue& catalogue = mStage.catalogue;
    const int die = dice.between(1, 100);
    if (die <= 40) {
        send(catalogue.stalling(dice, from, to));
    } else if (die <= 70) {
        send(catalogue.rejected(dice, from, to));
    } else if (die <= 80) {
        send(catalogue.tight(dice, from, to));
    } else {
        // Some that get their turn late, or never.
        send(catalogue.stalling(dice, from, to));
        for (int i = dice.between(2, 5); i > 0; --i) {
            send(catalogue.tight(dice, from, to));
        }
    }
}

void Crowd::flood(Member& member, Dice& dice) {
    if (mStage.flooding.exchange(true)) {
        return;
    }
    const std::string& to = dice.pick(kControllers);
    for (int i = dice.between(50, kSanitized ? 100 : 250); i > 0 && !mStage.stop; --i) {
        Plan plan = mStage.catalogue.ping(member.mailbox.name(), to);
        plan.request.kind = "good in a flood";
        ask(member, std::move(plan));
    }
    mStage.flooding = false;
}

}  // namespace chaos
