#ifndef KAI_OPTIONAL_MEMBERS_H
#define KAI_OPTIONAL_MEMBERS_H

#include "cf/json.h"

namespace kai {

// What the value of a member that may be left out has to be where it is there.

inline bool isStringOrMissing(const COJsonValue& value) {
    return value.isString() || !value.getIsValidJson();
}

inline bool isArrayOrMissing(const COJsonValue& value) {
    return value.isArray() || !value.getIsValidJson();
}

}  // namespace kai

#endif
