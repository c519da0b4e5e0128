#include "settings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "cf/utilities.h"
#include "conversation/provider_table.h"
#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

struct Name {
    std::string_view name;
    bool isProviders;  ///< applies to one provider only
};

constexpr std::array<Name, 9> kNames{{{"provider", false},
                                      {"format", false},
                                      {"ca-file", false},
                                      {"proxy", false},
                                      {"model", true},
                                      {"host", true},
                                      {"plain-http", true},
                                      {"key-file", true},
                                      {"key-env", true}}};

const Name* findName(std::string_view name) {
    const auto* found = std::find_if(kNames.begin(), kNames.end(), [&](const Name& row) { return row.name == name; });
    return found != kNames.end() ? found : nullptr;
}

std::string listNames() {
    std::string names;
    for (const Name& row : kNames) {
        names += (names.empty() ? "" : ", ") + std::string(row.name);
    }
    return names;
}

std::string findFileName() {
    const auto read = [](const char* name) {
        const char* value = std::getenv(name);
        return std::filesystem::path(value != nullptr ? value : "");
    };
    // A relative path in the variable must be ignored.
    if (const std::filesystem::path directory = read("XDG_CONFIG_HOME"); directory.is_absolute()) {
        return directory / "kai" / "config";
    }
    const std::filesystem::path home = read("HOME");
    return home.is_absolute() ? (home / ".config" / "kai" / "config").string() : std::string();
}

[[noreturn]] void failAt(const std::string& origin, const std::string& reason) {
    throw HostError(ExitCode::Usage, makeOneLine(origin) + ": " + reason);
}

void checkValue(const Setting& setting) {
    const Name* name = findName(setting.name);
    if (name == nullptr) {
        failAt(setting.origin, "unknown setting '" + makeOneLine(setting.name) + "'; the settings are " + listNames());
    }
    if (!setting.provider.empty() && !name->isProviders) {
        failAt(setting.origin, "'" + setting.name + "' stands before the first section");
    }
    if (setting.name == "provider" && findProvider(setting.value) == nullptr) {
        failAt(setting.origin, "unknown provider; choose one of " + listProviderNames());
    }
    if (setting.value.empty()) {
        failAt(setting.origin, "'" + setting.name + "' has no value");
    }
}

}  // namespace

Settings Settings::parse(std::string_view text, const std::string& fileName) {
    Settings settings;
    settings.m_fileName = fileName;
    std::string section;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = text.find('\n');
        const std::string line = cfTrimAsString(std::string(text.substr(0, end)));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        const std::string origin = fileName + ", line " + std::to_string(number);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[' && line.back() == ']') {
            section = cfTrimAsString(line.substr(1, line.size() - 2));
            if (findProvider(section) == nullptr) {
                failAt(origin, "unknown provider; choose one of " + listProviderNames());
            }
            continue;
        }
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) {
            failAt(origin, "not a setting; write 'name = value'");
        }
        settings.m_settings.push_back(
            {section, cfTrimAsString(line.substr(0, equals)), cfTrimAsString(line.substr(equals + 1)), origin});
        checkValue(settings.m_settings.back());
    }
    return settings;
}

Settings Settings::read() {
    const std::string fileName = findFileName();
    std::error_code error;
    if (fileName.empty() || !std::filesystem::exists(fileName, error)) {
        return parse({}, fileName);
    }
    errno = 0;
    std::ifstream file(fileName, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw HostError(ExitCode::Usage, "cannot read the settings in '" + makeOneLine(fileName) +
                                             "': " + std::strerror(errno) + "; check its permissions");
    }
    return parse(text, fileName);
}

std::optional<Setting> Settings::findIn(std::string_view section, std::string_view name) const {
    // The last line counts, because people add theirs at the end.
    const auto found = std::find_if(m_settings.rbegin(), m_settings.rend(), [&](const Setting& setting) {
        return setting.provider == section && setting.name == name;
    });
    return found != m_settings.rend() ? std::optional<Setting>(*found) : std::nullopt;
}

std::optional<Setting> Settings::find(std::string_view name) const {
    return findIn("", name);
}

std::optional<Setting> Settings::findFor(std::string_view provider, bool isUsual, std::string_view name) const {
    std::optional<Setting> setting = findIn(provider, name);
    return setting || !isUsual ? setting : findIn("", name);
}

}  // namespace host
