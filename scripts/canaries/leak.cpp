// Loses a block of the heap. Must fail under LeakSanitizer.
#include <cstdio>
#include <cstdlib>

int main(int count, char**) {
    void* volatile block = std::malloc(static_cast<std::size_t>(100 + count));
    std::printf("%d\n", block != nullptr);
    block = nullptr;
}
