// inet-agent-bench-macro --agent PROGRAM [--rounds N] [--quick] [--core N] [--only GROUP]... [--list]
//
// To be run where the device's directories are (script/device --temp): script/bench does it.

#include "macro/macro.h"

#include <curl/curl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "macro/compare.h"
#include "macro/process.h"
#include "support/CertificateAuthority.h"
#include "support/files.h"

namespace bench {

namespace {

constexpr const char* kDirectory = "/data/bench";
constexpr const char* kCertificateFile = "/data/bench/origin.pem";
constexpr const char* kKeyFile = "/data/bench/origin.key";
constexpr const char* kAgentCaFile = "/vendor/etc/cacert_location.pem";
constexpr const char* kSystemCaFile = "/etc/ssl/certs/ca-certificates.crt";
constexpr std::size_t kQuickDivisor = 8;

struct Options {
    std::string agent;
    std::vector<std::string> only;
    CompareOptions compare;
    bool quick = false;
    bool list = false;
};

template <typename Entry>
std::vector<Entry>& all() {
    static std::vector<Entry> entries;
    return entries;
}

int usage() {
    (void)std::fprintf(stderr,
                       "inet-agent-bench-macro --agent PROGRAM [--rounds N] [--quick] [--core N] [--only GROUP]...\n"
                       "inet-agent-bench-macro --list\n");
    return 2;
}

bool parse(int argc, char** argv, Options* options) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view name = argv[i];
        if (name == "--quick" || name == "--list") {
            (name == "--quick" ? options->quick : options->list) = true;
            continue;
        }
        if (++i == argc) {
            return false;
        }
        if (name == "--agent") {
            options->agent = argv[i];
        } else if (name == "--only") {
            options->only.emplace_back(argv[i]);
        } else if (name == "--rounds") {
            options->compare.rounds = std::max(1, static_cast<int>(std::strtol(argv[i], nullptr, 10)));
        } else if (name == "--core") {
            options->compare.core = static_cast<int>(std::strtol(argv[i], nullptr, 10));
        } else {
            return false;
        }
    }
    return options->list || !options->agent.empty();
}

bool wanted(const std::string& id, const Options& options) {
    return options.only.empty() || std::any_of(options.only.begin(), options.only.end(), [&](const std::string& only) {
               return id.compare(0, only.size(), only) == 0;
           });
}

/// Rows of a table: the limit, ours, the peers.
std::vector<const ExchangeRow*> rowsOf(const ExchangeTable& table) {
    std::vector<const ExchangeRow*> rows;
    for (const ExchangeRow& row : all<ExchangeRow>()) {
        if (std::find(row.tables.begin(), row.tables.end(), table.id) != row.tables.end()) {
            rows.push_back(&row);
        }
    }
    const auto rank = [&](const ExchangeRow* row) {
        return row->subject == table.limit                                             ? 0
               : row->subject.compare(0, std::string_view(kAgent).size(), kAgent) == 0 ? 1
                                                                                       : 2;
    };
    std::stable_sort(rows.begin(), rows.end(),
                     [&](const ExchangeRow* one, const ExchangeRow* two) { return rank(one) < rank(two); });
    return rows;
}

/// The heap gives large blocks back to the system until one of them has been freed, and keeps them from then on: so
/// what a body costs would depend on those before.
void keepLargeBlocks() {
    constexpr std::size_t kLargestKept = std::size_t{31} << 20;
    void* const volatile block = std::malloc(kLargestKept);  // volatile: else it is left out
    std::free(block);
}

int main(int argc, char** argv) {
    if (argc > 1 && std::string_view(argv[1]) == kRoleOption) {
        (void)curl_global_init(CURL_GLOBAL_ALL);
        keepLargeBlocks();
        play({argv + 2, argv + argc});
    }
    Options options;
    if (!parse(argc, argv, &options)) {
        return usage();
    }
    if (options.list) {
        for (const ExchangeTable& table : all<ExchangeTable>()) {
            std::printf("%s\n", table.id.c_str());
        }
        for (const Report& report : all<Report>()) {
            std::printf("%s\n", report.id.c_str());
        }
        return 0;
    }
    for (const char* proxy : {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"}) {
        (void)::unsetenv(proxy);  // NOLINT(concurrency-mt-unsafe): no other thread yet
    }
    (void)::signal(SIGPIPE, SIG_IGN);
    if (!moveTo(0, options.compare.core)) {
        (void)std::fprintf(stderr, "not pinned to core %d: the figures depend on where the scheduler puts us\n",
                           options.compare.core);
    } else {
        const unsigned cores = std::thread::hardware_concurrency();
        options.compare.otherCore = cores > 1 ? (options.compare.core == 0 ? 1 : 0) : -1;
    }
    options.compare.divisor = options.quick ? kQuickDivisor : 1;

    // Its directory goes at once: nothing would remove it when this program ends early.
    std::optional<test_support::CertificateAuthority> authority(std::in_place);
    const test_support::Certificate certificate = authority->issueServer({"127.0.0.1"});
    const std::string authority_pem = authority->pem();
    authority.reset();
    (void)::mkdir(kDirectory, 0755);
    (void)::chmod(kDirectory, 0755);
    const std::string authorities =
        ::access(kSystemCaFile, R_OK) == 0 ? test_support::readFile(kSystemCaFile) : std::string();
    test_support::writeFile(kAgentCaFile, authorities + authority_pem);
    (void)curl_global_init(CURL_GLOBAL_ALL);
    keepLargeBlocks();

    test_support::writeFile(kCertificateFile, certificate.certificatePem);
    test_support::writeFile(kKeyFile, certificate.keyPem);
    Origin origin(kCertificateFile, kKeyFile);
    const Stage stage{origin, options.agent, kDirectory, kAgentCaFile, options.quick};
    for (const ExchangeTable& table : all<ExchangeTable>()) {
        if (wanted(table.id, options)) {
            compare(table, rowsOf(table), stage, options.compare);
        }
    }
    for (const Report& report : all<Report>()) {
        if (wanted(report.id, options)) {
            std::printf("\n### %s\n\n%s\n\n", report.id.c_str(), report.title.c_str());
            report.print(stage);
            (void)std::fflush(stdout);
        }
    }
    return 0;
}

class Getting : public Work {
public:
    Getting(std::unique_ptr<Getter> getter, std::string url, std::size_t size)
        : mGetter(std::move(getter)), mUrl(std::move(url)), mSize(size) {}
    std::vector<double> run(std::size_t n) override {
        return timed(n, [this] {
            if (mGetter->get(mUrl) != mSize) {
                die("not the whole body of " + mUrl);
            }
        });
    }
    [[nodiscard]] std::vector<pid_t> servants() const override { return mGetter->servants(); }

private:
    std::unique_ptr<Getter> mGetter;
    std::string mUrl;
    std::size_t mSize;
};

}  // namespace

RegisterExchange::RegisterExchange(ExchangeRow row) {
    all<ExchangeRow>().push_back(std::move(row));
}

RegisterExchange::RegisterExchange(ExchangeTable table) {
    all<ExchangeTable>().push_back(std::move(table));
}

RegisterExchange::RegisterExchange(Report report) {
    all<Report>().push_back(std::move(report));
}

ExchangeRow gettingRow(std::string subject, std::vector<std::string> tables, MakeGetter make) {
    return {std::move(subject), std::move(tables),
            [make = std::move(make)](const Stage& stage, const std::string& table,
                                     std::string* why) -> std::unique_ptr<Work> {
                constexpr std::size_t kSmallSize = 200;
                const std::size_t large = std::size_t{stage.quick ? 8U : 64U} << 20;
                const std::size_t size = table.compare(0, 5, "large") == 0 ? large : kSmallSize;
                const std::string path = "/bytes/" + std::to_string(size);
                const bool encrypted = table.size() > 6 && table.compare(table.size() - 6, 6, "/https") == 0;
                std::unique_ptr<Getter> getter = make(stage, why);
                if (getter == nullptr) {
                    return nullptr;
                }
                return std::make_unique<Getting>(std::move(getter),
                                                 encrypted ? stage.origin.https(path) : stage.origin.http(path), size);
            }};
}

std::vector<double> timed(std::size_t n, const std::function<void()>& work) {
    std::vector<double> took;
    took.reserve(n);
    for (; n > 0; --n) {
        const auto start = std::chrono::steady_clock::now();
        work();
        took.push_back(std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count());
    }
    return took;
}

std::vector<double> timedRuns(std::size_t n, std::size_t length, const std::function<void(bool last)>& send) {
    std::vector<double> took = timed(n, [&] {
        for (std::size_t i = 1; i < length; ++i) {
            send(false);
        }
        send(true);
    });
    for (double& one : took) {
        one /= static_cast<double>(length);
    }
    return took;
}

void touch(const void* data, std::size_t size) {
    constexpr std::size_t kPage = 4096;
    const auto* const bytes = static_cast<const volatile char*>(data);
    for (std::size_t at = 0; at < size; at += kPage) {
        (void)bytes[at];
    }
}

}  // namespace bench

int main(int argc, char** argv) {
    return bench::main(argc, argv);
}
