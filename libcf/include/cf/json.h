#ifndef CF_JSON_H
#define CF_JSON_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cf/export.h"
#include "cf/variant.h"

/// Writes one JSON value as compact text, directly into a string: it builds no tree and copies no text twice.
///
/// The caller writes the structure in order (a key before each member's value); the writer adds the separators. It
/// escapes strings and replaces each ill-formed UTF-8 sequence by U+FFFD, so the result is always valid JSON. The
/// target string holds the text only after finish() or the writer's destructor. Until then the target must live and
/// must not be accessed. One thread at a time.
/// Errors: allocation failure throws std::bad_alloc or std::length_error; the target is then still a valid string.
class CF_EXPORT COJsonWriter {
public:
    /// @param target  the string to append to; borrowed
    explicit COJsonWriter(std::string& target);
    ~COJsonWriter();
    COJsonWriter(const COJsonWriter&) = delete;
    COJsonWriter& operator=(const COJsonWriter&) = delete;

    /// Reserves space for `size` more bytes. A hint: if the space is too small, the writer grows the target.
    void reserve(std::size_t size);

    /// Begins an object; its members follow, each a key and a value.
    void beginObject();
    /// Ends the object that was begun last.
    void endObject();
    /// Begins an array; its items follow.
    void beginArray();
    /// Ends the array that was begun last.
    void endArray();

    /// Writes the key of the next member of the open object.
    void writeKey(std::string_view key);
    /// Writes a string, escaped.
    void writeString(std::string_view text);
    /// Writes the shortest decimal form that reads back as the same double; null for a number that is not finite.
    void writeDouble(double number);
    /// Writes a whole number.
    void writeInteger(std::int64_t number);
    /// Writes true or false.
    void writeBoolean(bool value);
    /// Writes null.
    void writeNull();

    /// Writes a member whose value is a string.
    void writeMember(std::string_view key, std::string_view text);

    /// Writes a value that is fixed except for one string: `before` and `after` are JSON text, written unchanged around
    /// the string. `writeFramed(R"({"role":"user","content":)", text, "}")` writes an object of two members.
    void writeFramed(std::string_view before, std::string_view text, std::string_view after);
    /// The free capacity that a new writer's target needs so that one writeFramed() cannot reallocate it. Hosts compile
    /// this function in, so a later version of the library must not need more.
    [[nodiscard]] static constexpr std::size_t countMostFramed(std::string_view before, std::string_view text,
                                                               std::string_view after) noexcept {
        constexpr std::size_t kQuotes = 2;
        return before.size() + kQuotes + kMostBytesOfAByte * text.size() + after.size() + kSpareBytes;
    }

    /// Ends the text: the target string now holds all of it. To write more, create a new writer.
    void finish();

private:
    struct Text;
    friend struct COJsonAccess;

    static constexpr std::size_t kMostBytesOfAByte = 6;  // "\u001f"
    // Free space that is always kept after the text, so that writing a separator, quotes, a number or one escape needs
    // no check.
    static constexpr std::size_t kSpareBytes = 64;

    void writeUnsigned(std::uint64_t number);

    // The position of the next character, and the end of the free space. Both point into the target, which is longer
    // than the text until finish().
    std::string& m_target;
    char* m_end;
    char* m_limit;
    bool m_needsComma = false;
};

/// A part of a JSON text. Shares the ownership of the memory that holds it.
struct COJsonPiece {
    std::string_view text;              ///< unchanged as long as `owner` lives
    std::shared_ptr<const void> owner;  ///< keeps `text` valid; null if the text lives as long as the process
};

/// Anything that can be written as one JSON value. A request takes its body through this interface, so a body can be
/// written directly from the caller's data.
class CF_EXPORT ICOJsonValue {
public:
    virtual ~ICOJsonValue();

    /// Writes the whole value. Throws only what memory allocation throws.
    virtual void writeJson(COJsonWriter& writer) const = 0;

    /// The value as compact JSON text.
    [[nodiscard]] std::string obtainJsonString() const;

    /// The same text in pieces, to be joined in order. They stay valid when this value changes or is destroyed, so a
    /// request can send them without copying. The default implementation writes one piece, now.
    [[nodiscard]] virtual std::vector<COJsonPiece> obtainJsonPieces() const;
};

class COJson;
class COJsonItems;
class COJsonMembers;

/// A value in a JSON document: a small handle, cheap to copy, that refers to data of its COJson. It is valid until that
/// document is destroyed, moved or given another text. An undefined handle (of a missing member, for example) returns
/// an empty result or an undefined handle from every read, so reads can be chained without checks.
class CF_EXPORT COJsonValue {
public:
    /// The types of JSON values.
    enum class Type : std::int32_t {
        Undefined,  ///< no value is there
        Null,       ///< null
        Boolean,    ///< true or false
        Number,     ///< a number
        String,     ///< a text
        Array,      ///< items in order
        Object,     ///< members in order
    };

    /// An undefined handle.
    COJsonValue() noexcept = default;

    /// The type of the value.
    [[nodiscard]] Type obtainType() const noexcept;
    /// Whether there is a value here, a null included.
    [[nodiscard]] bool getIsValidJson() const noexcept { return obtainType() != Type::Undefined; }
    /// Whether this is a null; false for an undefined handle.
    [[nodiscard]] bool isNull() const noexcept { return obtainType() == Type::Null; }
    /// Whether this is a number.
    [[nodiscard]] bool isNumber() const noexcept { return obtainType() == Type::Number; }
    /// Whether this is a string.
    [[nodiscard]] bool isString() const noexcept { return obtainType() == Type::String; }
    /// Whether this is an array.
    [[nodiscard]] bool isArray() const noexcept { return obtainType() == Type::Array; }
    /// Whether this is an object.
    [[nodiscard]] bool isObject() const noexcept { return obtainType() == Type::Object; }

    /// The unescaped text of a string, valid as long as the document; empty for another type. Its data() is null only
    /// for another type, so one call reads a string and tells whether there is one.
    [[nodiscard]] std::string_view obtainString() const noexcept;
    /// The number, 0.0 for another type. Integers beyond 2^53 are rounded.
    [[nodiscard]] double obtainDouble() const noexcept;
    /// The number without its fraction; 0 if it does not fit into 64 bits (signed), and for another type.
    [[nodiscard]] std::int64_t obtainInteger() const noexcept;
    /// The truth value; false for another type.
    [[nodiscard]] bool obtainBoolean() const noexcept;

    /// The first member of an object with exactly this key (bytes compared); undefined if there is none.
    [[nodiscard]] COJsonValue obtainMember(std::string_view key) const noexcept;
    /// The members with these keys, each as obtainMember() returns it, found in one pass over the object:
    /// `const auto [name, type] = field.obtainMemberValues({"name", "type"});`. Fastest if the keys are in the order in
    /// which the members usually stand.
    /// @param keys  all different
    template <std::size_t Count>
    [[nodiscard]] std::array<COJsonValue, Count> obtainMemberValues(
        const std::string_view (&keys)[Count]) const noexcept {
        std::array<COJsonValue, Count> values;
        findMembers(keys, values.data(), Count);
        return values;
    }
    /// The number of an array's items or an object's members; 0 for another type. May walk the whole array or object.
    [[nodiscard]] std::size_t obtainSize() const noexcept;
    /// An array's items, in order; empty for another type.
    [[nodiscard]] COJsonItems obtainItems() const noexcept;
    /// An object's members, in the order in which they were read or added; empty for another type.
    [[nodiscard]] COJsonMembers obtainMembers() const noexcept;
    /// The keys of an object, in the order of its members; empty for another type.
    [[nodiscard]] std::vector<std::string> obtainJsonKeys() const;

    /// The value as compact JSON text; empty for an undefined handle.
    [[nodiscard]] std::string obtainJsonString() const;
    /// Writes the value; null for an undefined handle.
    void writeJson(COJsonWriter& writer) const;

    // Building. Only a document made by COJson's default constructor (or by cfCreateCOJsonFromCMVariant) can be
    // changed. On a handle into a parsed document, or an undefined one, these functions do nothing and return undefined
    // handles.

    /// Makes this value a string. Like all these functions, it drops the former content.
    void setString(std::string_view text);
    /// Makes this value a number; null if the number is not finite.
    void setDouble(double number);
    /// Makes this value true or false.
    void setBoolean(bool value);
    /// Makes this value null.
    void setNull();
    /// Makes this value an empty array.
    void setArray();
    /// Makes this value an empty object.
    void setObject();
    /// Appends a member with the value null to this object. Returns the value's handle.
    COJsonValue addKeyValue(std::string_view key);
    /// Appends a null item to this array. Returns its handle.
    COJsonValue addItem();

private:
    friend class COJsonItems;
    friend struct COJsonAccess;

    void findMembers(const std::string_view* keys, COJsonValue* values, std::size_t count) const noexcept;

    // Two words for the implementation: the place of the value in a parsed document, or (if the first word is null) the
    // node of a built one.
    const void* m_document = nullptr;
    std::uintptr_t m_place = 0;
};

/// The items of an array, for a range-based for loop. Valid as long as the document.
class CF_EXPORT COJsonItems {
public:
    /// Goes forward only, and returns its items by value.
    class CF_EXPORT Iterator {
    public:
        /// The current item.
        COJsonValue operator*() const noexcept {
            COJsonValue item;
            item.m_document = m_document;
            item.m_place = m_place;
            return item;
        }
        /// Goes to the next one.
        Iterator& operator++() noexcept;
        /// Whether two iterators of one loop are at different places.
        bool operator!=(const Iterator& other) const noexcept { return m_place != other.m_place; }

    private:
        friend class COJsonItems;
        friend struct COJsonAccess;
        const void* m_document = nullptr;
        std::uintptr_t m_place = 0;
    };

    /// The first one.
    [[nodiscard]] Iterator begin() const noexcept { return m_begin; }
    /// After the last one.
    [[nodiscard]] Iterator end() const noexcept { return m_end; }

private:
    friend class COJsonValue;
    friend struct COJsonAccess;
    Iterator m_begin;
    Iterator m_end;
};

/// One member of an object.
struct COJsonMember {
    std::string_view key;  ///< unescaped; valid as long as the document
    COJsonValue value;     ///< valid as long as the document
};

/// The members of an object, for a range-based for loop. Valid as long as the document.
class CF_EXPORT COJsonMembers {
public:
    /// Goes forward only, and returns its items by value.
    class CF_EXPORT Iterator {
    public:
        /// The current member.
        COJsonMember operator*() const noexcept;
        /// Goes to the next one.
        Iterator& operator++() noexcept;
        /// Whether two iterators of one loop are at different places.
        bool operator!=(const Iterator& other) const noexcept { return m_place != other.m_place; }

    private:
        friend class COJsonMembers;
        friend struct COJsonAccess;
        const void* m_document = nullptr;
        std::uintptr_t m_place = 0;
    };

    /// The first one.
    [[nodiscard]] Iterator begin() const noexcept { return m_begin; }
    /// After the last one.
    [[nodiscard]] Iterator end() const noexcept { return m_end; }

private:
    friend class COJsonValue;
    friend struct COJsonAccess;
    Iterator m_begin;
    Iterator m_end;
};

/// A JSON document that owns its values: parsed from a text, or built member by member.
///
/// Valid JSON here is RFC 8259 JSON in UTF-8, at most 512 levels deep, with an optional byte-order mark before it. A
/// number beyond the range of a double becomes the nearest finite one. In strings each lone surrogate escape and each
/// ill-formed UTF-8 sequence is read as U+FFFD; elsewhere ill-formed bytes make the text invalid.
/// Movable (its handles become invalid), not copyable. Several threads may read it at once; only one may change it, and
/// none may read it meanwhile. Errors: no input makes it throw; allocation failure throws std::bad_alloc.
class CF_EXPORT COJson : public ICOJsonValue {
public:
    /// An empty object, to which members can be added.
    COJson();
    /// Parses a text and keeps no reference to it. getIsValidJson() tells whether it was valid JSON.
    explicit COJson(std::string_view text);
    /// Parses a text without the copy that the constructor makes, if the string's capacity is 64 bytes or more beyond
    /// its size; that spare memory is overwritten. The text itself stays unchanged, and no reference to it is kept.
    [[nodiscard]] static COJson readInPlace(std::string& text);
    /// Parses another text, as readInPlace() does, and reuses the memory of this document: it allocates only if the
    /// text needs more than those before. Useful for many small texts, one after another. Handles into the former
    /// content become invalid. The document need not be valid JSON before.
    /// @return getIsValidJson()
    bool rereadInPlace(std::string& text);
    ~COJson() override;
    /// Moves the values; the other document is then not valid JSON.
    COJson(COJson&& other) noexcept;
    /// Moves the values; the other document is then not valid JSON.
    COJson& operator=(COJson&& other) noexcept;
    COJson(const COJson&) = delete;
    COJson& operator=(const COJson&) = delete;

    /// Whether the document has a value: true for a built one; for a parsed one, whether the text was valid JSON.
    [[nodiscard]] bool getIsValidJson() const noexcept;
    /// The outermost value; undefined if the text was not valid JSON.
    [[nodiscard]] COJsonValue obtainRoot() const noexcept;

    /// The type of the outermost value.
    [[nodiscard]] COJsonValue::Type obtainType() const noexcept { return obtainRoot().obtainType(); }
    /// As COJsonValue::obtainMember on the outermost value.
    [[nodiscard]] COJsonValue obtainMember(std::string_view key) const noexcept {
        return obtainRoot().obtainMember(key);
    }
    /// As COJsonValue::obtainJsonKeys on the outermost value.
    [[nodiscard]] std::vector<std::string> obtainJsonKeys() const { return obtainRoot().obtainJsonKeys(); }
    /// As COJsonValue::addKeyValue on the outermost value.
    COJsonValue addKeyValue(std::string_view key) { return obtainRoot().addKeyValue(key); }

    /// Writes the outermost value; null if the text was not valid JSON.
    void writeJson(COJsonWriter& writer) const override;

private:
    struct Document;

    COJson(std::string_view text, bool isPadded);

    std::unique_ptr<Document> m_document;
};

/// Builds a document from a variant. A number that is not finite becomes null, and so do arrays and objects nested
/// deeper than 512 levels. The members of an object are in ascending order of their names.
[[nodiscard]] CF_EXPORT COJson cfCreateCOJsonFromCMVariant(const CMVariant& value);

#endif
