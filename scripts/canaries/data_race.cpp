// A data race, which ThreadSanitizer must report.
#include <thread>

int main() {
    int shared = 0;
    std::thread other([&shared] { ++shared; });
    ++shared;
    other.join();
    return 0;
}
