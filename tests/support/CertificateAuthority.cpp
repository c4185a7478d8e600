#include "support/CertificateAuthority.h"

#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace test_support {
namespace {

void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "certificate authority of the test: %s failed\n", what);
        ERR_print_errors_fp(stderr);
        std::abort();
    }
}

template <auto Free>
struct Freer {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, Freer<X509_free>>;

template <typename Write>
std::string toPem(Write write) {
    const std::unique_ptr<BIO, Freer<BIO_free>> bio(BIO_new(BIO_s_mem()));
    require(write(bio.get()) == 1, "writing PEM");
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<size_t>(size)};
}

std::string certificatePem(X509* certificate) {
    return toPem([&](BIO* bio) { return PEM_write_bio_X509(bio, certificate); });
}

void addExtension(X509* certificate, X509* issuer, int id, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, Freer<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str()));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, value.c_str());
}

/// Everything but the issuer, the extensions and the signature.
X509Ptr newCertificate(EVP_PKEY* key, const std::string& commonName, CertificateAuthority::Validity validity) {
    constexpr long kDay = 24L * 60 * 60;
    static long serial = 0;
    const long until = validity == CertificateAuthority::Validity::Expired ? -kDay : 2 * kDay;
    X509Ptr certificate(X509_new());
    X509* raw = certificate.get();
    X509_NAME* name = X509_get_subject_name(raw);
    const auto* text = reinterpret_cast<const unsigned char*>(commonName.c_str());
    require(key != nullptr && X509_set_version(raw, 2) == 1 &&
                ASN1_INTEGER_set(X509_get_serialNumber(raw), ++serial) == 1 &&
                X509_gmtime_adj(X509_getm_notBefore(raw), -3 * kDay) != nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(raw), until) != nullptr && X509_set_pubkey(raw, key) == 1 &&
                X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1,
            "making a certificate");
    return certificate;
}

}  // namespace

struct CertificateAuthority::Issuer {
    Key key{EVP_EC_gen("P-256")};
    X509Ptr certificate;

    void sign(X509* subject) const {
        require(X509_set_issuer_name(subject, X509_get_subject_name(certificate.get())) == 1 &&
                    X509_sign(subject, key.get(), EVP_sha256()) != 0,
                "signing a certificate");
    }

    [[nodiscard]] Certificate issue(const std::string& commonName, Validity validity, const std::string& usage,
                                    const std::string& names) const {
        const Key subject(EVP_EC_gen("P-256"));
        const X509Ptr leaf = newCertificate(subject.get(), commonName, validity);
        addExtension(leaf.get(), certificate.get(), NID_basic_constraints, "critical,CA:FALSE");
        addExtension(leaf.get(), certificate.get(), NID_ext_key_usage, usage);
        if (!names.empty()) {
            addExtension(leaf.get(), certificate.get(), NID_subject_alt_name, names);
        }
        sign(leaf.get());
        return {certificatePem(leaf.get()), toPem([&](BIO* bio) {
                    return PEM_write_bio_PrivateKey(bio, subject.get(), nullptr, nullptr, 0, nullptr, nullptr);
                })};
    }
};

CertificateAuthority::CertificateAuthority(const std::string& commonName) : mIssuer(std::make_unique<Issuer>()) {
    mIssuer->certificate = newCertificate(mIssuer->key.get(), commonName, Validity::Now);
    X509* own = mIssuer->certificate.get();
    addExtension(own, own, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(own, own, NID_key_usage, "critical,keyCertSign,cRLSign");
    mIssuer->sign(own);
    mPem = certificatePem(own);
}

CertificateAuthority::~CertificateAuthority() = default;

Certificate CertificateAuthority::issueServer(const std::vector<std::string>& names, Validity validity) const {
    std::string list;
    for (const std::string& name : names) {
        const bool is_address = std::isdigit(static_cast<unsigned char>(name.at(0))) != 0;
        list += (list.empty() ? "" : ",") + std::string(is_address ? "IP:" : "DNS:") + name;
    }
    return mIssuer->issue(names.front(), validity, "serverAuth", list);
}

Certificate CertificateAuthority::issueClient(const std::string& commonName) const {
    return mIssuer->issue(commonName, Validity::Now, "clientAuth", "");
}

}  // namespace test_support
