#ifndef CF_SRC_REST_TRUST_STORE_H
#define CF_SRC_REST_TRUST_STORE_H

#include <openssl/x509.h>

#include <memory>
#include <string>

namespace cf {

/// A set of trusted certificates, shared by every connection that is checked against it.
using TrustStore = std::shared_ptr<X509_STORE>;

/// The trusted certificates of a PEM file, or of the system if `caBundleFile` is empty.
///
/// Reading the system's bundle takes hundreds of times as long as a request, so stores are cached for the process. As
/// long as a file does not change, the same store is returned. Any thread.
/// @return null if the file cannot be read or contains no certificate
[[nodiscard]] TrustStore obtainTrustStore(const std::string& caBundleFile);

/// Makes the next obtainTrustStore() read the file of this store again. OpenSSL also marks a certificate in a store as
/// unusable if it merely ran out of memory while examining it.
void forgetTrustStore(const TrustStore& store);

}  // namespace cf

#endif
