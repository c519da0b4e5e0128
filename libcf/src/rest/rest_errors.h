#ifndef CF_SRC_REST_ERRORS_H
#define CF_SRC_REST_ERRORS_H

#include <cstdint>
#include <string>

namespace cf {

/// The text of a result code: one line for a person, empty for 0.
[[nodiscard]] std::string describeRestResult(std::int32_t resultCode);

}  // namespace cf

#endif
