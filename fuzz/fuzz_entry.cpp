// The entry of the libFuzzer program: runs the target that the environment variable KAI_FUZZ_TARGET names. Without one
// it prints the names of all targets.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz_targets.h"

namespace {

const FuzzTarget* findTarget(std::string_view name) {
    const std::vector<FuzzTarget>& targets = obtainFuzzTargets();
    const auto found =
        std::find_if(targets.begin(), targets.end(), [&](const FuzzTarget& target) { return target.name == name; });
    return found != targets.end() ? &*found : nullptr;
}

const FuzzTarget* chosenTarget = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const char* const name = std::getenv("KAI_FUZZ_TARGET");
    if (name == nullptr) {
        for (const FuzzTarget& target : obtainFuzzTargets()) {
            std::puts(target.name);
        }
        std::exit(0);
    }
    chosenTarget = findTarget(name);
    if (chosenTarget == nullptr) {
        std::fprintf(stderr, "no such fuzz target: %s\n", name);
        std::exit(2);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    chosenTarget->run({reinterpret_cast<const char*>(data), size});
    return 0;
}
