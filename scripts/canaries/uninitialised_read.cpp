// A decision that depends on a value nobody has set, which memcheck must report.
#include <cstdlib>

int main() {
    const int* const value = static_cast<const int*>(std::malloc(sizeof(int)));
    return *value == 7 ? 3 : 0;
}
