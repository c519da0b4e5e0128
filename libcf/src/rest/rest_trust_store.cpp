#include "rest/rest_trust_store.h"

#include <curl/curl.h>
#include <openssl/err.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace cf {

namespace {

/// Identifies a version of a file. It is taken before the file is read: if the file is replaced in between, the next
/// request sees another identity and reads the file again.
struct FileIdentity {
    dev_t device;
    ino_t inode;
    off_t size;
    time_t changedSeconds;
    long changedNanoseconds;

    bool operator==(const FileIdentity&) const = default;
};

std::optional<FileIdentity> obtainIdentity(const std::string& path, mode_t wantedType) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || (status.st_mode & S_IFMT) != wantedType) {
        return std::nullopt;
    }
    return FileIdentity{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

/// On destruction, removes the errors that OpenSSL has reported meanwhile from the thread's error queue, which the host
/// uses too.
class ErrorQueueMark {
public:
    ErrorQueueMark() { ERR_set_mark(); }
    ~ErrorQueueMark() { ERR_pop_to_mark(); }
    ErrorQueueMark(const ErrorQueueMark&) = delete;
    ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
};

using Loader = int (*)(X509_STORE* store, const char* path);

TrustStore loadStore(const std::string& path, Loader load) {
    const ErrorQueueMark mark;
    TrustStore store(X509_STORE_new(), X509_STORE_free);
    if (!store) {
        throw std::bad_alloc();
    }
    // Trust intermediate and server certificates of the bundle as well, not only roots.
    X509_STORE_set_flags(store.get(), X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
    return load(store.get(), path.c_str()) == 1 ? store : nullptr;
}

/// The stores that were read, the most recently used one first.
class TrustStoreCache {
public:
    TrustStore obtain(const std::string& path, mode_t fileType, Loader load) {
        const std::optional<FileIdentity> identity = obtainIdentity(path, fileType);
        if (!identity) {
            return nullptr;
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto known = std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& entry) {
            return entry.path == path && entry.identity == *identity;
        });
        if (known != m_entries.end()) {
            std::rotate(m_entries.begin(), known, known + 1);
            return m_entries.front().store;
        }
        TrustStore store = loadStore(path, load);
        if (store) {
            remember({path, *identity, store});
        }
        return store;
    }

    void forget(const TrustStore& store) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::erase_if(m_entries, [&](const Entry& entry) { return entry.store == store; });
    }

private:
    struct Entry {
        std::string path;
        FileIdentity identity;
        TrustStore store;
    };

    static constexpr std::size_t kMostEntries = 8;

    void remember(Entry entry) {
        std::erase_if(m_entries, [&](const Entry& other) { return other.path == entry.path; });
        m_entries.insert(m_entries.begin(), std::move(entry));
        m_entries.resize(std::min(m_entries.size(), kMostEntries));
    }

    std::mutex m_mutex;
    std::vector<Entry> m_entries;
};

TrustStoreCache& obtainCache() {
    // Never destroyed: OpenSSL may have been cleaned up before static objects are.
    static auto* const cache = new TrustStoreCache;
    return *cache;
}

TrustStore obtainSystemStore() {
    // The places that libcurl was built with: environment variables can change those of OpenSSL.
    const curl_version_info_data* const build = curl_version_info(CURLVERSION_NOW);
    if (build->cainfo != nullptr) {
        if (TrustStore store = obtainCache().obtain(build->cainfo, S_IFREG, X509_STORE_load_file)) {
            return store;
        }
    }
    return build->capath == nullptr ? nullptr : obtainCache().obtain(build->capath, S_IFDIR, X509_STORE_load_path);
}

}  // namespace

TrustStore obtainTrustStore(const std::string& caBundleFile) {
    return caBundleFile.empty() ? obtainSystemStore()
                                : obtainCache().obtain(caBundleFile, S_IFREG, X509_STORE_load_file);
}

void forgetTrustStore(const TrustStore& store) {
    obtainCache().forget(store);
}

}  // namespace cf
