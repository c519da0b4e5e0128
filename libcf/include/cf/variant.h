#ifndef CF_VARIANT_H
#define CF_VARIANT_H

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "cf/export.h"

class CMVariant;

/// Values in order.
using CMVariantList = std::vector<CMVariant>;

/// Values by name, in ascending byte order of the names.
using CMVariantMap = std::map<std::string, CMVariant>;

/// One value whose type is known at run time: null, a text, a number, a list or a map.
///
/// A copyable and movable value that owns all its content. Reading a value as another type never throws: it converts
/// the value or returns an empty result, as each function describes. Use one object from one thread at a time; separate
/// objects (copies included) are independent.
class CF_EXPORT CMVariant {
public:
    /// The types of values.
    enum class ValueType : std::int32_t {
        Null,    ///< nothing
        String,  ///< a text
        Double,  ///< a number
        List,    ///< values in order
        Map,     ///< values by name
    };

    /// A null value.
    CMVariant() noexcept;
    /// A copy of a NUL-terminated text; a null pointer gives an empty string.
    CMVariant(const char* text);
    /// A string.
    CMVariant(std::string text) noexcept;
    /// A number.
    CMVariant(double number) noexcept;
    /// A list.
    CMVariant(CMVariantList list) noexcept;
    /// A map.
    CMVariant(CMVariantMap map) noexcept;

    /// Copies the other value with all its content.
    CMVariant(const CMVariant& other);
    /// Moves the other value's content; the other value may then be assigned or destroyed.
    CMVariant(CMVariant&& other) noexcept;
    /// Replaces this value by a copy of the other one.
    CMVariant& operator=(const CMVariant& other);
    /// Replaces this value by the other one's content.
    CMVariant& operator=(CMVariant&& other) noexcept;
    ~CMVariant();

    /// The type of the current value.
    [[nodiscard]] ValueType getValueType() const noexcept;

    /// For a string its text; for a double the shortest text that reads back as the same double (C locale); otherwise
    /// empty.
    [[nodiscard]] std::string stringValue() const;

    /// For a double its number; for a string the finite number that the whole string spells (C locale, blanks around it
    /// allowed), or 0.0 if it spells none; otherwise 0.0.
    [[nodiscard]] double doubleValue() const noexcept;

    /// The items of a list; empty for another type. Valid until this value is changed or destroyed.
    [[nodiscard]] const CMVariantList& listValue() const noexcept;

    /// The entries of a map; empty for another type. Valid until this value is changed or destroyed.
    [[nodiscard]] const CMVariantMap& mapValue() const noexcept;

private:
    std::variant<std::monostate, std::string, double, CMVariantList, CMVariantMap> m_value;
};

#endif
