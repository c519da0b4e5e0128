#include "database_texts.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::size_t kTablesASchema = 500;

struct Column {
    std::string_view name;
    std::string_view type;
};

constexpr std::array<std::string_view, 8> kTableNames{
    "customers", "orders", "order_items", "products", "product_categories", "shipments", "invoices", "employees",
};

constexpr std::array<Column, 18> kColumns{{
    {"id", "bigint"},
    {"line_number", "integer"},
    {"customer_id", "bigint"},
    {"product_id", "bigint"},
    {"display_name", "varchar(255)"},
    {"description", "text"},
    {"status", "varchar(32)"},
    {"unit_price", "decimal(12,2)"},
    {"quantity", "integer"},
    {"discount_percent", "decimal(5,2)"},
    {"currency_code", "char(3)"},
    {"street_address", "varchar(255)"},
    {"postal_code", "varchar(16)"},
    {"country_code", "char(2)"},
    {"created_at", "timestamp with time zone"},
    {"updated_at", "timestamp with time zone"},
    {"is_archived", "boolean"},
    {"comment", "text"},
}};

std::string buildTableName(std::size_t number) {
    std::string name(kTableNames[number % kTableNames.size()]);
    return name.append("_").append(std::to_string(10'000'000 + number), 1);
}

void appendMember(std::string& text, std::string_view key, std::string_view value) {
    text.append("\"").append(key).append("\":\"").append(value).append("\"");
}

void appendFields(std::string& text, std::size_t count) {
    text += "\"fields\":[";
    for (std::size_t i = 0; i < count; ++i) {
        text += i == 0 ? "{" : ",{";
        appendMember(text, "name", kColumns[i].name);
        text += ',';
        appendMember(text, "type", kColumns[i].type);
        text += '}';
    }
    text += ']';
}

void appendForeignKey(std::string& text, std::string_view field, std::size_t target) {
    text.append("{\"fields\":[\"").append(field).append("\"],");
    appendMember(text, "ref_schema", "schema_0");
    text += ',';
    appendMember(text, "ref_table", buildTableName(target % kTablesASchema));
    text += ",\"ref_fields\":[\"id\"]}";
}

void appendTable(std::string& text, std::size_t number) {
    text += '{';
    appendMember(text, "name", buildTableName(number));
    text += ',';
    appendFields(text, kColumns.size() - number % 5);
    text += number % 4 == 0 ? ",\"pkeys\":[\"id\",\"line_number\"]" : ",\"pkeys\":[\"id\"]";
    text += ",\"fkeys\":[";
    if (number % 3 != 0) {
        appendForeignKey(text, "customer_id", number * 7);
    }
    if (number % 3 == 2) {
        text += ',';
        appendForeignKey(text, "product_id", number * 11);
    }
    text += "]}";
}

}  // namespace

std::string buildDatabaseStructure(std::size_t tables) {
    std::string text = "[{\"schemas\":[";
    for (std::size_t start = 0; start < tables; start += kTablesASchema) {
        text += start == 0 ? "{" : ",{";
        appendMember(text, "schema_name", "schema_" + std::to_string(start / kTablesASchema));
        text += ",\"tables\":[";
        for (std::size_t number = start; number < std::min(tables, start + kTablesASchema); ++number) {
            text += number == start ? "" : ",";
            appendTable(text, number);
        }
        text += "]}";
    }
    return text + "]}]";
}
