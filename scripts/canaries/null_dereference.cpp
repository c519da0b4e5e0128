// A defect that clang-tidy's analyzer must find: see scripts/checks/tidy.
int readNothing(bool isNull) {
    const int number = 1;
    const int* const pointer = isNull ? nullptr : &number;
    return isNull ? *pointer : 0;
}
