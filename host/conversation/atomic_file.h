#ifndef HOST_ATOMIC_FILE_H
#define HOST_ATOMIC_FILE_H

#include <string>
#include <string_view>

namespace host {

/// Replaces a file's content as a whole: a reader, or a machine that stops in between, finds the old content or the new
/// one, never a part. The file is readable and writable by its owner only. A symbolic link is followed.
/// Throws HostError (Usage) with what is wrong and what to do; the old content is untouched then.
void replaceFileContent(const std::string& fileName, std::string_view content);

/// Finds out, before anything is paid for, whether replaceFileContent could write the file.
/// Throws HostError (Usage) where it could not: no such directory, no permission, not a regular file.
void checkFileCanBeReplaced(const std::string& fileName);

}  // namespace host

#endif
