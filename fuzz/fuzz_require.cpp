#include "fuzz_require.h"

#include <cstdio>
#include <cstdlib>

#include "cf/assertion.h"

void require(bool isTrue, const char* what) {
    if (!isTrue) {
        std::fprintf(stderr, "violated: %s\n", what);
        std::abort();
    }
}

QuietAssertions::QuietAssertions() {
    cfSetAssertionHandler([](const char*, const char*, int) {});
}

QuietAssertions::~QuietAssertions() {
    cfSetAssertionHandler(nullptr);
}
