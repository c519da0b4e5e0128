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

/// Writes one JSON value as compact text, straight into a string: no tree is built and no text is copied twice.
///
/// The caller says the structure in order (a key before each member's value); separators are the writer's work. Texts
/// are escaped as JSON asks for; each ill-formed UTF-8 sequence becomes U+FFFD, so the result is always valid JSON.
/// The text stands in the target string when finish() has returned or the writer was destroyed, not before.
/// The target must outlive the writer and must not be touched meanwhile. One thread at a time.
/// Errors: allocation failure throws std::bad_alloc or std::length_error; the target is then still a valid string.
class CF_EXPORT COJsonWriter {
public:
    /// @param target  receives the text behind what it already holds; borrowed
    explicit COJsonWriter(std::string& target);
    ~COJsonWriter();
    COJsonWriter(const COJsonWriter&) = delete;
    COJsonWriter& operator=(const COJsonWriter&) = delete;

    /// Makes room for `size` more bytes at once. A hint: the writer grows by itself where it is too small.
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
    /// Writes the shortest decimal form that reads back as the same double; a number that is not finite as null.
    void writeDouble(double number);
    /// Writes a whole number.
    void writeInteger(std::int64_t number);
    /// Writes true or false.
    void writeBoolean(bool value);
    /// Writes null.
    void writeNull();

    /// A member whose value is a string.
    void writeMember(std::string_view key, std::string_view text);

    /// A value of which everything but one string is fixed, written at once: `before` and `after` are JSON text and
    /// go out as they are, around the string. `writeFramed(R"({"role":"user","content":)", text, "}")` writes an object
    /// of two members.
    void writeFramed(std::string_view before, std::string_view text, std::string_view after);

    /// Ends the text: the target string now holds all of it. Writing more needs a new writer.
    void finish();

private:
    struct Text;
    friend struct COJsonAccess;

    void writeUnsigned(std::uint64_t number);

    // Where the next character goes, and the end of the room for it; both in the target, which is kept longer than
    // the text while it is written.
    std::string& m_target;
    char* m_end;
    char* m_limit;
    bool m_needsComma = false;
};

/// A part of a JSON text. Shares the ownership of the memory that holds it.
struct COJsonPiece {
    std::string_view text;              ///< unchanged as long as `owner` lives
    std::shared_ptr<const void> owner;  ///< keeps `text` valid; null where the text lives as long as the process
};

/// Anything that can be written as one JSON value. A request takes its body through this interface, so a body can be
/// written straight from the data that it is about.
class CF_EXPORT ICOJsonValue {
public:
    virtual ~ICOJsonValue();

    /// Writes the whole value. Throws nothing but what allocation throws.
    virtual void writeJson(COJsonWriter& writer) const = 0;

    /// The value as compact JSON text.
    [[nodiscard]] std::string obtainJsonString() const;

    /// The same text in pieces, to be joined in their order. They stay valid whatever becomes of this value, so a
    /// request sends them from where they lie. Unless overridden: one piece, written now.
    [[nodiscard]] virtual std::vector<COJsonPiece> obtainJsonPieces() const;
};

class COJson;
class COJsonItems;
class COJsonMembers;

/// A place in a JSON document: a light handle, copied freely, that refers into its COJson and is valid while that
/// document lives at its address and is not moved from. An undefined handle (a missing member, an index past the end)
/// answers every read as empty and gives undefined handles again, so reads can be chained without tests.
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

    /// The text of a string, unescaped, valid as long as the document; empty for another type. Only for another type
    /// is its data() null, so that one call reads a text and tells whether there is one.
    [[nodiscard]] std::string_view obtainString() const noexcept;
    /// The number, 0.0 for another type. Integers beyond 2^53 are rounded.
    [[nodiscard]] double obtainDouble() const noexcept;
    /// The number with its fraction cut off; 0 where it lies outside 64 bits (signed) and for another type.
    [[nodiscard]] std::int64_t obtainInteger() const noexcept;
    /// The truth value; false for another type.
    [[nodiscard]] bool obtainBoolean() const noexcept;

    /// The first member of an object with exactly this key (bytes compared); undefined if there is none.
    [[nodiscard]] COJsonValue obtainMember(std::string_view key) const noexcept;
    /// The members with these keys, each as obtainMember() gives it, found in one pass over the object:
    /// `const auto [name, type] = field.obtainMemberValues({"name", "type"});`. Fastest where the keys are given in the
    /// order in which the members usually stand.
    /// @param keys  different from each other
    template <std::size_t Count>
    [[nodiscard]] std::array<COJsonValue, Count> obtainMemberValues(
        const std::string_view (&keys)[Count]) const noexcept {
        std::array<COJsonValue, Count> values;
        findMembers(keys, values.data(), Count);
        return values;
    }
    /// The number of an array's items or an object's members; 0 for another type. May walk the whole array or object.
    [[nodiscard]] std::size_t obtainSize() const noexcept;
    /// An array's items, in order; none for another type.
    [[nodiscard]] COJsonItems obtainItems() const noexcept;
    /// An object's members, in the order in which they were read or added; none for another type.
    [[nodiscard]] COJsonMembers obtainMembers() const noexcept;
    /// The keys of an object, in the order of its members; none for another type.
    [[nodiscard]] std::vector<std::string> obtainJsonKeys() const;

    /// The value as compact JSON text; empty for an undefined handle.
    [[nodiscard]] std::string obtainJsonString() const;
    /// Writes the value; null for an undefined handle.
    void writeJson(COJsonWriter& writer) const;

    // Building. Only a document made by COJson's default constructor (or by cfCreateCOJsonFromCMVariant) can be
    // changed; on a handle into a parsed document, or an undefined one, these do nothing and give undefined handles.

    /// Makes this value a string. Like every change of the type, it drops what the value held.
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
    /// Appends a member, null at first, to this object and gives its value's handle.
    COJsonValue addKeyValue(std::string_view key);
    /// Appends an item, null at first, to this array and gives its handle.
    COJsonValue addItem();

private:
    friend class COJsonItems;
    friend struct COJsonAccess;

    void findMembers(const std::string_view* keys, COJsonValue* values, std::size_t count) const noexcept;

    // Two words whose meaning belongs to the implementation: where a parsed document keeps the value, or (with a null
    // first word) the node of a built one.
    const void* m_document = nullptr;
    std::uintptr_t m_place = 0;
};

/// The items of an array, for a range-based for loop. Valid as long as the document.
class CF_EXPORT COJsonItems {
public:
    /// Walks forward once; what it gives is made anew at each read.
    class CF_EXPORT Iterator {
    public:
        /// The item that the iterator has reached.
        COJsonValue operator*() const noexcept {
            COJsonValue item;
            item.m_document = m_document;
            item.m_place = m_place;
            return item;
        }
        /// Goes on to the next one.
        Iterator& operator++() noexcept;
        /// Whether two iterators of one loop stand at different places.
        bool operator!=(const Iterator& other) const noexcept { return m_place != other.m_place; }

    private:
        friend class COJsonItems;
        friend struct COJsonAccess;
        const void* m_document = nullptr;
        std::uintptr_t m_place = 0;
    };

    /// The first one.
    [[nodiscard]] Iterator begin() const noexcept { return m_begin; }
    /// Behind the last one.
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
    /// Walks forward once; what it gives is made anew at each read.
    class CF_EXPORT Iterator {
    public:
        /// The member that the iterator has reached.
        COJsonMember operator*() const noexcept;
        /// Goes on to the next one.
        Iterator& operator++() noexcept;
        /// Whether two iterators of one loop stand at different places.
        bool operator!=(const Iterator& other) const noexcept { return m_place != other.m_place; }

    private:
        friend class COJsonMembers;
        friend struct COJsonAccess;
        const void* m_document = nullptr;
        std::uintptr_t m_place = 0;
    };

    /// The first one.
    [[nodiscard]] Iterator begin() const noexcept { return m_begin; }
    /// Behind the last one.
    [[nodiscard]] Iterator end() const noexcept { return m_end; }

private:
    friend class COJsonValue;
    friend struct COJsonAccess;
    Iterator m_begin;
    Iterator m_end;
};

/// A JSON document that owns its values: read from a text, or built member by member.
///
/// Valid JSON here is RFC 8259 JSON in UTF-8, at most 512 levels deep, with an optional byte-order mark before it. A
/// number beyond the range of a double becomes the nearest finite one. In strings each lone surrogate escape and each
/// ill-formed UTF-8 sequence is read as U+FFFD; elsewhere ill-formed bytes make the text invalid.
/// Movable (handles into it become invalid), not copyable. Reads may run on several threads at once, changes on one.
/// Errors: no input throws; allocation failure does (std::bad_alloc).
class CF_EXPORT COJson : public ICOJsonValue {
public:
    /// An empty object, to be built.
    COJson();
    /// Reads a text, and keeps nothing of it. getIsValidJson() tells whether it was JSON.
    explicit COJson(std::string_view text);
    /// Reads a text without copying it first, which the constructor has to do, where the string's capacity is 64 bytes
    /// or more beyond its size; the memory there is overwritten. The text is left as it is, and not kept.
    [[nodiscard]] static COJson readInPlace(std::string& text);
    /// Reads another text, as readInPlace() does, into the memory that this document holds. For many small texts, one
    /// after another: it allocates only where a text needs more than those before. Handles into the former content
    /// become invalid. Also for a document that is not valid JSON.
    /// @return getIsValidJson()
    bool rereadInPlace(std::string& text);
    ~COJson() override;
    /// Takes the values over; the other document is then not valid JSON.
    COJson(COJson&& other) noexcept;
    /// Takes the values over; the other document is then not valid JSON.
    COJson& operator=(COJson&& other) noexcept;
    COJson(const COJson&) = delete;
    COJson& operator=(const COJson&) = delete;

    /// Whether the document holds a value: always for a built one, for a read one if the text was valid JSON.
    [[nodiscard]] bool getIsValidJson() const noexcept;
    /// The outermost value; undefined when the text was not valid JSON.
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

    /// Writes the outermost value; null when the text was not valid JSON.
    void writeJson(COJsonWriter& writer) const override;

private:
    struct Document;

    COJson(std::string_view text, bool isPadded);

    std::unique_ptr<Document> m_document;
};

/// A document built from a variant: null, string, number (null where it is not finite), array, object with its members
/// in ascending order of the names. Values nested deeper than 512 levels are written as null.
[[nodiscard]] CF_EXPORT COJson cfCreateCOJsonFromCMVariant(const CMVariant& value);

#endif
