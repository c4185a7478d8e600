#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CardBytes.h"
#include "GlobalOptions.h"
#include "Output.h"
#include "client/Participant.h"

namespace mqctl {

/// A message that arrived: its bytes, and the fields as far as it is a card.
struct Message {
    std::unique_ptr<zv_loc_fw::InPostcard> card;  ///< owns the bytes
    std::string_view bytes;
    Fields fields;
    std::optional<Malformed> damage;

    [[nodiscard]] std::optional<int32_t> int32(const std::string& name) const;
    [[nodiscard]] std::optional<bool> boolean(const std::string& name) const;
    /// The first string of that name.
    [[nodiscard]] std::optional<std::string> text(const std::string& name) const;
    /// The first blob of that name; null when there is none.
    [[nodiscard]] const std::string* blob(const std::string& name) const;
};

/// One run of mqctl: its options, its output, and the way into the message queue.
class Session {
public:
    GlobalOptions options;
    Output out{options};
    /// What the command line asks for; set while it is parsed, and run afterwards. Returns an ExitCode.
    std::function<int()> command;

    /// Becomes a participant under options.from, or another name. Its files go on a signal, too.
    /// @param code out: why null was returned; told on standard error
    [[nodiscard]] std::unique_ptr<zv_loc_fw::Participant> join(int* code) { return join(options.from, {}, code); }
    [[nodiscard]] std::unique_ptr<zv_loc_fw::Participant> join(const std::string& name,
                                                               zv_loc_fw::ParticipantOptions wanted, int* code);

    /// Hands bytes to a participant's socket. @return kOk; kUsage too long; kNoParticipant; kOwnFailure, kNoReply when
    /// its socket did not take them; told on standard error
    [[nodiscard]] int deliver(const std::string& name, const std::string& bytes);
    /// The same, told to the caller.
    [[nodiscard]] static ExitCode tryDeliver(const std::string& name, const std::string& bytes, std::string* reason);

    /// The next message that `wanted` takes. While waiting, a terminal at standard error shows the time.
    /// @param label begins that line
    /// @return nothing when the time is up
    [[nodiscard]] std::optional<Message> receive(zv_loc_fw::Participant& participant, const std::string& label,
                                                 Clock::time_point deadline,
                                                 const std::function<bool(const Message&)>& wanted) const;
};

/// Adds a command to the command line. Options that it does not know are the global ones.
CLI::App* addCommand(CLI::App& app, const char* name, const char* description);

}  // namespace mqctl
