#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "macro/origin.h"

/// Whole exchanges between processes, beside other ways to have the same. A source file registers its rows by itself; a
/// peer that is not installed is a file that is not compiled, or a row that says why it is left out. The tables are in
/// tables.cpp.
namespace bench {

/// The subject that the tables are about.
inline constexpr const char* kAgent = "inet-agent";

/// What everybody finds in place.
struct Stage {
    Origin& origin;
    std::string agent;      ///< the agent's executable
    std::string directory;  ///< for files of the run: in memory, gone with it
    std::string caFile;     ///< Debian's authorities and the origin's
    bool quick = false;
};

/// A row at work.
class Work {
public:
    virtual ~Work() = default;
    /// Does it n times. @return what each took, in nanoseconds
    virtual std::vector<double> run(std::size_t n) = 0;
    /// How many of the table's work one time is; what run() returns is the cost of one of them.
    [[nodiscard]] virtual std::size_t batch() const { return 1; }
    /// The processes between this one and the origin.
    [[nodiscard]] virtual std::vector<pid_t> servants() const { return {}; }
};

struct ExchangeRow {
    std::string subject;
    std::vector<std::string> tables;
    /// @return null: left out, and why
    std::function<std::unique_ptr<Work>(const Stage& stage, const std::string& table, std::string* why)> make;
};

/// A comparison: everything on one core, and the servants on another.
struct ExchangeTable {
    std::string id;  ///< GROUP/NAME
    std::string title;
    std::string limit;   ///< the subject that nobody gets below
    std::size_t passes;  ///< in a round; fewer of what takes long
    std::string goals;   ///< of the agent, as a sentence; may be empty
};

/// A table of its own kind.
struct Report {
    std::string id;
    std::string title;
    std::function<void(const Stage& stage)> print;
};

/// As a static object: puts it on the list.
struct RegisterExchange {
    explicit RegisterExchange(ExchangeRow row);
    explicit RegisterExchange(ExchangeTable table);
    explicit RegisterExchange(Report report);
};

/// How a body gets into this process.
class Getter {
public:
    virtual ~Getter() = default;
    /// @return the body's size
    virtual std::size_t get(const std::string& url) = 0;
    [[nodiscard]] virtual std::vector<pid_t> servants() const { return {}; }
};

using MakeGetter = std::function<std::unique_ptr<Getter>(const Stage& stage, std::string* why)>;

/// The tables of a getter; each has its own body.
inline const std::vector<std::string> kSmall = {"get/http", "get/https"};
inline const std::vector<std::string> kLarge = {"large/http", "large/https"};
/// Of those that fetch over HTTP alone.
inline const std::vector<std::string> kPlain = {"get/http", "large/http"};
inline const std::vector<std::string> kEverywhere = {"get/http", "get/https", "large/http", "large/https"};

/// A row whose work is to get the table's body.
ExchangeRow gettingRow(std::string subject, std::vector<std::string> tables, MakeGetter make);

/// What `work` took, n times.
std::vector<double> timed(std::size_t n, const std::function<void()>& work);

/// Messages in one direction that make one time; the last of them is confirmed.
inline constexpr std::size_t kRunLength = 1000;

/// What a message took, n times so many in a row.
std::vector<double> timedRuns(std::size_t n, std::size_t length, const std::function<void(bool last)>& send);

/// Has looked at the first byte of every page.
void touch(const void* data, std::size_t size);

}  // namespace bench
