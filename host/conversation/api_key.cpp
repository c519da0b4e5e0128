#include "conversation/api_key.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>

#include "host_error.h"
#include "terminal/secret_text.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

constexpr std::streamsize kMaxKeyBytes = 64 * 1024;

[[noreturn]] void fail(const std::string& message) {
    throw HostError(ExitCode::Usage, message);
}

/// The first line of a file, without its line end.
std::string readFirstLine(const std::string& fileName) {
    const std::string name = "the key file '" + makeOneLine(fileName) + "'";
    struct stat status {};
    if (stat(fileName.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        fail(name + " is a directory; name the file that holds the key");
    }
    errno = 0;
    std::ifstream file(fileName, std::ios::binary);
    if (!file) {
        fail("cannot read " + name + ": " + std::strerror(errno) + "; check --key-file");
    }
    std::string line(static_cast<std::size_t>(kMaxKeyBytes), '\0');
    file.read(line.data(), kMaxKeyBytes);
    line.resize(static_cast<std::size_t>(file.gcount()));
    line.resize(std::min(line.find('\n'), line.size()));
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return line;
}

std::string warnIfReadableByAll(const std::string& fileName) {
    struct stat status {};
    if (stat(fileName.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || (status.st_mode & S_IROTH) == 0) {
        return {};
    }
    return "everybody on this machine can read the key file '" + makeOneLine(fileName) +
           "'; protect it with: chmod 600";
}

void checkKey(const std::string& key, const std::string& origin) {
    if (key.find_first_not_of(" \t") == std::string::npos) {
        fail("the key in " + origin + " is empty; put the provider's key there");
    }
    const bool hasControl = std::any_of(key.begin(), key.end(),
                                        [](unsigned char character) { return character < 0x20 || character == 0x7F; });
    if (hasControl) {
        fail("the key in " + origin + " has a control character or a line break in it; store it again");
    }
}

std::string describeMissingKey(const Provider& provider, const KeySource& source) {
    if (!source.keyVariable.empty()) {
        return "the environment variable " + makeOneLine(source.keyVariable) + " is not set; put the key there";
    }
    std::string variables;
    for (const std::string_view variable : provider.keyVariables) {
        variables += (variables.empty() ? "" : " or ") + std::string(variable);
    }
    return "no key for " + std::string(provider.name) + "; set " + variables + " or name a file with --key-file";
}

/// The name of the variable to read: the first one with a value, otherwise the first one that is set, otherwise none.
std::string chooseVariable(const Provider& provider, const KeySource& source) {
    if (!source.keyVariable.empty()) {
        return std::getenv(source.keyVariable.c_str()) != nullptr ? source.keyVariable : std::string();
    }
    std::string chosen;
    for (const std::string_view name : provider.keyVariables) {
        std::string variable(name);
        const char* value = std::getenv(variable.c_str());
        if (value != nullptr && *value != '\0') {
            return variable;
        }
        if (value != nullptr && chosen.empty()) {
            chosen = variable;
        }
    }
    return chosen;
}

}  // namespace

ApiKey::ApiKey(std::string text, std::string origin) : m_text(std::move(text)), m_origin(std::move(origin)) {
    checkKey(m_text, m_origin);
}

ApiKey ApiKey::obtain(const Provider& provider, const KeySource& source, std::string& warning) {
    if (provider.keyVariables.empty()) {
        return {};
    }
    if (!source.keyFile.empty()) {
        warning = warnIfReadableByAll(source.keyFile);
        return {readFirstLine(source.keyFile), "the file '" + makeOneLine(source.keyFile) + "'"};
    }
    const std::string variable = chooseVariable(provider, source);
    if (variable.empty()) {
        fail(describeMissingKey(provider, source));
    }
    return {std::getenv(variable.c_str()), variable};
}

std::string ApiKey::redact(std::string_view text, std::size_t minLength) const {
    return m_text.size() >= minLength ? replaceSecret(text, m_text) : std::string(text);
}

}  // namespace host
