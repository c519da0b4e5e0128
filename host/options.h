#ifndef HOST_OPTIONS_H
#define HOST_OPTIONS_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "conversation/api_key.h"
#include "conversation/exchange_watch.h"
#include "conversation/structure_choice.h"
#include "engine/result.h"
#include "settings.h"

namespace host {

enum class Command { Ask, Chat, Models, Prompt, Forget, Config, Check };

/// The options from the command line, with the settings file.
struct Options {
    Command command = Command::Ask;
    Settings settings;
    std::string question;  ///< "-": read it from the standard input

    std::string database;
    StructureChoice structure;
    std::size_t sharedRows = 0;  ///< rows of a result that are sent with the next question
    std::string provider;        ///< empty: not given
    std::optional<std::string> apiHost;
    std::string model;
    std::string temperature;
    std::optional<std::string> instructions;
    KeySource key;
    HttpOptions http;

    std::string saveFile;
    std::string continueFile;
    bool isSwitchAllowed = false;
    bool isKept = false;

    bool isRun = false;
    std::string format;      ///< --format; empty: not given
    bool isSqlOnly = false;  ///< --sql
    bool isJson = false;     ///< --json
    std::optional<std::size_t> maxRows;
    QueryLimits limits;
    std::size_t maxCellColumns = 80;
};

/// Takes options that are missing on the command line from the settings file: the format of `ask --run`.
/// Throws HostError (Usage) for an unknown format.
void applySettings(Options& options, Settings settings);

/// The result of parsing the command line.
struct ParsedCommandLine {
    std::optional<Options> options;  ///< nothing: print the texts and end with `exitCode`
    int exitCode = 0;
    std::string output;  ///< for the standard output: help or version
    std::string error;   ///< one line for the standard error
};

/// Parses the command line. Errors repeat only names of options, because a user may have typed a key.
[[nodiscard]] ParsedCommandLine parseCommandLine(int argumentCount, const char* const* arguments);

}  // namespace host

#endif
