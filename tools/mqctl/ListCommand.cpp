#include "ListCommand.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Session.h"
#include "SocketOwners.h"
#include "mq/Envelope.h"

namespace mqctl {

namespace {

namespace fs = std::filesystem;
using namespace zv_loc_fw;

/// Nothing tells of a participant that died, so --watch looks this often.
constexpr Duration kLook{500};

struct ListOptions {
    bool watch = false;
    bool names = false;
};

struct Entry {
    std::string name;
    bool alias = false;
    bool live = false;
    std::string target;  // of an alias
    SocketOwner owner;

    [[nodiscard]] bool sameAs(const Entry& other) const {
        return alias == other.alias && live == other.live && target == other.target && owner.pid == other.owner.pid;
    }
};
using Entries = std::vector<Entry>;

Entry entryOf(const fs::path& path, bool alias, const SocketOwners& owners) {
    Entry entry;
    entry.name = path.filename().string();
    entry.alias = alias;
    entry.live = lookUpParticipant(entry.name) == ParticipantState::kLive;
    struct stat file {};
    if (entry.live && ::stat(path.c_str(), &file) == 0) {
        entry.owner = owners.of(file);
        // Whoever may not connect learns it from the kernel's list.
        const bool may_connect = ::access(path.c_str(), W_OK) == 0;
        entry.live = may_connect || owners.unknown() || !entry.owner.user.empty();
    }
    if (alias) {
        std::error_code error;
        const fs::path target = fs::read_symlink(path, error);
        const bool beside = !target.has_parent_path() || target.parent_path() / "" == envelope::kSocketDirectory;
        entry.target = beside ? target.filename().string() : target.string();
    }
    return entry;
}

std::error_code look(Entries* entries) {
    std::vector<std::pair<fs::path, bool>> found;
    std::error_code error;
    for (fs::directory_iterator it(envelope::kSocketDirectory, error), end; !error && it != end; it.increment(error)) {
        std::error_code gone;
        const bool alias = it->is_symlink(gone);
        if (alias || it->is_socket(gone)) {
            found.emplace_back(it->path(), alias);
        }
    }
    const SocketOwners owners;  // after the files, so that each has its owner
    entries->clear();
    for (const auto& [path, alias] : found) {
        entries->push_back(entryOf(path, alias, owners));
    }
    std::sort(entries->begin(), entries->end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return error;
}

int failed(Session& session, const std::error_code& error) {
    return session.out.fail(kOwnFailure, std::string(envelope::kSocketDirectory) + ": " + error.message());
}

Json toJson(const Entry& entry) {
    const auto textOrNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
    Json json = Json::object();
    json["name"] = entry.name;
    json["type"] = entry.alias ? "alias" : "socket";
    json["state"] = entry.live ? "live" : "stale";
    json["pid"] = entry.owner.pid.has_value() ? Json(*entry.owner.pid) : Json(nullptr);
    json["process"] = textOrNull(entry.owner.process);
    json["user"] = textOrNull(entry.owner.user);
    json["target"] = textOrNull(entry.target);
    return json;
}

void writeTable(Session& session, const Entries& entries) {
    const bool legend = !session.options.noLegend;
    Table table({"NAME", "TYPE", "STATE", "PID", "PROCESS", "USER", "TARGET"});
    const auto textOrDash = [](const std::string& text) { return Table::Cell{text.empty() ? "-" : text}; };
    for (const Entry& entry : entries) {
        table.add({{entry.name},
                   {entry.alias ? "alias" : "socket"},
                   {entry.live ? "live" : "stale", entry.live ? Style::kGood : Style::kWarning},
                   textOrDash(entry.owner.pid.has_value() ? std::to_string(*entry.owner.pid) : ""),
                   textOrDash(entry.owner.process),
                   textOrDash(entry.owner.user),
                   textOrDash(entry.target)});
    }
    table.write(session.out, legend);
    if (legend && !session.options.quiet) {
        const std::string directory(envelope::kSocketDirectory, std::strlen(envelope::kSocketDirectory) - 1);
        session.out.write("\n" + std::to_string(entries.size()) + (entries.size() == 1 ? " name" : " names") + " in " +
                          directory + "\n");
    }
}

void write(Session& session, const ListOptions& options, const Entries& entries) {
    if (session.out.json()) {
        Json list = Json::array();
        for (const Entry& entry : entries) {
            list.push_back(options.names ? Json(entry.name) : toJson(entry));
        }
        session.out.writeJson(list);
    } else if (options.names) {
        for (const Entry& entry : entries) {
            session.out.write(entry.name + "\n");
        }
    } else {
        writeTable(session, entries);
    }
}

/// One line for what is new ("+"), gone ("-") or different ("*").
void writeChange(Session& session, const char* mark, const char* event, const Entry& entry) {
    if (session.out.json()) {
        Json json = Json::object();
        json["event"] = event;
        json.update(toJson(entry));
        session.out.writeJson(json);
        return;
    }
    session.out.write(std::string(mark) + " " + entry.name + " " + (entry.alias ? "alias" : "socket") + " " +
                      (entry.live ? "live" : "stale") +
                      (entry.owner.pid.has_value() ? " " + std::to_string(*entry.owner.pid) : "") +
                      (entry.alias ? " -> " + entry.target : "") + "\n");
}

void writeChanges(Session& session, const Entries& before, const Entries& now) {
    const auto find = [](const Entries& entries, const std::string& name) {
        return std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) { return entry.name == name; });
    };
    for (const Entry& old : before) {
        if (find(now, old.name) == now.end()) {
            writeChange(session, "-", "gone", old);
        }
    }
    for (const Entry& entry : now) {
        const auto old = find(before, entry.name);
        if (old == before.end()) {
            writeChange(session, "+", "new", entry);
        } else if (!entry.sameAs(*old)) {
            writeChange(session, "*", "changed", entry);
        }
    }
}

bool sameEntries(const Entries& a, const Entries& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](const Entry& x, const Entry& y) {
               return x.name == y.name && x.sameAs(y);
           });
}

int watch(Session& session) {
    // On a terminal the table is drawn anew; a pipe gets what changed.
    const bool redraw = session.out.outIsTerminal() && !session.out.json();
    const Clock::time_point end = Clock::now() + session.options.wait.value_or(std::chrono::hours(100000));
    Entries before;
    bool first = true;
    while (true) {
        Entries now;
        if (const std::error_code error = look(&now)) {
            return failed(session, error);
        }
        if (redraw && (first || !sameEntries(before, now))) {
            session.out.write("\033[H\033[2J");
            writeTable(session, now);
        } else if (!redraw) {
            writeChanges(session, before, now);
        }
        first = false;
        before = std::move(now);
        const auto left = end - Clock::now();
        if (!session.out.flush() || left <= Clock::duration::zero()) {
            return kOk;
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(left, kLook));
    }
}

int run(Session& session, const ListOptions& options) {
    if (options.watch) {
        return watch(session);
    }
    Entries entries;
    if (const std::error_code error = look(&entries)) {
        return failed(session, error);
    }
    write(session, options, entries);
    return kOk;
}

}  // namespace

void addListCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<ListOptions>();
    CLI::App* command = addCommand(app, "list", "the participants of the message queue (the default)");
    command->add_flag("--watch", options->watch, "go on showing what changes, for --wait or for ever");
    command->add_flag("--names", options->names, "the names alone");
    command->callback(
        [&session, options] { session.command = [&session, options] { return run(session, *options); }; });
}

int runDefaultList(Session& session) {
    return run(session, {});
}

}  // namespace mqctl
