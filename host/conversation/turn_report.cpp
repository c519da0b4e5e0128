#include "conversation/turn_report.h"

#include <string_view>

#include "cf/json.h"
#include "terminal/secret_text.h"

namespace host {

std::string writeTurnReport(const TurnReport& report) {
    const auto hide = [](std::string_view text) { return replaceSecret(text, obtainHiddenSecret()); };
    std::string before;
    {
        COJsonWriter writer(before);
        writer.beginObject();
        writer.writeMember("question", hide(report.question));
        writer.writeMember("answer", hide(report.answer));
        writer.writeKey("sql");
        writer.beginArray();
        for (const std::string& sql : report.sql) {
            writer.writeString(hide(sql));
        }
        writer.endArray();
        writer.writeMember("model", hide(report.model));
        writer.writeMember("provider", report.provider);
        writer.writeKey("seconds");
        writer.writeDouble(report.seconds);
        writer.endObject();
        writer.finish();
    }
    // The results are JSON already and go in as they are.
    std::string results;
    for (const std::string& result : report.results) {
        results += (results.empty() ? "" : ",") + result;
    }
    before.pop_back();
    return before + ",\"results\":[" + results + "]}\n";
}

}  // namespace host
