#pragma once

#include <memory>

using X509 = struct x509_st;
using EVP_PKEY = struct evp_pkey_st;

namespace localservice {

struct FreeCertificate
{
    void operator()(X509 *certificate) const;
};

struct FreeKey
{
    void operator()(EVP_PKEY *key) const;
};

// A self-signed certificate for localhost and 127.0.0.1, made in memory.
struct Certificate
{
    std::unique_ptr<X509, FreeCertificate> x509;
    std::unique_ptr<EVP_PKEY, FreeKey> key;
};

// Both members are null when the crypto library fails.
Certificate makeCertificate();

} // namespace localservice
