#ifndef HOST_ENGINE_WIRE_H
#define HOST_ENGINE_WIRE_H

#include <concepts>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "engine/result.h"
#include "engine/structure.h"

namespace host {

/// The format of values between this program and its child process, which are one build on one machine: numbers as in
/// memory, texts and lists with their length first.
///
/// The fields of a type are listed once, in its exchangeFields(), for both writing and reading.
class WireWriter {
public:
    template <typename... Values>
    void operator()(const Values&... values) {
        (put(values), ...);
    }

    [[nodiscard]] std::string& obtainBytes() noexcept { return m_bytes; }

private:
    template <typename Value>
    void put(const Value& value);
    void putLength(std::size_t length) { put(static_cast<std::uint64_t>(length)); }

    std::string m_bytes;
};

class WireReader {
public:
    /// @param bytes  borrowed
    explicit WireReader(std::string_view bytes) : m_rest(bytes) {}

    /// Throws std::runtime_error if the bytes end too early.
    template <typename... Values>
    void operator()(Values&... values) {
        (get(values), ...);
    }

private:
    template <typename Value>
    void get(Value& value);
    [[nodiscard]] std::string_view take(std::uint64_t length) {
        if (length > m_rest.size()) {
            throw std::runtime_error("the database's process sent a message that is cut off");
        }
        const std::string_view taken = m_rest.substr(0, length);
        m_rest.remove_prefix(length);
        return taken;
    }

    std::string_view m_rest;
};

template <typename Value>
struct IsVector : std::false_type {};
template <typename Item>
struct IsVector<std::vector<Item>> : std::true_type {};

template <typename Exchange, typename Column>
requires std::same_as<std::remove_const_t<Column>, ColumnDescription>
void exchangeFields(Exchange& exchange, Column& column) {
    exchange(column.name, column.type, column.isNullable, column.defaultText, column.comment);
}

template <typename Exchange, typename Key>
requires std::same_as<std::remove_const_t<Key>, ForeignKeyDescription>
void exchangeFields(Exchange& exchange, Key& key) {
    exchange(key.columns, key.parentSchema, key.parentTable, key.parentColumns);
}

template <typename Exchange, typename Relation>
requires std::same_as<std::remove_const_t<Relation>, RelationDescription>
void exchangeFields(Exchange& exchange, Relation& relation) {
    exchange(relation.name, relation.columns, relation.primaryKey, relation.foreignKeys, relation.comment,
             relation.indexes, relation.constraints);
}

template <typename Exchange, typename Schema>
requires std::same_as<std::remove_const_t<Schema>, SchemaDescription>
void exchangeFields(Exchange& exchange, Schema& schema) {
    exchange(schema.name, schema.isDefault, schema.tables, schema.views, schema.materializedViews);
}

template <typename Exchange, typename Catalog>
requires std::same_as<std::remove_const_t<Catalog>, CatalogDescription>
void exchangeFields(Exchange& exchange, Catalog& catalog) {
    exchange(catalog.name, catalog.schemas);
}

template <typename Exchange, typename Structure>
requires std::same_as<std::remove_const_t<Structure>, DatabaseStructure>
void exchangeFields(Exchange& exchange, Structure& structure) {
    exchange(structure.catalogs, structure.warnings);
}

template <typename Exchange, typename Value>
requires std::same_as<std::remove_const_t<Value>, Cell>
void exchangeFields(Exchange& exchange, Value& cell) {
    exchange(cell.kind, cell.size, cell.bytes);
}

template <typename Exchange, typename Limits>
requires std::same_as<std::remove_const_t<Limits>, QueryLimits>
void exchangeFields(Exchange& exchange, Limits& limits) {
    exchange(limits.maxRows, limits.maxCellBytes, limits.maxBytes, limits.maxTime);
}

template <typename Value>
constexpr bool kIsPlain =
    std::is_arithmetic_v<Value> || std::is_enum_v<Value> || std::same_as<Value, std::chrono::milliseconds>;

template <typename Value>
void WireWriter::put(const Value& value) {
    if constexpr (kIsPlain<Value>) {
        m_bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    } else if constexpr (std::same_as<Value, std::string>) {
        putLength(value.size());
        m_bytes += value;
    } else if constexpr (IsVector<Value>::value) {
        putLength(value.size());
        for (const auto& item : value) {
            put(item);
        }
    } else {
        exchangeFields(*this, value);
    }
}

template <typename Value>
void WireReader::get(Value& value) {
    if constexpr (kIsPlain<Value>) {
        std::memcpy(&value, take(sizeof value).data(), sizeof value);
    } else if constexpr (std::same_as<Value, std::string>) {
        std::uint64_t length = 0;
        get(length);
        value = take(length);
    } else if constexpr (IsVector<Value>::value) {
        std::uint64_t length = 0;
        get(length);
        value.clear();
        // Not resized to the claimed length, which may be wrong in a damaged message: each item takes at least one
        // byte.
        for (std::uint64_t i = 0; i < length; ++i) {
            get(value.emplace_back());
        }
    } else {
        exchangeFields(*this, value);
    }
}

}  // namespace host

#endif
