#include "GlobalOptions.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "inet/AgentProtocol.h"

namespace mqctl {

namespace {

constexpr double kLongestSeconds = 1e6;

struct Unit {
    const char* name;
    double seconds;
};

constexpr Unit kUnits[] = {{"", 1}, {"ms", 0.001}, {"s", 1}, {"m", 60}, {"min", 60}, {"h", 3600}};

/// A flag that may have one of some values behind "=".
template <typename T>
CLI::Option* addChoice(CLI::App& app, const std::string& name, const std::map<std::string, T>& choices,
                       std::string* text, T* target, const std::string& description) {
    return app.add_flag(name, *text, description)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
        ->each([choices, target, name](const std::string& value) {
            const auto choice = choices.find(value);
            if (choice == choices.end()) {
                throw CLI::ValidationError("\"" + value + "\" is no choice");
            }
            *target = choice->second;
        });
}

}  // namespace

void addGlobalOptions(CLI::App& app, GlobalOptions* options) {
    options->to = zv_loc_fw::agent_protocol::kCsController;
    options->from = "mqctl-" + std::to_string(::getpid());
    options->toOption =
        app.add_option("--to", options->to, "controller to ask")->type_name("NAME")->default_str(options->to);
    app.add_option("--from", options->from, "own name")->type_name("NAME")->default_str("mqctl-PID");
    addDuration(app, "-w,--wait", &options->wait, "how long to wait: 500ms, 2s, 3m (for a reply: its time-out and 2s)");
    addChoice(app, "--json{auto}",
              std::map<std::string, JsonMode>{
                  {"auto", JsonMode::kAuto}, {"short", JsonMode::kShort}, {"pretty", JsonMode::kPretty}},
              &options->jsonText, &options->json, "JSON in one line, or indented")
        ->type_name("short|pretty");
    app.add_flag_callback(
        "-j", [options] { options->json = JsonMode::kAuto; }, "JSON: pretty on a terminal, short in a pipe");
    addChoice(app, "--color{always}",
              std::map<std::string, ColorMode>{
                  {"auto", ColorMode::kAuto}, {"always", ColorMode::kAlways}, {"never", ColorMode::kNever}},
              &options->colorText, &options->color, "colours; without it on a terminal, unless NO_COLOR is set")
        ->type_name("auto|always|never");
    app.add_flag("-q,--quiet", options->quiet, "no countdown, notes and payload of replies");
    app.add_flag("-v,--verbose", options->verbose, "show requests, replies and log lines on stderr");
    app.add_flag("--no-legend", options->noLegend, "tables without headings and footers");
    app.add_flag("--force", options->force, "do what is refused for the sake of others");
}

std::optional<Duration> parseDuration(const std::string& text) {
    if (text.empty() || text[0] < '0' || text[0] > '9') {
        return std::nullopt;
    }
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    for (const Unit& unit : kUnits) {
        const double seconds = number * unit.seconds;
        if (unit.name == std::string_view(end)) {
            const bool fits = std::isfinite(seconds) && seconds >= 0.001 && seconds <= kLongestSeconds;
            return fits ? std::optional(Duration(std::llround(seconds * 1000))) : std::nullopt;
        }
    }
    return std::nullopt;
}

CLI::Option* addDuration(CLI::App& app, const std::string& names, std::optional<Duration>* target,
                         const std::string& description) {
    const auto read = [target, names](const std::string& text) {
        *target = parseDuration(text);
        if (!target->has_value()) {
            throw CLI::ValidationError(names, "\"" + text + "\" is no time: 500ms, 2s, 3m, 1h; a number is seconds");
        }
    };
    return app.add_option_function<std::string>(names, read, description)->type_name("TIME");
}

std::string formatDuration(std::chrono::duration<double> time) {
    const double seconds = time.count();
    char text[40];
    if (seconds < 0.0001) {
        (void)std::snprintf(text, sizeof(text), "%.0f us", seconds * 1e6);
    } else if (seconds < 0.01) {
        (void)std::snprintf(text, sizeof(text), "%.1f ms", seconds * 1e3);
    } else if (seconds < 1) {
        (void)std::snprintf(text, sizeof(text), "%.0f ms", seconds * 1e3);
    } else if (seconds == std::floor(seconds)) {
        (void)std::snprintf(text, sizeof(text), "%.0f s", seconds);
    } else {
        (void)std::snprintf(text, sizeof(text), "%.1f s", seconds);
    }
    return text;
}

double secondsOf(std::chrono::duration<double> time) {
    return std::round(time.count() * 1e6) / 1e6;
}

}  // namespace mqctl
