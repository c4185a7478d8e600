#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace mqctl {

using Clock = std::chrono::steady_clock;
using Duration = std::chrono::milliseconds;

enum class ColorMode : uint8_t { kAuto, kAlways, kNever };
enum class JsonMode : uint8_t { kOff, kAuto, kShort, kPretty };  ///< kAuto: pretty on a terminal, short in a pipe

/// What every command understands, before or behind its own options.
struct GlobalOptions {
    std::string to;    ///< controller to ask
    std::string from;  ///< own name
    std::optional<Duration> wait;
    JsonMode json = JsonMode::kOff;
    ColorMode color = ColorMode::kAuto;
    bool quiet = false;
    bool verbose = false;
    bool noLegend = false;
    bool force = false;

    /// Whether the command line named a controller.
    [[nodiscard]] bool namesController() const { return toOption != nullptr && toOption->count() > 0; }
    const CLI::Option* toOption = nullptr;
    std::string jsonText;   ///< what stood behind "--json="
    std::string colorText;  ///< and "--color="
};

/// @param options outlives the parse
void addGlobalOptions(CLI::App& app, GlobalOptions* options);

/// "250ms", "1.5", "2s", "3m", "1h"; a number alone is seconds. @return nothing for anything else, or 0 and less
[[nodiscard]] std::optional<Duration> parseDuration(const std::string& text);
/// An option whose value is a TIME.
CLI::Option* addDuration(CLI::App& app, const std::string& names, std::optional<Duration>* target,
                         const std::string& description);

/// "30 us", "0.3 ms", "412 ms", "3.2 s", "60 s"
[[nodiscard]] std::string formatDuration(std::chrono::duration<double> time);
/// Seconds with microseconds, for JSON.
[[nodiscard]] double secondsOf(std::chrono::duration<double> time);

}  // namespace mqctl
