#include "terminal/terminal_traits.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace host {
namespace {

std::string_view readVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

bool hasTerminalEscapes() {
    const std::string_view terminal = readVariable("TERM");
    return !terminal.empty() && terminal != "dumb";
}

bool areColoursWanted() {
    return readVariable("NO_COLOR").empty();
}

std::size_t measureTerminalColumns() {
    constexpr std::size_t kUsualColumns = 80;
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualColumns;
}

}  // namespace host
