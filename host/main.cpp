#include <signal.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <new>
#include <string_view>

#include "cf/assertion.h"
#include "commands/commands.h"
#include "engine/worker.h"
#include "engine/worker_protocol.h"
#include "host_error.h"
#include "options.h"
#include "terminal/console.h"
#include "terminal/interrupts.h"
#include "terminal/text_safety.h"

namespace {

using namespace host;

/// Guards follow the library's checks, and every temperature makes one check report: users need not see that.
void ignoreAssertion(const char* /*condition*/, const char* /*sourceFile*/, int /*line*/) {}

ExitCode runCommand(const Options& options, Console& console) {
    switch (options.command) {
        case Command::Ask:
            return runAsk(options, console);
        case Command::Chat:
            return runChat(options, console);
        case Command::Models:
            return runModels(options, console);
        case Command::Prompt:
            return runPrompt(options, console);
        case Command::Forget:
            return runForget(options, console);
        case Command::Config:
            return runConfig(options, console);
        case Command::Check:
            return runCheck(options, console);
    }
    return ExitCode::Usage;
}

/// Ends like a program whose reader is gone, after everything is cleaned up.
int endByBrokenPipe() {
    signal(SIGPIPE, SIG_DFL);
    raise(SIGPIPE);
    return static_cast<int>(ExitCode::Usage);
}

int run(Options& options) {
    Console console;
    try {
        Interrupts::install();
        applySettings(options, Settings::read());
        const ExitCode code = runCommand(options, console);
        console.flush();
        return static_cast<int>(code);
    } catch (const HostError& error) {
        console.note(error.what());
        return static_cast<int>(error.obtainCode());
    } catch (const BrokenOutput&) {
        return endByBrokenPipe();
    } catch (const std::bad_alloc&) {
        console.note("out of memory");
    } catch (const std::exception& error) {
        console.note(makeOneLine(error.what()));
    }
    return static_cast<int>(ExitCode::Usage);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount == 2 && std::string_view(arguments[1]) == kWorkerWord) {
        // With _exit(): the parent kills this process when it has what it needs, and nothing needs cleanup.
        _exit(runDatabaseWorker());
    }
    cfSetAssertionHandler(&ignoreAssertion);
    ParsedCommandLine parsed = parseCommandLine(argumentCount, arguments);
    std::cout << parsed.output << std::flush;
    if (!parsed.error.empty()) {
        std::cerr << "kai: " << parsed.error << '\n';
    }
    return parsed.options ? run(*parsed.options) : parsed.exitCode;
}
