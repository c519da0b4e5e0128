#ifndef HOST_COMMANDS_H
#define HOST_COMMANDS_H

#include "host_error.h"
#include "options.h"
#include "terminal/console.h"

namespace host {

/// The commands. Each returns the exit code, or throws HostError for the failure that ended it.
ExitCode runAsk(const Options& options, Console& console);
ExitCode runChat(const Options& options, Console& console);
ExitCode runModels(const Options& options, Console& console);
ExitCode runPrompt(const Options& options, Console& console);
ExitCode runForget(const Options& options, Console& console);
ExitCode runConfig(const Options& options, Console& console);
ExitCode runCheck(const Options& options, Console& console);

}  // namespace host

#endif
