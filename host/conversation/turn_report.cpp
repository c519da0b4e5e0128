#include "conversation/turn_report.h"

#include <string_view>
#include <vector>

#include "cf/json.h"
#include "terminal/secret_text.h"

namespace host {
namespace {

std::string hide(std::string_view text) {
    return replaceSecret(text, obtainHiddenSecret());
}

/// A list of values that are already JSON.
std::string join(const std::vector<std::string>& values) {
    std::string list;
    for (const std::string& value : values) {
        list += (list.empty() ? "" : ",") + value;
    }
    return "[" + list + "]";
}

/// A member whose value is already JSON.
std::string writeMember(std::string_view key, const std::string& value) {
    return "\"" + std::string(key) + "\":" + value;
}

std::string writeString(std::string_view text) {
    std::string value;
    COJsonWriter writer(value);
    writer.writeString(hide(text));
    writer.finish();
    return value;
}

std::string writeNumber(double number) {
    std::string value;
    COJsonWriter writer(value);
    writer.writeDouble(number);
    writer.finish();
    return value;
}

}  // namespace

std::string writeTurnReport(const TurnReport& report) {
    std::vector<std::string> sql;
    for (const std::string& text : report.sql) {
        sql.push_back(writeString(text));
    }
    // The results are already JSON, as they were written row by row.
    return "{" + writeMember("question", writeString(report.question)) + "," +
           writeMember("answer", writeString(report.answer)) + "," + writeMember("sql", join(sql)) + "," +
           writeMember("results", join(report.results)) + "," + writeMember("model", writeString(report.model)) + "," +
           writeMember("provider", writeString(report.provider)) + "," +
           writeMember("seconds", writeNumber(report.seconds)) + "}\n";
}

}  // namespace host
