// The entry of a libFuzzer binary: runs the target that KAI_FUZZ_TARGET names.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz_targets.h"

namespace {

const FuzzTarget& obtainTarget() {
    for (const FuzzTarget& target : obtainFuzzTargets()) {
        if (std::strcmp(target.name, KAI_FUZZ_TARGET) == 0) {
            return target;
        }
    }
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzTarget& target = obtainTarget();
    target.run({reinterpret_cast<const char*>(data), size});
    return 0;
}
