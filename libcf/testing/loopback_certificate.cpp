#include "loopback_certificate.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <stdexcept>

namespace {

struct Deleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter>;
using Certificate = std::unique_ptr<X509, Deleter>;

constexpr long kHour = 3600;
constexpr long kDay = 24 * kHour;

struct Subject {
    const char* commonName;
    const char* alternativeNames;  // null: none
    bool isAuthority;
    long startsInSeconds;
    long endsInSeconds;
};

struct Issuer {
    X509* certificate;
    EVP_PKEY* key;
};

void require(bool isDone, const char* what) {
    if (!isDone) {
        throw std::runtime_error(std::string("loopback server: OpenSSL cannot ") + what);
    }
}

Key makeKey() {
    Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "make a key");
    return key;
}

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, Deleter> extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, "add an extension");
}

// Clients that trust several of these servers must not see two certificates with the same issuer and serial number.
void setSerialNumber(X509* certificate) {
    std::uint64_t serial = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1, "draw a serial number");
    require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1U) == 1, "set a serial number");
}

void setSubjectName(X509* certificate, const char* commonName) {
    const auto* text = reinterpret_cast<const unsigned char*>(commonName);
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1,
            "set a subject");
}

// If the issuer has no certificate, the certificate signs itself.
Certificate makeCertificate(const Subject& subject, EVP_PKEY* key, Issuer issuer) {
    Certificate made(X509_new());
    require(made != nullptr, "make a certificate");
    X509* certificate = made.get();
    X509* signer = issuer.certificate == nullptr ? certificate : issuer.certificate;
    X509_set_version(certificate, X509_VERSION_3);
    setSerialNumber(certificate);
    setSubjectName(certificate, subject.commonName);
    X509_gmtime_adj(X509_getm_notBefore(certificate), subject.startsInSeconds);
    X509_gmtime_adj(X509_getm_notAfter(certificate), subject.endsInSeconds);
    require(X509_set_issuer_name(certificate, X509_get_subject_name(signer)) == 1, "set an issuer");
    require(X509_set_pubkey(certificate, key) == 1, "set a public key");
    addExtension(certificate, signer, NID_basic_constraints, subject.isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
    addExtension(certificate, signer, NID_key_usage,
                 subject.isAuthority ? "critical,keyCertSign,cRLSign" : "critical,digitalSignature");
    addExtension(certificate, signer, NID_subject_key_identifier, "hash");
    if (subject.alternativeNames != nullptr) {
        addExtension(certificate, signer, NID_subject_alt_name, subject.alternativeNames);
    }
    require(X509_sign(certificate, issuer.key, EVP_sha256()) > 0, "sign a certificate");
    return made;
}

std::string writePEM(X509* certificate) {
    const std::unique_ptr<BIO, Deleter> bio(BIO_new(BIO_s_mem()));
    require(bio != nullptr && PEM_write_bio_X509(bio.get(), certificate) == 1, "write a certificate");
    char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(length)};
}

Subject describeServer(LoopbackTLS kind) {
    Subject subject{.commonName = "loopback server",
                    .alternativeNames = "DNS:localhost,IP:127.0.0.1",
                    .isAuthority = false,
                    .startsInSeconds = -kHour,
                    .endsInSeconds = 30 * kDay};
    if (kind == LoopbackTLS::WrongHostName) {
        subject.alternativeNames = "DNS:elsewhere.invalid";
    } else if (kind == LoopbackTLS::Expired) {
        subject.startsInSeconds = -30 * kDay;
        subject.endsInSeconds = -kDay;
    }
    return subject;
}

}  // namespace

LoopbackCredentials makeLoopbackCredentials(LoopbackTLS kind) {
    const Key authorityKey = makeKey();
    const Certificate authority = makeCertificate({.commonName = "loopback test authority",
                                                   .alternativeNames = nullptr,
                                                   .isAuthority = true,
                                                   .startsInSeconds = -60 * kDay,
                                                   .endsInSeconds = 60 * kDay},
                                                  authorityKey.get(), {nullptr, authorityKey.get()});
    const Key key = makeKey();
    const Issuer issuer =
        kind == LoopbackTLS::SelfSigned ? Issuer{nullptr, key.get()} : Issuer{authority.get(), authorityKey.get()};
    const Certificate certificate = makeCertificate(describeServer(kind), key.get(), issuer);

    LoopbackCredentials credentials;
    credentials.context.reset(SSL_CTX_new(TLS_server_method()));
    SSL_CTX* context = credentials.context.get();
    require(context != nullptr && SSL_CTX_use_certificate(context, certificate.get()) == 1 &&
                SSL_CTX_use_PrivateKey(context, key.get()) == 1,
            "set up TLS");
    credentials.caText = writePEM(authority.get());
    return credentials;
}
