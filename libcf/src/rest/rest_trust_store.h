#ifndef CF_SRC_REST_TRUST_STORE_H
#define CF_SRC_REST_TRUST_STORE_H

#include <openssl/x509.h>

#include <memory>
#include <string>

namespace cf {

/// A set of trusted certificates, shared by every connection that is checked against it.
using TrustStore = std::shared_ptr<X509_STORE>;

/// The trusted certificates of a PEM file, or of the system when `caBundleFile` is empty.
///
/// Reading the system's bundle costs hundreds of times as much as a request, so stores are kept for the process. As
/// long as a file does not change, the same store is returned. Any thread.
/// @return null when the file cannot be read or holds no certificate
[[nodiscard]] TrustStore obtainTrustStore(const std::string& caBundleFile);

/// Makes the next obtainTrustStore() read the file of this store again. OpenSSL marks a certificate in a store as
/// unusable also when it only ran out of memory while it looked at it.
void forgetTrustStore(const TrustStore& store);

}  // namespace cf

#endif
