#ifndef HOST_SECRET_TEXT_H
#define HOST_SECRET_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// The text with each occurrence of a secret replaced by "***". Each character of the secret may be plain,
/// percent-encoded or escaped as in JSON. An empty secret never occurs.
[[nodiscard]] std::string replaceSecret(std::string_view text, std::string_view secret);

/// The position where a secret may begin that continues after the text's end; the text's size if there is none. The
/// text before it can be printed before the rest has arrived.
[[nodiscard]] std::size_t findUnfinishedSecret(std::string_view text, std::string_view secret);

/// From now on, removes this secret from every text that is made visible (makeVisible, makeOneLine), before anything is
/// cut from it. One secret per process. A secret shorter than 4 bytes could be an ordinary word and is ignored.
void setHiddenSecret(std::string_view secret);
[[nodiscard]] const std::string& obtainHiddenSecret() noexcept;

}  // namespace host

#endif
