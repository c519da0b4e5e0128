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

/// What the command line asks for, and the settings file beside it.
struct Options {
    Command command = Command::Ask;
    Settings settings;
    std::string question;  ///< "-": to be read from the standard input

    std::string database;
    StructureChoice structure;
    std::size_t sharedRows = 0;  ///< rows of a result that go with the next question
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

/// Takes from the settings file what the command line leaves open: the format of `ask --run`.
/// Throws HostError (Usage) for an unknown format.
void applySettings(Options& options, Settings settings);

/// What reading the command line led to.
struct ParsedCommandLine {
    std::optional<Options> options;  ///< nothing: the program ends with `exitCode` after printing the texts
    int exitCode = 0;
    std::string output;  ///< for the standard output: help or version
    std::string error;   ///< one line for the standard error
};

/// Reads the command line. Nothing that stands there is repeated in an error but the names of options: somebody may
/// have tried to give a key.
[[nodiscard]] ParsedCommandLine parseCommandLine(int argumentCount, const char* const* arguments);

}  // namespace host

#endif
