#include "conversation/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

[[noreturn]] void fail(const std::string& fileName, const std::string& reason) {
    throw HostError(ExitCode::Usage, "cannot write '" + makeOneLine(fileName) + "': " + reason);
}

[[noreturn]] void failWithErrno(const std::string& fileName) {
    fail(fileName, std::string(std::strerror(errno)) + "; check the directory and its permissions");
}

/// The file that a name refers to, so that a link stays a link.
std::string resolveLinks(const std::string& fileName) {
    char* resolved = realpath(fileName.c_str(), nullptr);
    if (resolved == nullptr) {
        return fileName;
    }
    std::string target(resolved);
    std::free(resolved);
    return target;
}

std::string obtainDirectory(const std::string& fileName) {
    const std::size_t slash = fileName.rfind('/');
    return slash == std::string::npos ? "." : fileName.substr(0, slash + 1);
}

/// Anything but a regular file, for example a device, must not be replaced by one.
void checkIsRegular(const std::string& fileName) {
    struct stat status {};
    if (stat(fileName.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        fail(fileName, "it is not a regular file; name another one");
    }
}

/// The name of the new content until it replaces the old one. It is the same for each save of a file, so the next save
/// replaces what a killed process may have left.
std::string makeTemporaryName(const std::string& fileName) {
    return obtainDirectory(fileName) + "/.kai-" + fileName.substr(fileName.rfind('/') + 1) + ".new";
}

/// A new file next to the one to be replaced. It has no name until it is complete, if the file system supports that:
/// then a process that is killed while it writes leaves nothing.
class NewFile {
public:
    explicit NewFile(const std::string& fileName) : m_fileName(fileName), m_temporaryName(makeTemporaryName(fileName)) {
        m_descriptor = open(obtainDirectory(fileName).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
        if (m_descriptor < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
            openWithName();
        }
        if (m_descriptor < 0) {
            failWithErrno(m_fileName);
        }
    }
    ~NewFile() {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
        if (m_hasName) {
            unlink(m_temporaryName.c_str());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(std::string_view content) const {
        while (!content.empty()) {
            const ssize_t written = ::write(m_descriptor, content.data(), content.size());
            if (written < 0 && errno != EINTR) {
                failWithErrno(m_fileName);
            }
            content.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
        }
    }

    /// Replaces the file, after the content is on the disk.
    void takePlace() {
        if (fsync(m_descriptor) != 0 || !giveName() || rename(m_temporaryName.c_str(), m_fileName.c_str()) != 0) {
            failWithErrno(m_fileName);
        }
        m_hasName = false;
    }

private:
    void openWithName() {
        unlink(m_temporaryName.c_str());
        m_descriptor = open(m_temporaryName.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
        m_hasName = m_descriptor >= 0;
    }

    [[nodiscard]] bool giveName() {
        if (m_hasName) {
            return true;
        }
        unlink(m_temporaryName.c_str());
        const std::string ownName = "/proc/self/fd/" + std::to_string(m_descriptor);
        m_hasName = linkat(AT_FDCWD, ownName.c_str(), AT_FDCWD, m_temporaryName.c_str(), AT_SYMLINK_FOLLOW) == 0;
        return m_hasName;
    }

    std::string m_fileName;
    std::string m_temporaryName;
    int m_descriptor = -1;
    bool m_hasName = false;
};

/// Makes the renaming durable. Errors of file systems that cannot do this are ignored.
void syncDirectory(const std::string& directory) {
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        static_cast<void>(fsync(descriptor));
        close(descriptor);
    }
}

}  // namespace

void replaceFileContent(const std::string& fileName, std::string_view content) {
    const std::string target = resolveLinks(fileName);
    checkIsRegular(target);
    NewFile file(target);
    file.write(content);
    file.takePlace();
    syncDirectory(obtainDirectory(target));
}

void checkFileCanBeReplaced(const std::string& fileName) {
    const std::string target = resolveLinks(fileName);
    if (target.empty() || target.ends_with('/')) {
        fail(fileName, "it is not the name of a file");
    }
    checkIsRegular(target);
    const NewFile probe(target);
}

}  // namespace host
