// Adds one to the largest int. Must fail under UndefinedBehaviorSanitizer.
#include <climits>
#include <cstdio>

int main(int count, char**) {
    std::printf("%d\n", INT_MAX - 1 + count + count);
}
