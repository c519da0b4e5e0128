#ifndef CF_SRC_REST_TRUST_STORE_H
#define CF_SRC_REST_TRUST_STORE_H

#include <openssl/x509.h>

#include <memory>
#include <string>

/// A set of trusted certificates, shared by every connection that is checked against it.
using CMTrustStore = std::shared_ptr<X509_STORE>;

/// The trusted certificates of a PEM file, or of the system when `caBundleFile` is empty.
///
/// Reading the system's bundle costs some hundred times what a request costs, so what was read is kept for the process
/// and read again only when the file has changed. As long as a file is the same, the same store is given. Any thread.
/// @return null when the file cannot be read or holds no certificate
[[nodiscard]] CMTrustStore obtainTrustStore(const std::string& caBundleFile);

#endif
