// Reads a block of the heap that was freed. Must fail under AddressSanitizer.
#include <cstdio>

int main(int count, char**) {
    int* number = new int(count);
    delete number;
    std::printf("%d\n", *number);
}
