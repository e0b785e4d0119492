#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace trelvo {

// Help that is as wide as the terminal, or 80 columns where it goes elsewhere.
class HelpFormatter : public CLI::Formatter {
public:
    [[nodiscard]] std::string make_help(const CLI::App* app, std::string name,
                                        CLI::AppFormatMode mode) const override;
    // "-n, --lines", as manual pages and completion take it.
    [[nodiscard]] std::string make_option_name(const CLI::Option* option,
                                               bool is_positional) const override;
    // Fills the paragraphs; lines that are indented stand as they are.
    [[nodiscard]] std::string make_footer(const CLI::App* app) const override;
};

}  // namespace trelvo
