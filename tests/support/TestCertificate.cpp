#include "support/TestCertificate.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace snipwren {
namespace {
void require(bool fine) {
    if (!fine) std::abort(); // A test cannot go on without its certificate.
}

void addExtension(X509* certificate, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    require(extension && X509_add_ext(certificate, extension, -1));
    X509_EXTENSION_free(extension);
}
} // namespace

TestCertificate::TestCertificate(const std::string& folder, const std::string& host)
    : certificateFile_(folder + "/" + host + ".crt"),
      keyFile_(folder + "/" + host + ".key") {
    EVP_PKEY* const key = EVP_EC_gen("P-256");
    X509* const certificate = X509_new();
    require(key && certificate);
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 24 * 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* const name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(host.c_str()), -1, -1,
                               0);
    X509_set_issuer_name(certificate, name);
    addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, NID_subject_alt_name, "DNS:" + host);
    require(X509_sign(certificate, key, EVP_sha256()) > 0);

    const auto write = [](const std::string& path, auto&& writer) {
        std::FILE* const file = std::fopen(path.c_str(), "w");
        require(file && writer(file) == 1);
        std::fclose(file);
    };
    write(certificateFile_, [&](std::FILE* file) { return PEM_write_X509(file, certificate); });
    write(keyFile_,
          [&](std::FILE* file) { return PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr); });
    X509_free(certificate);
    EVP_PKEY_free(key);
}
} // namespace snipwren
