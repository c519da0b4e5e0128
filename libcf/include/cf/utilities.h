#ifndef CF_UTILITIES_H
#define CF_UTILITIES_H

#include <functional>
#include <string>
#include <vector>

#include "cf/export.h"

/// Runs a function when this object goes out of scope, also when an exception leaves the scope. The function must not
/// throw: it runs in a destructor.
class CF_EXPORT CODefer {
public:
    /// @param action  run once by the destructor; an empty function is allowed and does nothing
    explicit CODefer(std::function<void()> action);
    ~CODefer();
    CODefer(const CODefer&) = delete;
    CODefer& operator=(const CODefer&) = delete;

private:
    std::function<void()> m_action;
};

/// Joins the parts of a URL with one "/" between two parts. A slash at the end or start of a part is not doubled, and
/// nothing is percent-encoded.
/// @return the joined text; empty for no parts
[[nodiscard]] CF_EXPORT std::string cfConcatURL(const std::vector<std::string>& parts);

/// The text without space, tab, CR, LF, VT and FF at both ends.
[[nodiscard]] CF_EXPORT std::string cfTrimAsString(const std::string& text);

#endif
