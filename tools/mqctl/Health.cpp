#include "Health.h"

#include <algorithm>

#include "Probe.h"
#include "inet/AgentProtocol.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

using namespace zv_loc_fw;
using namespace zv_loc_fw::agent_protocol;
using State = Health::State;
using Finding = Health::Finding;

/// A probe must not expire while it is waited for, and should not be a job whose turn comes with no time left.
constexpr Duration kProbeTimeout = std::chrono::seconds(600);
constexpr Duration kProbeMargin = std::chrono::seconds(60);

const char* nameOf(State state) {
    switch (state) {
        case State::kHealthy:
            return "healthy";
        case State::kBusy:
            return "busy";
        case State::kWedged:
            return "wedged";
        case State::kNotReady:
            return "not ready";
        case State::kSilent:
            return "silent";
        case State::kStale:
            return "stale";
        default:
            return "absent";
    }
}

Style styleOf(State state) {
    return state == State::kHealthy                             ? Style::kGood
           : state == State::kBusy || state == State::kNotReady ? Style::kWarning
                                                                : Style::kBad;
}

/// One round of requests to several controllers, told apart by their TX-IDs.
class Round {
public:
    Round(Session& session, Participant& participant, std::vector<Finding>& findings)
        : mSession(session),
          mParticipant(participant),
          mFindings(findings),
          mPending(findings.size(), false),
          mSent(findings.size()) {}

    template <typename MakeRequest>
    void ask(size_t index, MakeRequest make_request) {
        Finding& finding = mFindings[index];
        std::string reason;
        mSent[index] = Clock::now();
        const ExitCode code =
            Session::tryDeliver(finding.name, make_request(static_cast<int32_t>(index) + mFirstTxId), &reason);
        if (code == kOk) {
            mPending[index] = true;
        } else {
            finding.state = code == kNoParticipant ? State::kStale : State::kSilent;
            finding.detail = reason;
        }
    }

    /// Waits until all have answered. @param take called with the index, the seconds and the error text of each answer
    template <typename Take>
    void wait(Duration patience, const std::string& label, Take take) {
        const Clock::time_point begin = Clock::now();
        while (std::find(mPending.begin(), mPending.end(), true) != mPending.end()) {
            const std::optional<Message> answer =
                mSession.receive(mParticipant, label, begin + patience, [this](const Message& message) {
                    return indexOf(message).has_value() && message.text(envelope::kResp).has_value();
                });
            if (!answer.has_value()) {
                return;
            }
            const size_t index = *indexOf(*answer);
            mPending[index] = false;
            take(index, secondsOf(Clock::now() - mSent[index]), *answer);
        }
    }

    [[nodiscard]] bool pending(size_t index) const { return mPending[index]; }
    void setFirstTxId(int32_t first) { mFirstTxId = first; }

private:
    [[nodiscard]] std::optional<size_t> indexOf(const Message& message) const {
        const int64_t index = int64_t{message.int32(envelope::kTxId).value_or(-1)} - mFirstTxId;
        const bool known = index >= 0 && index < static_cast<int64_t>(mPending.size());
        return known && mPending[static_cast<size_t>(index)] ? std::optional(static_cast<size_t>(index)) : std::nullopt;
    }

    Session& mSession;
    Participant& mParticipant;
    std::vector<Finding>& mFindings;
    std::vector<bool> mPending;
    std::vector<Clock::time_point> mSent;
    int32_t mFirstTxId = 1000;
};

std::string loopText(const Finding& finding) {
    return "event loop " + formatDuration(std::chrono::duration<double>(finding.eventLoop.value_or(0)));
}

void askEventLoops(Session& session, Participant& participant, std::vector<Finding>& findings) {
    Round round(session, participant, findings);
    for (size_t i = 0; i < findings.size(); ++i) {
        if (lookUpParticipant(findings[i].name) == ParticipantState::kAbsent) {
            findings[i].detail = "no such participant";
            continue;
        }
        round.ask(i, [&](int32_t tx_id) { return pingRequest(findings[i].name, participant.name(), tx_id); });
    }
    round.wait(kPingPatience, "event loops", [&](size_t index, double seconds, const Message& answer) {
        Finding& finding = findings[index];
        finding.eventLoop = seconds;
        const bool ready = answer.text(kCurlError) != kErrorNotReady;
        finding.state = ready ? State::kBusy : State::kNotReady;
        finding.detail = ready ? "" : loopText(finding) + "; " + kErrorNotReady;
    });
    for (size_t i = 0; i < findings.size(); ++i) {
        if (round.pending(i)) {
            findings[i].state = State::kSilent;
            findings[i].detail = "its event loop has not answered within " + formatDuration(kPingPatience);
        }
    }
}

void judgeSilentWorker(const Health::Settings& settings, Finding* finding) {
    const bool wedged =
        settings.longestSec.has_value() && settings.patience > std::chrono::seconds(*settings.longestSec);
    finding->state = wedged ? State::kWedged : State::kBusy;
    finding->detail = loopText(*finding) + ", nothing served for " + formatDuration(settings.patience);
    finding->detail += wedged ? ": a request was rejected, or its turn came with a second or less left; restart the "
                                "agent, or mqctl repair " +
                                    finding->name + " --yes"
                              : ": busy or wedged";
}

void askWorkers(Session& session, Participant& participant, const Health::Settings& settings,
                std::vector<Finding>& findings) {
    Round round(session, participant, findings);
    round.setFirstTxId(2000);
    const auto timeout =
        std::chrono::ceil<std::chrono::seconds>(std::max(kProbeTimeout, settings.patience + kProbeMargin));
    for (size_t i = 0; i < findings.size(); ++i) {
        if (findings[i].state == State::kBusy) {
            round.ask(i, [&](int32_t tx_id) {
                return probeRequest(findings[i].name, participant.name(), tx_id, settings.probeUrl,
                                    static_cast<int32_t>(timeout.count()));
            });
        }
    }
    round.wait(settings.patience, "workers", [&](size_t index, double seconds, const Message& answer) {
        Finding& finding = findings[index];
        // A failed transfer is an answer of the worker, an error reply is none.
        if (answer.text(kCurlError).has_value() && !answer.boolean(kCurlTimeout).has_value()) {
            finding.state = State::kNotReady;
            finding.detail = loopText(finding) + "; " + *answer.text(kCurlError);
            return;
        }
        finding.worker = seconds;
        finding.state = State::kHealthy;
        finding.detail = loopText(finding) + ", worker " + formatDuration(std::chrono::duration<double>(seconds));
    });
    for (size_t i = 0; i < findings.size(); ++i) {
        if (round.pending(i)) {
            judgeSilentWorker(settings, &findings[i]);
        }
    }
}

}  // namespace

std::vector<Finding> Health::look(Session& session, Participant& participant, const std::vector<std::string>& names,
                                  const Settings& settings) {
    std::vector<Finding> findings;
    findings.reserve(names.size());
    for (const std::string& name : names) {
        findings.push_back({name, State::kAbsent, "", {}, {}});
    }
    askEventLoops(session, participant, findings);
    askWorkers(session, participant, settings, findings);
    return findings;
}

int Health::report(Session& session, const std::vector<Finding>& findings) {
    Table table({"NAME", "STATE", "DETAIL"});
    Json list = Json::array();
    int code = kOk;
    for (const Finding& finding : findings) {
        table.add({{finding.name}, {nameOf(finding.state), styleOf(finding.state)}, {finding.detail}});
        Json json = Json::object();
        json["name"] = finding.name;
        json["state"] = nameOf(finding.state);
        json["event_loop_s"] = finding.eventLoop.has_value() ? Json(*finding.eventLoop) : Json(nullptr);
        json["worker_s"] = finding.worker.has_value() ? Json(*finding.worker) : Json(nullptr);
        json["detail"] = finding.detail;
        list.push_back(std::move(json));
        const bool missing = finding.state == State::kAbsent || finding.state == State::kStale;
        if (finding.state != State::kHealthy) {
            code = missing && code != kErrorReply ? kNoParticipant : kErrorReply;
        }
    }
    if (session.out.json()) {
        session.out.writeJson(list);
    } else {
        table.write(session.out, false);
    }
    return code;
}

}  // namespace mqctl
