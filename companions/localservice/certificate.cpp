#include "localservice/certificate.h"

#include <chrono>

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace localservice {

namespace {

constexpr std::chrono::seconds kValidBefore = std::chrono::hours(24);
constexpr std::chrono::seconds kValidAfter = std::chrono::hours(24 * 365);

struct FreeExtension
{
    void operator()(X509_EXTENSION *extension) const { X509_EXTENSION_free(extension); }
};

bool addExtension(X509 *certificate, int nid, const char *value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, FreeExtension> extension(
        X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    return extension && X509_add_ext(certificate, extension.get(), -1) == 1;
}

// Browsers refuse a second certificate of the same issuer with the same serial number.
bool setSerial(X509 *certificate)
{
    unsigned char bytes[8] = {};
    if (RAND_bytes(bytes, sizeof bytes) != 1)
        return false;
    uint64_t serial = 0;
    for (const unsigned char byte : bytes)
        serial = serial << 8 | byte;
    return ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1) == 1;
}

bool fill(X509 *certificate, EVP_PKEY *key)
{
    constexpr long kVersion3 = 2;
    X509_NAME *name = X509_get_subject_name(certificate);
    return X509_set_version(certificate, kVersion3) == 1 && setSerial(certificate)
        && X509_gmtime_adj(X509_getm_notBefore(certificate), -kValidBefore.count()) != nullptr
        && X509_gmtime_adj(X509_getm_notAfter(certificate), kValidAfter.count()) != nullptr
        && X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char *>("localhost"), -1, -1, 0)
        == 1
        && X509_set_issuer_name(certificate, name) == 1 && X509_set_pubkey(certificate, key) == 1
        && addExtension(certificate, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1")
        && addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE")
        && X509_sign(certificate, key, EVP_sha256()) != 0;
}

} // namespace

void FreeCertificate::operator()(X509 *certificate) const
{
    X509_free(certificate);
}

void FreeKey::operator()(EVP_PKEY *key) const
{
    EVP_PKEY_free(key);
}

Certificate makeCertificate()
{
    Certificate made{std::unique_ptr<X509, FreeCertificate>(X509_new()),
                     std::unique_ptr<EVP_PKEY, FreeKey>(EVP_EC_gen("P-256"))};
    if (!made.x509 || !made.key || !fill(made.x509.get(), made.key.get()))
        return {};
    return made;
}

} // namespace localservice
