// Reads one byte behind a block of the heap. Must fail under AddressSanitizer.
#include <cstdio>
#include <memory>

int main(int count, char**) {
    const auto block = std::make_unique<char[]>(16);
    std::printf("%d\n", block[static_cast<std::size_t>(15 + count)]);
}
