#ifndef HOST_SETTINGS_H
#define HOST_SETTINGS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// One value of the settings file and its place.
struct Setting {
    std::string provider;  ///< its section; empty: before the first section
    std::string name;
    std::string value;
    std::string origin;  ///< "FILE, line 3"
};

/// The user's settings file: $XDG_CONFIG_HOME/kai/config, or ~/.config/kai/config.
///
///     # Defaults for what the command line leaves open.
///     provider = deepseek
///     format = csv
///
///     [deepseek]
///     model = deepseek-v4-flash
///     key-file = /home/me/keys/deepseek
///
/// A section applies to one provider. Values before the first section apply to all of them, but "model", "host" and the
/// key only to the default provider: another one does not know them.
class Settings {
public:
    Settings() = default;

    /// Reads the file. A missing file is empty.
    /// Throws HostError (Usage) for a line that cannot be understood, or a file that cannot be read.
    [[nodiscard]] static Settings read();
    /// Reads a text. @param fileName  for messages
    [[nodiscard]] static Settings parse(std::string_view text, const std::string& fileName);

    /// The value for all providers.
    [[nodiscard]] std::optional<Setting> find(std::string_view name) const;
    /// The value for one provider.
    /// @param isUsual  whether it is the default provider
    [[nodiscard]] std::optional<Setting> findFor(std::string_view provider, bool isUsual, std::string_view name) const;

    /// The path of the file, whether it exists or not; empty if there is no place for it.
    [[nodiscard]] const std::string& obtainFileName() const noexcept { return m_fileName; }

private:
    [[nodiscard]] std::optional<Setting> findIn(std::string_view section, std::string_view name) const;

    std::string m_fileName;
    std::vector<Setting> m_settings;
};

}  // namespace host

#endif
