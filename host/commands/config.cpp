#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "conversation/conversation.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// A line: the setting, its value, its source.
struct Line {
    std::string name;
    Choice choice;
    std::string usual;  ///< the value if nothing was chosen
};

std::string describeKey(const Options& options, const Provider& provider, std::string& origin) {
    if (provider.keyVariables.empty()) {
        origin = "this provider takes none";
        return "none";
    }
    try {
        std::string warning;
        origin = ApiKey::obtain(provider, chooseKeySource(options, provider), warning).obtainOrigin();
        return "set";
    } catch (const HostError& error) {
        origin = error.what();
        return "not set";
    }
}

}  // namespace

ExitCode runConfig(const Options& options, Console& console) {
    const Provider& provider = obtainChosenProvider(options);
    const HttpOptions http = chooseHttpOptions(options, provider);
    const auto chooseGlobal = [&](const std::string& value, std::string_view name) {
        const std::optional<Setting> setting = options.settings.find(name);
        return Choice{value, setting && setting->value == value ? setting->origin
                             : value.empty()                    ? ""
                                                                : "the command line"};
    };
    const std::optional<Setting> format = options.settings.find("format");
    std::string keyOrigin;
    const std::string key = describeKey(options, provider, keyOrigin);
    const std::vector<Line> lines{
        {"provider", chooseProviderName(options), ""},
        {"model", chooseModel(options, provider), "none; " + tellHowToSetModel(options, provider)},
        {"host", chooseApiHost(options, provider), "the provider's own"},
        {"key", {key, keyOrigin}, ""},
        {"ca-file", chooseGlobal(http.caFile, "ca-file"), "the system's certificates"},
        {"proxy", chooseGlobal(http.proxy, "proxy"), "none"},
        {"format", format ? Choice{format->value, format->origin} : Choice(), "the answer, and tables below it"},
    };
    for (const Line& line : lines) {
        std::string text = line.name + std::string(10 - line.name.size(), ' ');
        text += line.choice.value.empty() ? "(" + line.usual + ")" : makeOneLine(line.choice.value);
        text += line.choice.origin.empty() ? "" : "  (" + makeOneLine(line.choice.origin) + ")";
        console.printPlain(text + "\n");
    }
    if (const std::string& fileName = options.settings.obtainFileName(); !fileName.empty()) {
        console.printPlain("settings  " + makeOneLine(fileName) + "\n");
    }
    return ExitCode::Done;
}

}  // namespace host
