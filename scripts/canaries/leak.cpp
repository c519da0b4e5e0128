// Loses blocks of the heap. Must fail under LeakSanitizer.
//
// Several, because the pointer to the last may stay in a register or on the stack, where the sanitizer finds it.
#include <cstdio>
#include <cstdlib>

int main(int count, char**) {
    for (int i = 0; i < 10; ++i) {
        void* volatile block = std::malloc(static_cast<std::size_t>(100 + i + count));
        std::printf("%d\n", block != nullptr);
        block = nullptr;
    }
}
