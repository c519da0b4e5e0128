#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

/// Ends the process where something does not hold, which is how a target reports a failure.
/// @param what  what should have held
void require(bool isTrue, const char* what);

/// Keeps reports of failed checks quiet while it lives: malformed input is what the targets are for.
class QuietAssertions {
public:
    QuietAssertions();
    ~QuietAssertions();
    QuietAssertions(const QuietAssertions&) = delete;
    QuietAssertions& operator=(const QuietAssertions&) = delete;
};

#endif
