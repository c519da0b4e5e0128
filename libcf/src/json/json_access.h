#ifndef CF_SRC_JSON_ACCESS_H
#define CF_SRC_JSON_ACCESS_H

#include <bit>
#include <cstdint>
#include <type_traits>

#include "cf/json.h"
#include "json/json_tape.h"
#include "json/json_tree.h"

/// Converts handles and iterators to tape places or tree nodes, and back. A handle into a parsed document has the bytes
/// of a TapePlace; a handle into a built tree has a null first word and its node's address in the second.
struct COJsonAccess {
    static_assert(std::is_trivially_copyable_v<cf::TapePlace> && sizeof(cf::TapePlace) == sizeof(COJsonValue));

    template <typename Handle>
    [[nodiscard]] static bool isParsed(const Handle& handle) noexcept {
        return handle.m_document != nullptr;
    }

    template <typename Handle>
    [[nodiscard]] static cf::TapePlace obtainPlace(const Handle& handle) noexcept {
        return std::bit_cast<cf::TapePlace>(handle);
    }

    /// The node of a handle into a built tree; null for any other handle.
    template <typename Handle>
    [[nodiscard]] static cf::JsonNode* obtainNode(const Handle& handle) noexcept {
        return isParsed(handle) ? nullptr : reinterpret_cast<cf::JsonNode*>(handle.m_place);
    }

    template <typename Handle>
    [[nodiscard]] static Handle make(cf::TapePlace place) noexcept {
        return std::bit_cast<Handle>(place);
    }

    /// @param node  null gives an undefined handle, or the end of an iteration
    template <typename Handle>
    [[nodiscard]] static Handle make(const cf::JsonNode* node) noexcept {
        Handle handle;
        handle.m_place = reinterpret_cast<std::uintptr_t>(node);
        return handle;
    }

    /// The children of a container, as COJsonItems or COJsonMembers; empty if the value is of another type.
    template <typename Range>
    [[nodiscard]] static Range makeRange(const COJsonValue& container, COJsonValue::Type type) noexcept {
        using Iterator = typename Range::Iterator;
        Range range;
        if (container.obtainType() != type) {
            return range;
        }
        if (isParsed(container)) {
            range.m_begin = make<Iterator>(obtainPlace(container).obtainFirst());
            range.m_end = make<Iterator>(obtainPlace(container).obtainEnd());
        } else {
            range.m_begin = make<Iterator>(obtainNode(container)->firstChild);
        }
        return range;
    }

    static void writeUnsigned(COJsonWriter& writer, std::uint64_t number) { writer.writeUnsigned(number); }
};

#endif
