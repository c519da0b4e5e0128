#ifndef TESTS_PROCESS_FIGURES_H
#define TESTS_PROCESS_FIGURES_H

#include <cstddef>

/// The descriptors that this process has open.
[[nodiscard]] std::size_t countDescriptors();

/// The memory of this process that is in RAM, in bytes.
[[nodiscard]] std::size_t measureResidentMemory();

#endif
