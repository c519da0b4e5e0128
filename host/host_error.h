#ifndef HOST_HOST_ERROR_H
#define HOST_HOST_ERROR_H

#include <stdexcept>
#include <string>

namespace host {

/// The program's exit codes.
enum class ExitCode : int {
    Done = 0,
    SqlFailed = 1,    ///< the model's SQL was refused or failed
    Usage = 2,        ///< the command line, a key, a settings file or a conversation file cannot be used
    Database = 3,     ///< the database cannot be opened or read
    Provider = 4,     ///< the provider did not give an answer
    Cancelled = 130,  ///< the user stopped it
};

/// A failure that ends a command or a turn. Its text is one line for the user: what is wrong and what to do.
class HostError : public std::runtime_error {
public:
    HostError(ExitCode code, const std::string& message) : std::runtime_error(message), m_code(code) {}

    [[nodiscard]] ExitCode obtainCode() const noexcept { return m_code; }

private:
    ExitCode m_code;
};

}  // namespace host

#endif
