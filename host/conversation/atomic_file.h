#ifndef HOST_ATOMIC_FILE_H
#define HOST_ATOMIC_FILE_H

#include <string>
#include <string_view>

namespace host {

/// Replaces a file's content atomically: a reader, or a system that crashes in between, finds the old content or the
/// new one, never a part. Only its owner can read and write the file. A symbolic link is followed.
/// Throws HostError (Usage) with what is wrong and what to do; the old content is then unchanged.
void replaceFileContent(const std::string& fileName, std::string_view content);

/// Checks, before any request costs money, whether replaceFileContent could write the file.
/// Throws HostError (Usage) if it could not: no such directory, no permission, not a regular file.
void checkFileCanBeReplaced(const std::string& fileName);

}  // namespace host

#endif
