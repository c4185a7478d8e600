#pragma once

#include <cctype>
#include <string>
#include <string_view>
#include <vector>

namespace mqctl::report {

/// Walks a page as a strict XML parser would. @return what is wrong, empty when it is well formed
inline std::string whatIsMalformed(std::string_view page, std::vector<std::string>* attributes) {
    std::vector<std::string> open;
    const auto entity_ends = [](std::string_view text, size_t at) {
        const size_t end = text.find(';', at);
        return end != std::string_view::npos && end - at <= 7 && end > at + 1;
    };
    for (size_t at = 0; at < page.size();) {
        const auto byte = static_cast<unsigned char>(page[at]);
        if (byte < 0x20 && byte != '\n' && byte != '\t') {
            return "control byte at " + std::to_string(at);
        }
        if (page[at] == '&' && !entity_ends(page, at)) {
            return "bare ampersand at " + std::to_string(at);
        }
        if (page[at] != '<') {
            ++at;
            continue;
        }
        const size_t end = page.find('>', at);
        if (end == std::string_view::npos) {
            return "tag without an end at " + std::to_string(at);
        }
        std::string_view tag = page.substr(at + 1, end - at - 1);
        at = end + 1;
        if (tag.substr(0, 8) == "!DOCTYPE") {
            continue;
        }
        if (!tag.empty() && tag.front() == '/') {
            if (open.empty() || open.back() != tag.substr(1)) {
                return "closes " + std::string(tag) + " inside " + (open.empty() ? "nothing" : open.back());
            }
            open.pop_back();
            continue;
        }
        const bool empty = !tag.empty() && tag.back() == '/';
        tag = tag.substr(0, tag.size() - (empty ? 1 : 0));
        const std::string name(tag.substr(0, tag.find(' ')));
        if (name.empty() || std::isalpha(static_cast<unsigned char>(name[0])) == 0) {
            return "odd tag <" + std::string(tag);
        }
        for (tag.remove_prefix(name.size()); !tag.empty();) {
            const size_t equals = tag.find("=\"");
            const size_t close = equals == std::string_view::npos ? equals : tag.find('"', equals + 2);
            if (tag.front() != ' ' || close == std::string_view::npos) {
                return "odd attribute in <" + name;
            }
            attributes->push_back(std::string(tag.substr(1, close - 1)));
            tag.remove_prefix(close + 1);
        }
        if (name == "script") {
            return "a script";
        }
        if (!empty) {
            open.push_back(name);
        }
    }
    return open.empty() ? "" : open.back() + " stays open";
}

}  // namespace mqctl::report
