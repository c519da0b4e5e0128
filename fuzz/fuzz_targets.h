#ifndef FUZZ_TARGETS_H
#define FUZZ_TARGETS_H

#include <string_view>
#include <vector>

/// One reader of texts from outside. It takes any bytes; what it must not do ends the process.
struct FuzzTarget {
    const char* name;  ///< also the name of its directory in corpus/ and crashes/
    void (*run)(std::string_view input);
};

/// All targets.
const std::vector<FuzzTarget>& obtainFuzzTargets();

#endif
