#ifndef HOST_SETTINGS_H
#define HOST_SETTINGS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// One value of the settings file and where it stands.
struct Setting {
    std::string provider;  ///< the section that it stands in; empty: before the first section
    std::string name;
    std::string value;
    std::string origin;  ///< "FILE, line 3"
};

/// The user's settings file: $XDG_CONFIG_HOME/kai/config, or ~/.config/kai/config.
///
///     # What kai takes where the command line says nothing.
///     provider = deepseek
///     format = csv
///
///     [deepseek]
///     model = deepseek-v4-flash
///     key-file = /home/me/keys/deepseek
///
/// A section holds for one provider. What stands before the first one holds for all of them, "model", "host" and the
/// key for the usual provider only: another one does not know them.
class Settings {
public:
    Settings() = default;

    /// Reads the file. One that does not exist is empty.
    /// Throws HostError (Usage) for a line that cannot be understood, or a file that cannot be read.
    [[nodiscard]] static Settings read();
    /// Reads a text. @param fileName  for messages
    [[nodiscard]] static Settings parse(std::string_view text, const std::string& fileName);

    /// The value for all providers.
    [[nodiscard]] std::optional<Setting> find(std::string_view name) const;
    /// The value for one provider.
    /// @param isUsual  whether it is the one that is used where none is named
    [[nodiscard]] std::optional<Setting> findFor(std::string_view provider, bool isUsual, std::string_view name) const;

    /// Where the file is, or would be; empty where there is no place for one.
    [[nodiscard]] const std::string& obtainFileName() const noexcept { return m_fileName; }

private:
    [[nodiscard]] std::optional<Setting> findIn(std::string_view section, std::string_view name) const;

    std::string m_fileName;
    std::vector<Setting> m_settings;
};

}  // namespace host

#endif
