#ifndef KAI_OPTIONAL_MEMBERS_H
#define KAI_OPTIONAL_MEMBERS_H

#include "cf/json.h"

namespace kai {

// Type checks of optional members: a missing member is accepted.

inline bool isStringOrMissing(const COJsonValue& value) {
    return value.isString() || !value.getIsValidJson();
}

inline bool isArrayOrMissing(const COJsonValue& value) {
    return value.isArray() || !value.getIsValidJson();
}

}  // namespace kai

#endif
