#ifndef FUZZ_INPUTS_H
#define FUZZ_INPUTS_H

#include <filesystem>
#include <string>
#include <vector>

/// The contents of all files in a directory, in the order of their names; none where there is no such directory.
std::vector<std::string> readInputs(const std::filesystem::path& directory);

#endif
