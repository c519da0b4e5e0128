#include "cf/utilities.h"

#include <string_view>
#include <utility>

#include "text/characters.h"

CODefer::CODefer(std::function<void()> action) : m_action(std::move(action)) {}

CODefer::~CODefer() {
    if (m_action) {
        m_action();
    }
}

std::string cfConcatURL(const std::vector<std::string>& parts) {
    std::string url;
    bool isFirst = true;
    for (std::string_view part : parts) {
        if (!isFirst) {
            if (!url.ends_with('/')) {
                url += '/';
            }
            if (part.starts_with('/')) {
                part.remove_prefix(1);
            }
        }
        url += part;
        isFirst = false;
    }
    return url;
}

std::string cfTrimAsString(const std::string& text) {
    return std::string(cf::trimBlanks(text));
}
