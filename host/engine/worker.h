#ifndef HOST_ENGINE_WORKER_H
#define HOST_ENGINE_WORKER_H

namespace host {

/// The child process of a Database: serves the one request on its standard input, a socket, and ends.
///
/// It limits its own memory, processor time and files, and ends with its parent.
/// @return the exit code of the process
int runDatabaseWorker();

}  // namespace host

#endif
