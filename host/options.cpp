#include "options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <vector>

#include "conversation/provider_table.h"
#include "engine/engine_table.h"
#include "host_error.h"
#include "terminal/result_writer.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

constexpr const char* kDescription =
    "Ask an AI assistant about a database: a SQLite file, PostgreSQL, MariaDB or MySQL.\n"
    "The model is told the structure of the database, and none of its data unless --share-rows says so.";

constexpr const char* kFooter = R"(
Examples:
  kai models --provider deepseek
  kai prompt --db shop.db
  kai ask --db shop.db --model deepseek-v4-flash --run "Which ten customers spent most?"
  kai chat --db shop.db --provider ollama --model llama3.2 --save shop.kai
  kai chat --db shop.db --continue shop.kai
  kai check --db shop.db

Keys: DEEPSEEK_API_KEY, GEMINI_API_KEY or GOOGLE_API_KEY, OPENAI_API_KEY, or --key-file; ollama needs none.
Exit codes: 0 done, 1 the model's SQL failed or is missing, or a result was cut, 2 usage or configuration, 3 database, 4 provider, 130 cancelled.
"kai COMMAND --help" tells the options of a command.)";

constexpr const char* kChatFooter = R"(
In a chat, a line is a question; one that begins with a backslash or a slash is a command. \help shows them.
Alt-Enter begins another line of a question. Ctrl-C cancels a turn; twice it ends the chat.)";

/// The values that CLI11 fills in, before they become Options.
struct RawOptions {
    Options options;
    std::vector<std::string> questionWords;
    std::int64_t timeoutSeconds = 600;
    std::int64_t sqlTimeoutSeconds = 30;
};

constexpr std::int64_t kMaxSeconds = 7 * 24 * 3600;

bool isFiniteNumber(const std::string& text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(number);
}

void addDatabaseOptions(CLI::App& command, RawOptions& raw) {
    command.add_option("--db", raw.options.database, "The database: a file, or an address such as postgresql://...")
        ->type_name("DATABASE");
    StructureChoice& structure = raw.options.structure;
    command
        .add_option("--tables", structure.tables, "Tell the model of these tables only: patterns with *, and commas")
        ->type_name("LIST");
    command.add_option("--exclude", structure.exclude, "Tell it of no table that fits one of these patterns")
        ->type_name("LIST");
    command.add_option("--schema", structure.schemas, "Tell it of these schemas only")->type_name("LIST");
    command
        .add_option("--budget", structure.budget,
                    "Tokens for the structure; over it whole tables are left out, what the question names last")
        ->type_name("TOKENS")
        ->check(CLI::Range(std::size_t{1}, std::size_t{100000000}));
    command.add_flag("--detail", structure.isDetailed, "Tell it of comments, defaults, indexes and constraints too");
}

void addProviderOptions(CLI::App& command, RawOptions& raw) {
    Options& options = raw.options;
    command.add_option("--provider", options.provider, "One of " + listProviderNames() + "; deepseek unless given")
        ->type_name("NAME");
    command.add_option("--api-host", options.apiHost, "Host and port of the service; the provider's own unless given")
        ->type_name("HOST");
    command.add_option("--key-file", options.key.keyFile, "File whose first line is the key")->type_name("FILE");
    command.add_option("--key-env", options.key.keyVariable, "Environment variable that holds the key")
        ->type_name("NAME");
    command
        .add_option("--ca-file", options.http.caFile, "PEM file of the certificates to trust instead of the system's")
        ->type_name("FILE");
    command
        .add_option("--plain-http", options.http.plainHTTPHosts,
                    "Host of --api-host that is asked by plain HTTP, unencrypted; may be repeated")
        ->type_name("HOST")
        ->allow_extra_args(false);
    command.add_option("--proxy", options.http.proxy, "Proxy for every request")->type_name("URL");
    command.add_option("--timeout", raw.timeoutSeconds, "Seconds for one exchange; 600 unless given")
        ->type_name("SECONDS")
        ->check(CLI::Range(std::int64_t{1}, kMaxSeconds));
    command.add_flag("--trace", options.http.isTraced, "Tell of each exchange in a line on standard error");
}

void addTurnOptions(CLI::App& command, RawOptions& raw) {
    Options& options = raw.options;
    command.add_option("--model", options.model, "The model, as 'kai models' lists it")->type_name("NAME");
    command.add_option("--temperature", options.temperature, "0 (the same each time) to 2 (the most varied)")
        ->type_name("NUMBER");
    command.add_option("--instructions", options.instructions, "What the model is told besides, in your words")
        ->type_name("TEXT");
    command.add_option("--save", options.saveFile, "Save the conversation to this file after each answer")
        ->type_name("FILE");
    command
        .add_option("--continue", options.continueFile,
                    "Continue the conversation in this file, and save it there unless --save names another")
        ->type_name("FILE");
    command.add_flag("--switch-provider", options.isSwitchAllowed,
                     "Continue with another provider than the conversation was held with");
    command.add_flag("--keep", options.isKept, "openai: leave the conversation on the service, to continue it later");
}

void addSqlOptions(CLI::App& command, RawOptions& raw) {
    Options& options = raw.options;
    command.add_flag("--run", options.isRun, "Run the SQL of each answer on the database, for reading only");
    command.add_option("--format", options.format, "With --run: print the results alone, as " + listResultFormats())
        ->type_name("FORMAT");
    command.add_flag("--sql", options.isSqlOnly, "Print the SQL of each answer alone");
    command.add_flag("--json", options.isJson,
                     "Print each turn as one JSON object: question, answer, sql, results, model, provider, seconds");
    command.add_option("--max-rows", options.maxRows, "Rows to show of each result; 100 unless given")
        ->type_name("COUNT")
        ->check(CLI::Range(1, 1000000));
    command
        .add_option("--share-rows", options.sharedRows,
                    "Send the first rows of a result with the next question; never done unless given")
        ->type_name("COUNT")
        ->check(CLI::Range(1, 1000));
    command.add_option("--max-cell", options.maxCellColumns, "Columns to show of each value; 80 unless given, 0: all")
        ->type_name("COUNT")
        ->check(CLI::Range(0, 1000000));
    command.add_option("--sql-timeout", raw.sqlTimeoutSeconds, "Seconds that the SQL may run; 30 unless given")
        ->type_name("SECONDS")
        ->check(CLI::Range(std::int64_t{1}, kMaxSeconds));
}

CLI::App* addCommand(CLI::App& program, RawOptions& raw, Command command, const char* name, const char* description) {
    CLI::App* subcommand = program.add_subcommand(name, description);
    subcommand->callback([&raw, command] { raw.options.command = command; });
    return subcommand;
}

void addCommands(CLI::App& program, RawOptions& raw) {
    CLI::App* ask = addCommand(program, raw, Command::Ask, "ask", "Ask one question and print the answer");
    addDatabaseOptions(*ask, raw);
    addProviderOptions(*ask, raw);
    addTurnOptions(*ask, raw);
    addSqlOptions(*ask, raw);
    ask->add_option("question", raw.questionWords, "The question; '-' reads it from standard input")
        ->type_name("QUESTION");

    CLI::App* chat = addCommand(program, raw, Command::Chat, "chat", "Hold a conversation, one line a question");
    addDatabaseOptions(*chat, raw);
    addProviderOptions(*chat, raw);
    addTurnOptions(*chat, raw);
    addSqlOptions(*chat, raw);
    chat->footer(kChatFooter);

    CLI::App* models = addCommand(program, raw, Command::Models, "models", "List the provider's models, one a line");
    addProviderOptions(*models, raw);

    CLI::App* prompt = addCommand(program, raw, Command::Prompt, "prompt",
                                  "Print what the model is told about the database; needs no key and no network");
    addDatabaseOptions(*prompt, raw);
    prompt->add_option("--question", raw.options.question, "With --budget: the question that is to be asked")
        ->type_name("TEXT");
    prompt->add_option("--provider", raw.options.provider, "Warn of this provider's limits")->type_name("NAME");
    prompt->add_option("--instructions", raw.options.instructions, "What the model is told besides, in your words")
        ->type_name("TEXT");

    CLI::App* config = addCommand(program, raw, Command::Config, "config",
                                  "Show the settings that are in force, and where they are from");
    addProviderOptions(*config, raw);
    config->add_option("--model", raw.options.model, "The model")->type_name("NAME");

    CLI::App* checkUp = addCommand(program, raw, Command::Check, "check",
                                   "Try database, network, key and model step by step, and say what does not work");
    addDatabaseOptions(*checkUp, raw);
    addProviderOptions(*checkUp, raw);
    checkUp->add_option("--model", raw.options.model, "The model, as 'kai models' lists it")->type_name("NAME");

    CLI::App* forget = addCommand(program, raw, Command::Forget, "forget",
                                  "openai: delete a kept conversation on the service, and its file");
    addProviderOptions(*forget, raw);
    forget->add_option("file", raw.options.continueFile, "The conversation's file")->type_name("FILE")->required();
}

void check(bool condition, const std::string& message) {
    if (!condition) {
        throw HostError(ExitCode::Usage, message);
    }
}

std::string joinWords(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

bool hasText(const std::string& text) {
    return text.find_first_not_of(" \t\r\n\v\f") != std::string::npos;
}

void checkOptions(const Options& options) {
    check(options.provider.empty() || findProvider(options.provider) != nullptr,
          "unknown provider '" + makeOneLine(options.provider) + "'; choose one of " + listProviderNames());
    check(!options.apiHost || (options.apiHost->find("://") == std::string::npos && !options.apiHost->starts_with('-')),
          "--api-host takes a host and port without a scheme, such as example.com:8443");
    check(options.temperature.empty() || isFiniteNumber(options.temperature),
          "--temperature takes a number such as 0.2");
    const bool isTurn = options.command == Command::Ask || options.command == Command::Chat;
    const bool needsDatabase = options.command == Command::Prompt || (isTurn && options.continueFile.empty());
    check(!needsDatabase || !options.database.empty(), "no database; name a file or an address with --db");
    check(options.format.empty() || findResultFormat(options.format),
          "unknown format '" + makeOneLine(options.format) + "'; choose one of " + listResultFormats());
    check(options.format.empty() || options.isRun, "--format is for the results of --run");
    check((options.format.empty() ? 0 : 1) + (options.isSqlOnly ? 1 : 0) + (options.isJson ? 1 : 0) < 2,
          "--format, --sql and --json exclude each other");
    check(!options.isSqlOnly || !options.isRun, "--sql prints the SQL and does not run it; leave out --run");
    check(!options.isRun || !options.database.empty(), "--run needs the database to run the SQL on; name it with --db");
    check(options.command != Command::Ask || hasText(options.question),
          "no question; write it behind the options, or '-' to read it from standard input");
}

Options finishOptions(RawOptions& raw) {
    Options& options = raw.options;
    if (options.command == Command::Ask) {
        options.question = joinWords(raw.questionWords);
    }
    options.http.timeout = std::chrono::seconds(raw.timeoutSeconds);
    options.limits.maxTime = std::chrono::seconds(raw.sqlTimeoutSeconds);
    // Enough for the content of a column, including combining marks; no more of a value is kept.
    constexpr std::size_t kMaxBytesPerColumn = 16;
    options.limits.maxCellBytes = options.maxCellColumns * kMaxBytesPerColumn;
    options.limits.maxRows = options.maxRows.value_or(options.limits.maxRows);
    if (options.saveFile.empty() && options.command != Command::Forget) {
        options.saveFile = options.continueFile;
    }
    checkOptions(options);
    return std::move(options);
}

/// The text about an unknown option: its name without a value, which may be a key. Empty if all are known.
std::string describeUnknown(const std::vector<std::string>& remaining) {
    for (const std::string& word : remaining) {
        if (word.size() < 2 || word.front() != '-') {
            continue;
        }
        const std::string name = word.starts_with("--") ? word.substr(0, word.find('=')) : word.substr(0, 2);
        if (name.find("key") != std::string::npos || name.find("token") != std::string::npos) {
            return "a key is never taken from the command line; set the provider's environment variable or use "
                   "--key-file";
        }
        return "unknown option " + makeOneLine(name) + "; see kai --help";
    }
    return {};
}

ParsedCommandLine failUsage(const std::string& message) {
    ParsedCommandLine parsed;
    parsed.exitCode = static_cast<int>(ExitCode::Usage);
    parsed.error = message;
    return parsed;
}

/// CLI11's error in one line.
ParsedCommandLine describeParseError(const CLI::App& program, const CLI::ParseError& error) {
    const std::vector<std::string> remaining = program.remaining(true);
    if (const std::string unknown = describeUnknown(remaining); !unknown.empty()) {
        return failUsage(unknown);
    }
    if (program.get_subcommands().empty()) {
        return failUsage(std::string(remaining.empty() ? "no command" : "unknown command") +
                         "; choose ask, chat, models, prompt, check, config or forget, and see kai --help");
    }
    if (!remaining.empty()) {
        return failUsage("the command line has a word too many; see kai --help");
    }
    return failUsage(makeOneLine(error.what()) + "; see kai --help");
}

ParsedCommandLine showText(std::string text) {
    ParsedCommandLine parsed;
    parsed.output = std::move(text);
    return parsed;
}

}  // namespace

void applySettings(Options& options, Settings settings) {
    options.settings = std::move(settings);
    const std::optional<Setting> format = options.settings.find("format");
    if (format && !findResultFormat(format->value)) {
        throw HostError(ExitCode::Usage,
                        makeOneLine(format->origin) + ": unknown format; choose one of " + listResultFormats());
    }
    if (format && options.command == Command::Ask && options.isRun && options.format.empty() && !options.isJson) {
        options.format = format->value;
    }
}

ParsedCommandLine parseCommandLine(int argumentCount, const char* const* arguments) {
    RawOptions raw;
    CLI::App program(kDescription, "kai");
    program.footer(kFooter);
    program.set_version_flag("--version", "kai " KAI_HOST_VERSION " (" + describeLibraries() + ")");
    program.require_subcommand(1);
    addCommands(program, raw);
    try {
        program.parse(argumentCount, arguments);
        ParsedCommandLine parsed;
        parsed.options = finishOptions(raw);
        return parsed;
    } catch (const CLI::CallForHelp&) {
        return showText(program.help() + "\n");
    } catch (const CLI::CallForVersion& version) {
        return showText(std::string(version.what()) + "\n");
    } catch (const CLI::ParseError& error) {
        return describeParseError(program, error);
    } catch (const HostError& error) {
        return failUsage(error.what());
    }
}

}  // namespace host
