#ifndef HOST_API_KEY_H
#define HOST_API_KEY_H

#include <cstddef>
#include <string>
#include <string_view>

#include "conversation/provider_table.h"

namespace host {

/// The source of the key, from the command line.
struct KeySource {
    std::string keyFile;      ///< --key-file; empty: not given
    std::string keyVariable;  ///< --key-env; empty: the provider's usual variables
};

/// A provider's key. Only the assistant gets it. Printed text passes makeVisible() first, which removes the key
/// (setHiddenSecret); saved text passes redact().
class ApiKey {
public:
    /// No key.
    ApiKey() = default;

    /// Reads the key of a provider; none for a provider without keys.
    /// @param warning  receives one line if everybody can read the key's file
    /// Throws HostError (Usage): no key, an empty one, one with control characters, a file that cannot be read.
    [[nodiscard]] static ApiKey obtain(const Provider& provider, const KeySource& source, std::string& warning);

    [[nodiscard]] const std::string& obtainText() const noexcept { return m_text; }

    /// The text with every occurrence of the key, also in encoded form, replaced by "***" (see replaceSecret).
    /// @param minLength  shorter keys are not replaced: they could be ordinary words, and replacing them would damage
    ///                   the text
    [[nodiscard]] std::string redact(std::string_view text, std::size_t minLength = 4) const;

    /// Where the user can change this key ("DEEPSEEK_API_KEY", "the file 'key'").
    [[nodiscard]] const std::string& obtainOrigin() const noexcept { return m_origin; }

private:
    ApiKey(std::string text, std::string origin);

    std::string m_text;
    std::string m_origin;
};

}  // namespace host

#endif
