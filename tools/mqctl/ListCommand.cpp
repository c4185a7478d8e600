#include "ListCommand.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "ExitCode.h"
#include "client/Participant.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

namespace fs = std::filesystem;
using zv_loc_fw::ParticipantState;

struct Entry {
    std::string name;
    const char* type;
    const char* state;
};

const char* stateText(ParticipantState state) {
    return state == ParticipantState::kLive ? "live" : "stale";
}

}  // namespace

int runList() {
    const char* directory = zv_loc_fw::envelope::kSocketDirectory;
    std::error_code error;
    std::vector<Entry> entries;
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename().string();
        const bool alias = it->is_symlink(error);
        if (!alias && !it->is_socket(error)) {
            continue;
        }
        entries.push_back({name, alias ? "alias" : "socket", stateText(zv_loc_fw::lookUpParticipant(name))});
    }
    if (error) {
        std::fprintf(stderr, "mqctl: %s: %s\n", directory, error.message().c_str());
        return kOwnFailure;
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
    size_t width = sizeof("NAME") - 1;
    for (const Entry& entry : entries) {
        width = std::max(width, entry.name.size());
    }
    std::printf("%-*s  %-6s  %s\n", static_cast<int>(width), "NAME", "TYPE", "STATE");
    for (const Entry& entry : entries) {
        std::printf("%-*s  %-6s  %s\n", static_cast<int>(width), entry.name.c_str(), entry.type, entry.state);
    }
    return kOk;
}

}  // namespace mqctl
