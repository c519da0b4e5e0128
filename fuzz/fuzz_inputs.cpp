#include "fuzz_inputs.h"

#include <algorithm>
#include <fstream>
#include <iterator>

std::vector<std::string> readInputs(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(directory)) {
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> inputs;
    for (const std::filesystem::path& file : files) {
        std::ifstream stream(file, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    return inputs;
}
