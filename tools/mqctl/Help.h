#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace mqctl {

/// Help of 80 columns.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
    std::string make_subcommand(const CLI::App* command) const override;
    std::string make_description(const CLI::App* app) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
};

}  // namespace mqctl
