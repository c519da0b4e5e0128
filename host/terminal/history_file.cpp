#include "terminal/history_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace host {
namespace {

std::filesystem::path findStateDirectory() {
    const auto read = [](const char* name) {
        const char* value = std::getenv(name);
        return std::filesystem::path(value != nullptr ? value : "");
    };
    // A relative path in the variable must be ignored.
    if (std::filesystem::path state = read("XDG_STATE_HOME"); state.is_absolute()) {
        return state;
    }
    const std::filesystem::path home = read("HOME");
    return home.is_absolute() ? home / ".local" / "state" : std::filesystem::path();
}

/// A text on one line: backslashes and line feeds are escaped.
std::string writeOnOneLine(const std::string& text) {
    std::string line;
    for (const char character : text) {
        line += character == '\n' ? "\\n" : character == '\\' ? "\\\\" : std::string(1, character);
    }
    return line;
}

std::string readFromOneLine(const std::string& line) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const bool isEscape = line[i] == '\\' && i + 1 < line.size();
        i += isEscape ? 1 : 0;
        text += isEscape && line[i] == 'n' ? '\n' : line[i];
    }
    return text;
}

}  // namespace

HistoryFile::HistoryFile() {
    const std::filesystem::path state = findStateDirectory();
    if (state.empty()) {
        return;
    }
    const std::filesystem::path directory = state / "kai";
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (!error) {
        m_fileName = directory / "history";
    }
}

std::vector<std::string> HistoryFile::read() const {
    std::vector<std::string> lines;
    std::ifstream file(m_fileName);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(readFromOneLine(line));
    }
    if (lines.size() > kMaxLines) {
        lines.erase(lines.begin(), lines.end() - kMaxLines);
    }
    return lines;
}

void HistoryFile::append(const std::string& text) const {
    const int file =
        m_fileName.empty() ? -1 : open(m_fileName.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (file >= 0) {
        const std::string line = writeOnOneLine(text) + "\n";
        // One write, so that lines of simultaneous chats do not mix.
        [[maybe_unused]] const ssize_t ignored = write(file, line.data(), line.size());
        close(file);
    }
}

}  // namespace host
