#ifndef HOST_API_KEY_H
#define HOST_API_KEY_H

#include <cstddef>
#include <string>
#include <string_view>

#include "conversation/provider_table.h"

namespace host {

/// Where the key is to come from, as the command line says.
struct KeySource {
    std::string keyFile;      ///< --key-file; empty: not given
    std::string keyVariable;  ///< --key-env; empty: the provider's customary variables
};

/// A provider's key. It is handed to the assistant and to nothing else. What the program prints is made visible first,
/// which takes the key out (setHiddenSecret); what it saves goes through redact().
class ApiKey {
public:
    /// No key.
    ApiKey() = default;

    /// Reads the key that a provider needs; none for one that takes no key.
    /// @param warning  receives one line when the key's file can be read by everybody
    /// Throws HostError (Usage): no key, an empty one, one with control characters, a file that cannot be read.
    [[nodiscard]] static ApiKey obtain(const Provider& provider, const KeySource& source, std::string& warning);

    [[nodiscard]] const std::string& obtainText() const noexcept { return m_text; }

    /// The text with every occurrence of the key, also an encoded one, replaced by "***" (see replaceSecret).
    /// @param minLength  a shorter key is not looked for: it would be an everyday word, and replacing it would garble
    ///                   the text
    [[nodiscard]] std::string redact(std::string_view text, std::size_t minLength = 4) const;

    /// How the user gives this key another value ("DEEPSEEK_API_KEY", "the file 'key'").
    [[nodiscard]] const std::string& obtainOrigin() const noexcept { return m_origin; }

private:
    ApiKey(std::string text, std::string origin);

    std::string m_text;
    std::string m_origin;
};

}  // namespace host

#endif
