#include "Help.h"

#include "Text.h"

namespace mqctl {

namespace {

constexpr size_t kColumns = 80;
constexpr size_t kLeftColumns = 28;

/// Words from `column` on, each line begun with as many blanks; the first continues what stands before it.
std::string wrapped(const std::string& text, size_t column) {
    std::string result;
    size_t used = column;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, end - at);
        if (used > column && used + 1 + columnsOf(word) > kColumns) {
            result += "\n" + std::string(column, ' ');
            used = column;
        } else if (used > column) {
            result += ' ';
            ++used;
        }
        result += word;
        used += columnsOf(word);
        at = end + 1;
    }
    return result + "\n";
}

std::string entry(const std::string& left, const std::string& right) {
    std::string line = "  " + left;
    if (line.size() + 2 > kLeftColumns) {
        line += "\n" + std::string(kLeftColumns, ' ');
    } else {
        line.resize(kLeftColumns, ' ');
    }
    return line + wrapped(right, kLeftColumns);
}

}  // namespace

std::string HelpFormatter::make_option(const CLI::Option* option, bool is_positional) const {
    std::string left;
    if (is_positional) {
        left = option->get_name(true, false) + (option->get_expected_max() > 1 ? "..." : "");
    } else {
        for (const std::string& name : option->get_snames()) {
            left += (left.empty() ? "-" : ", -") + name;
        }
        for (const std::string& name : option->get_lnames()) {
            left += (left.empty() ? "--" : ", --") + name;
        }
        // What a check adds to it behind a colon says nothing that the description does not.
        const std::string whole_type = option->get_type_name();
        const std::string type = whole_type.substr(0, whole_type.find(':'));
        if (!type.empty()) {
            // A flag that may have a value takes it behind "=" alone.
            left += option->get_expected_min() == 0 ? "[=" + type + "]" : " " + type;
        }
    }
    const std::string standard = option->get_default_str();
    return entry(left, option->get_description() + (standard.empty() ? "" : " (" + standard + ")"));
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
    return entry(command->get_name(), command->get_description());
}

std::string HelpFormatter::make_description(const CLI::App* app) const {
    return wrapped(app->get_description(), 0);
}

std::string HelpFormatter::make_usage(const CLI::App* app, std::string name) const {
    std::string usage = "Usage: " + (name.empty() ? app->get_name() : name);
    usage += " [OPTIONS]";
    for (const CLI::Option* option : app->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
        const std::string text = option->get_name(true, false) + (option->get_expected_max() > 1 ? "..." : "");
        usage += option->get_required() ? " " + text : " [" + text + "]";
    }
    if (!app->get_subcommands([](const CLI::App*) { return true; }).empty()) {
        usage += " [COMMAND]";
    }
    return usage + "\n";
}

}  // namespace mqctl
