#include "process_figures.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

std::size_t countDescriptors() {
    // The iterator has the folder itself open.
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries))) - 1;
}

std::size_t measureResidentMemory() {
    std::ifstream file("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    file >> all >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}
