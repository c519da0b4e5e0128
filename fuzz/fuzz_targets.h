#ifndef FUZZ_TARGETS_H
#define FUZZ_TARGETS_H

#include <string_view>
#include <vector>

/// Something that reads bytes from outside. It takes any bytes; what it must not do ends the process.
struct FuzzTarget {
    const char* name;  ///< also the name of its directory in corpus/ and crashes/
    void (*run)(std::string_view input);
    int mutationCount;  ///< how many mangled inputs the tests try, so that each target takes about a second
};

/// All targets.
const std::vector<FuzzTarget>& obtainFuzzTargets();

/// The libraries' readers, which need no connection.
std::vector<FuzzTarget> listParserTargets();
/// Turns against a service on the loopback that sends the input.
std::vector<FuzzTarget> listTurnTargets();
/// What the reference host reads and prints.
std::vector<FuzzTarget> listHostTargets();

#endif
