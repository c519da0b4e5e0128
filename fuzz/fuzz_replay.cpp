// Runs every target over its corpus and over every input that ever made it fail: fuzz_replay DIRECTORY, where DIRECTORY
// holds corpus/ and crashes/.

#include <cstdio>

#include "fuzz_inputs.h"
#include "fuzz_targets.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_replay DIRECTORY\n");
        return 2;
    }
    const std::filesystem::path directory(argv[1]);
    for (const FuzzTarget& target : obtainFuzzTargets()) {
        std::size_t count = 0;
        for (const char* kind : {"corpus", "crashes"}) {
            for (const std::string& input : readInputs(directory / kind / target.name)) {
                target.run(input);
                ++count;
            }
        }
        std::printf("%s: %zu inputs\n", target.name, count);
        if (count == 0) {
            std::fprintf(stderr, "no input for %s\n", target.name);
            return 1;
        }
    }
    return 0;
}
