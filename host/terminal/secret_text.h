#ifndef HOST_SECRET_TEXT_H
#define HOST_SECRET_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// The text with each occurrence of a secret replaced by "***": as it is, percent-encoded, or escaped as in JSON, each
/// character of it in whichever of these forms. An empty secret is nowhere.
[[nodiscard]] std::string replaceSecret(std::string_view text, std::string_view secret);

/// Where a secret may begin that goes on behind the text's end; the text's size where none does. What stands before
/// that can be printed before the rest has come.
[[nodiscard]] std::size_t findUnfinishedSecret(std::string_view text, std::string_view secret);

/// From here on this secret is taken out of every text that is made visible (makeVisible, makeOneLine), before anything
/// is cut from it. One secret a process; one that is shorter than 4 bytes would be an everyday word and is ignored.
void setHiddenSecret(std::string_view secret);
[[nodiscard]] const std::string& obtainHiddenSecret() noexcept;

}  // namespace host

#endif
