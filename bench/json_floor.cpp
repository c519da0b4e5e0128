#include "json_floor.h"

#include <cstring>

using namespace simdjson;

namespace {

/// Appends to a buffer of sufficient size.
class Cursor {
public:
    explicit Cursor(char* place) : m_place(place) {}

    void append(std::string_view text) {
        std::memcpy(m_place, text.data(), text.size());
        m_place += text.size();
    }
    void appendName(std::string_view name) {
        *m_place++ = '`';
        append(name);
        *m_place++ = '`';
    }
    [[nodiscard]] const char* obtainPlace() const { return m_place; }

private:
    char* m_place;
};

void appendNames(Cursor& out, ondemand::array names) {
    for (const std::string_view name : names) {
        out.appendName(name);
    }
}

void appendForeignKey(Cursor& out, ondemand::object key) {
    out.append(", FOREIGN KEY(");
    appendNames(out, key.find_field("fields").get_array());
    out.append(") REFERENCES ");
    out.appendName(key.find_field("ref_schema").get_string());
    out.append(".");
    out.appendName(key.find_field("ref_table").get_string());
    out.append("(");
    appendNames(out, key.find_field("ref_fields").get_array());
    out.append(")");
}

void appendTable(Cursor& out, std::string_view schema, ondemand::object table) {
    out.append("CREATE TABLE ");
    out.appendName(schema);
    out.append(".");
    out.appendName(table.find_field("name").get_string());
    out.append(" (");
    bool isFirst = true;
    for (ondemand::object field : table.find_field("fields").get_array()) {
        if (!isFirst) {
            out.append(", ");
        }
        isFirst = false;
        out.appendName(field.find_field("name").get_string());
        out.append(" ");
        out.append(field.find_field("type").get_string());
    }
    out.append(", PRIMARY KEY(");
    appendNames(out, table.find_field("pkeys").get_array());
    out.append(")");
    for (ondemand::object key : table.find_field("fkeys").get_array()) {
        appendForeignKey(out, key);
    }
    out.append(")\n");
}

}  // namespace

std::size_t writeStatementsOnDemand(ondemand::parser& parser, const padded_string& json, char* statements) {
    Cursor out(statements);
    ondemand::document document = parser.iterate(json);
    for (ondemand::object catalog : document.get_array()) {
        for (ondemand::object schema : catalog.find_field("schemas").get_array()) {
            const std::string_view name = schema.find_field("schema_name").get_string();
            for (ondemand::object table : schema.find_field("tables").get_array()) {
                appendTable(out, name, table);
            }
        }
    }
    return static_cast<std::size_t>(out.obtainPlace() - statements);
}
