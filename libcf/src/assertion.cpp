#include "cf/assertion.h"

#include <atomic>
#include <cstdio>

namespace {

void writeToStandardError(const char* condition, const char* sourceFile, int line) {
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", sourceFile, line, condition);
}

std::atomic<CFAssertionHandler> currentHandler{writeToStandardError};

}  // namespace

void cfSetAssertionHandler(CFAssertionHandler handler) {
    currentHandler.store(handler != nullptr ? handler : writeToStandardError);
}

void cfReportAssertion(const char* condition, const char* sourceFile, int line) {
    currentHandler.load()(condition, sourceFile, line);
}
