// kai-emulator: a provider's service on a loopback port, for demonstrations and for trying a host without a key.

#include <pthread.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>

#include "kai_emulator.h"

namespace {

constexpr int kUsageError = 2;

struct Arguments {
    std::string provider = "deepseek";
    std::string scenario{};
    std::uint16_t port = 0;
    bool isTLSWanted = false;
    bool isPlainWanted = false;
    std::string caFile{};
    std::string readyFile{};
    std::string keyVariable{};
    std::string keyFile{};
    std::string pathPrefix{};
    std::size_t pieceCharacters = 0;
    std::size_t pieceInterval = 0;
    std::string recordFile{};
    bool isLogging = false;
};

std::vector<std::string> listServices(const std::function<bool(const KAIEmulatedServiceRow&)>& isWanted) {
    std::vector<std::string> names;
    for (const KAIEmulatedServiceRow& service : listEmulatedServices()) {
        if (isWanted(service)) {
            names.emplace_back(service.name);
        }
    }
    return names;
}

std::string joinServices(bool KAIEmulatedServiceRow::*isWanted) {
    return CLI::detail::join(listServices(std::mem_fn(isWanted)), ", ");
}

void declareOptions(CLI::App& app, Arguments& arguments) {
    app.add_option("--provider", arguments.provider, "Service to emulate")
        ->check(CLI::IsMember(listServices([](const KAIEmulatedServiceRow&) { return true; })))
        ->capture_default_str();
    app.add_option("--scenario", arguments.scenario, "JSON file that says what is answered")->type_name("FILE");
    app.add_option("--port", arguments.port, "Port of 127.0.0.1; 0: a free one")->capture_default_str();
    auto* tls = app.add_flag(
        "--tls", arguments.isTLSWanted,
        "Speak HTTPS (what is done, except for " + joinServices(&KAIEmulatedServiceRow::isPlainByDefault) + ")");
    app.add_flag("--plain", arguments.isPlainWanted, "Speak HTTP")->excludes(tls);
    app.add_option("--ca-file", arguments.caFile, "Write the CA that clients must trust here (PEM)")->type_name("FILE");
    app.add_option("--ready-file", arguments.readyFile, "Write the line that tells the address here as well")
        ->type_name("FILE");
    auto* variable = app.add_option("--key-env", arguments.keyVariable,
                                    "Environment variable with the key to demand; without it any key will do");
    variable->type_name("NAME");
    app.add_option("--key-file", arguments.keyFile, "File with the key to demand")
        ->type_name("FILE")
        ->excludes(variable);
    app.add_option(
           "--path-prefix", arguments.pathPrefix,
           joinServices(&KAIEmulatedServiceRow::isPathPrefixSupported) + ": the path before every route, such as /v1")
        ->type_name("PATH");
    app.add_option("--stream-piece", arguments.pieceCharacters,
                   "Characters of a streamed answer's pieces; 0: a word each")
        ->capture_default_str();
    app.add_option("--stream-every", arguments.pieceInterval, "Milliseconds between a streamed answer's pieces")
        ->capture_default_str();
    app.add_option("--record", arguments.recordFile,
                   "Write method, path and JSON body of each request here, one object a line (no key)")
        ->type_name("FILE");
    app.add_flag("--log", arguments.isLogging, "Write one line a request (no key, no text) on standard error");
}

std::string readKeyFile(const std::string& path) {
    std::ifstream file(path);
    std::string key;
    if (!std::getline(file, key) || key.empty()) {
        throw std::runtime_error(path + ": no key there; its first line must hold it");
    }
    return key;
}

std::string obtainKey(const Arguments& arguments) {
    if (!arguments.keyFile.empty()) {
        return readKeyFile(arguments.keyFile);
    }
    if (arguments.keyVariable.empty()) {
        return {};
    }
    const char* key = std::getenv(arguments.keyVariable.c_str());
    if (key == nullptr || *key == '\0') {
        throw std::runtime_error("the environment variable " + arguments.keyVariable +
                                 " holds no key; set it or leave --key-env out");
    }
    return key;
}

KAIEmulatorOptions makeOptions(const Arguments& arguments) {
    const KAIEmulatedServiceRow& service = *findEmulatedService(arguments.provider);
    const bool isPlain = arguments.isPlainWanted || (service.isPlainByDefault && !arguments.isTLSWanted);
    const std::string& prefix = arguments.pathPrefix;
    if (!prefix.empty() && (!service.isPathPrefixSupported || prefix.front() != '/' || prefix.ends_with('/'))) {
        throw std::runtime_error("--path-prefix goes with " +
                                 joinServices(&KAIEmulatedServiceRow::isPathPrefixSupported) +
                                 " only, begins with \"/\" and does not end with it");
    }
    return {.provider = arguments.provider,
            .tls = isPlain ? LoopbackTLS::Off : LoopbackTLS::Valid,
            .key = obtainKey(arguments),
            .pathPrefix = arguments.pathPrefix,
            .stream = {.pieceCharacters = arguments.pieceCharacters,
                       .interval = std::chrono::milliseconds(arguments.pieceInterval)},
            .isRecording = false,
            .port = arguments.port};
}

KAIScenario loadScenario(const Arguments& arguments) {
    KAIScenario scenario = readScenarioFile(arguments.scenario);
    if (!scenario.provider.empty() && scenario.provider != arguments.provider) {
        throw KAIScenarioError(arguments.scenario + ": written for provider \"" + scenario.provider +
                               "\"; start with --provider " + scenario.provider);
    }
    return scenario;
}

// The file gets its name only when it is complete, so that nobody who waits for it reads a part of it.
void writeFile(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".new";
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    std::error_code error;
    std::filesystem::rename(temporary, path, error);
    if (!file || error) {
        throw std::runtime_error(path + ": cannot be written; check the folder and its permissions");
    }
}

void announce(const Arguments& arguments, KAIEmulator& emulator) {
    const LoopbackServer& server = emulator.obtainServer();
    const std::string ca = arguments.caFile.empty() ? server.obtainCAFile() : arguments.caFile;
    if (!arguments.caFile.empty()) {
        writeFile(arguments.caFile, server.obtainCAText());
    }
    const bool isTLS = !server.obtainCAText().empty();
    const KAIEmulatorJson line{{"provider", arguments.provider},
                               {"scheme", isTLS ? "https" : "http"},
                               {"host", emulator.obtainHost()},
                               {"port", server.obtainPort()},
                               {"ca_file", isTLS ? KAIEmulatorJson(ca) : KAIEmulatorJson(nullptr)}};
    if (!arguments.readyFile.empty()) {
        writeFile(arguments.readyFile, line.dump() + "\n");
    }
    std::cout << line.dump() << std::endl;
}

// Gemini's key is in the query, so only the path is logged.
void log(const LoopbackRequest& request, int status) {
    std::cerr << request.method + " " + request.path + " " + std::to_string(status) + "\n";
}

// Header fields and query parameters, which may contain keys, are left out.
void record(std::ofstream& file, const LoopbackRequest& request) {
    const auto body = KAIEmulatorJson::parse(request.body, nullptr, false);
    const KAIEmulatorJson line{{"method", request.method},
                               {"path", request.path},
                               {"body", body.is_discarded() ? KAIEmulatorJson(nullptr) : body}};
    file << line.dump(-1, ' ', false, KAIEmulatorJson::error_handler_t::replace) << std::endl;
}

void run(const Arguments& arguments, const sigset_t& ending) {
    std::ofstream recorded;  // before the emulator, whose threads write to it
    KAIEmulator emulator(makeOptions(arguments));
    if (!arguments.scenario.empty()) {
        emulator.playScenario(loadScenario(arguments));
    }
    if (!arguments.recordFile.empty()) {
        recorded.open(arguments.recordFile, std::ios::binary | std::ios::trunc);
        if (!recorded) {
            throw std::runtime_error(arguments.recordFile +
                                     ": cannot be written; check the folder and its permissions");
        }
    }
    emulator.observe([&](const LoopbackRequest& request, int status) {
        if (arguments.isLogging) {
            log(request, status);
        }
        if (recorded.is_open()) {
            record(recorded, request);
        }
    });
    announce(arguments, emulator);
    int signal = 0;
    sigwait(&ending, &signal);
}

int start(int argc, char** argv) {
    // Blocked before any thread is started, and received one at a time with sigwait().
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);

    CLI::App app{"Emulates an AI provider's service on a loopback port until it gets SIGTERM or SIGINT.",
                 "kai-emulator"};
    Arguments arguments;
    declareOptions(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        throw std::runtime_error(std::string(error.what()) + "; see --help");
    }
    run(arguments, ending);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return start(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kai-emulator: %s\n", error.what());
        return kUsageError;
    }
}
