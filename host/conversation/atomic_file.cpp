#include "conversation/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

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

/// The file that a name leads to, so that a link stays a link.
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

/// Anything but a regular file, a device for instance, must not be replaced by one.
void checkIsRegular(const std::string& fileName) {
    struct stat status {};
    if (stat(fileName.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        fail(fileName, "it is not a regular file; name another one");
    }
}

/// A new file beside the one to be replaced; removed again unless it took that one's place.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& fileName)
        : m_fileName(fileName), m_temporaryName(obtainDirectory(fileName) + "/.kai-XXXXXX") {
        m_descriptor = mkostemp(m_temporaryName.data(), O_CLOEXEC);
        if (m_descriptor < 0) {
            failWithErrno(m_fileName);
        }
    }
    ~TemporaryFile() {
        if (m_descriptor >= 0) {
            close(m_descriptor);
            unlink(m_temporaryName.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(std::string_view content) const {
        while (!content.empty()) {
            const ssize_t written = ::write(m_descriptor, content.data(), content.size());
            if (written < 0 && errno != EINTR) {
                failWithErrno(m_fileName);
            }
            content.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
        }
    }

    /// Takes the place of the file, once the content is on the disk.
    void takePlace() {
        if (fsync(m_descriptor) != 0 || rename(m_temporaryName.c_str(), m_fileName.c_str()) != 0) {
            failWithErrno(m_fileName);
        }
        close(std::exchange(m_descriptor, -1));
    }

private:
    std::string m_fileName;
    std::string m_temporaryName;
    int m_descriptor = -1;
};

/// Makes the renaming itself last. A file system that cannot do this has done what it can.
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
    TemporaryFile file(target);
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
    const TemporaryFile probe(target);
}

}  // namespace host
