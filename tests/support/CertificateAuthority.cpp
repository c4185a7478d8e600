#include "support/CertificateAuthority.h"

#include <arpa/inet.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <cstdlib>

#include "support/files.h"

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
using Bio = std::unique_ptr<BIO, Freer<BIO_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freer<X509_EXTENSION_free>>;

template <typename Write>
std::string toPem(Write write) {
    const Bio bio(BIO_new(BIO_s_mem()));
    require(bio != nullptr && write(bio.get()) == 1, "writing PEM");
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<size_t>(size)};
}

std::string certificatePem(X509* certificate) {
    return toPem([&](BIO* bio) { return PEM_write_bio_X509(bio, certificate); });
}

std::string keyPem(EVP_PKEY* key) {
    return toPem([&](BIO* bio) { return PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr); });
}

Key newKey() {
    Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "making a key");
    return key;
}

void addExtension(X509* certificate, X509* issuer, int id, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str()));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, value.c_str());
}

/// Everything but the extensions and the signature.
X509Ptr newCertificate(EVP_PKEY* key, const std::string& commonName, CertificateAuthority::Validity validity) {
    constexpr long kDay = 24L * 60 * 60;
    long from = -kDay;
    long until = 2 * kDay;
    if (validity == CertificateAuthority::Validity::Expired) {
        from = -3 * kDay;
        until = -kDay;
    } else if (validity == CertificateAuthority::Validity::NotYet) {
        from = kDay;
    }
    X509Ptr certificate(X509_new());
    require(certificate != nullptr, "making a certificate");
    unsigned char serial[8];
    require(RAND_bytes(serial, sizeof(serial)) == 1, "drawing a serial number");
    serial[0] &= 0x7f;  // serial numbers are positive
    const std::unique_ptr<BIGNUM, Freer<BN_free>> number(BN_bin2bn(serial, sizeof(serial), nullptr));
    X509* raw = certificate.get();
    X509_NAME* name = X509_get_subject_name(raw);
    require(X509_set_version(raw, 2) == 1 && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(raw)) != nullptr &&
                X509_gmtime_adj(X509_getm_notBefore(raw), from) != nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(raw), until) != nullptr && X509_set_pubkey(raw, key) == 1 &&
                X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                           reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0) == 1,
            "filling a certificate");
    return certificate;
}

}  // namespace

struct CertificateAuthority::Issuer {
    Key key = newKey();
    X509Ptr certificate;

    [[nodiscard]] Certificate issue(const std::string& commonName, Validity validity, const std::string& usage,
                                    const std::string& names) const {
        const Key subject = newKey();
        const X509Ptr leaf = newCertificate(subject.get(), commonName, validity);
        X509* ca = certificate.get();
        require(X509_set_issuer_name(leaf.get(), X509_get_subject_name(ca)) == 1, "naming the issuer");
        addExtension(leaf.get(), ca, NID_basic_constraints, "critical,CA:FALSE");
        addExtension(leaf.get(), ca, NID_ext_key_usage, usage);
        addExtension(leaf.get(), ca, NID_subject_key_identifier, "hash");
        addExtension(leaf.get(), ca, NID_authority_key_identifier, "keyid");
        if (!names.empty()) {
            addExtension(leaf.get(), ca, NID_subject_alt_name, names);
        }
        require(X509_sign(leaf.get(), key.get(), EVP_sha256()) != 0, "signing a certificate");
        return {certificatePem(leaf.get()), keyPem(subject.get())};
    }
};

CertificateAuthority::CertificateAuthority(const std::string& commonName) : mIssuer(std::make_unique<Issuer>()) {
    mIssuer->certificate = newCertificate(mIssuer->key.get(), commonName, Validity::Now);
    X509* ca = mIssuer->certificate.get();
    require(X509_set_issuer_name(ca, X509_get_subject_name(ca)) == 1, "naming the issuer");
    addExtension(ca, ca, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(ca, ca, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(ca, ca, NID_subject_key_identifier, "hash");
    require(X509_sign(ca, mIssuer->key.get(), EVP_sha256()) != 0, "signing the authority");
    mPem = certificatePem(ca);
}

CertificateAuthority::~CertificateAuthority() = default;

Certificate CertificateAuthority::issueServer(const std::vector<std::string>& names, Validity validity) const {
    require(!names.empty(), "a server certificate without a name");
    std::string list;
    for (const std::string& name : names) {
        in_addr address{};
        const bool is_address = inet_pton(AF_INET, name.c_str(), &address) == 1;
        list += (list.empty() ? "" : ",") + std::string(is_address ? "IP:" : "DNS:") + name;
    }
    return mIssuer->issue(names.front(), validity, "serverAuth", list);
}

Certificate CertificateAuthority::issueClient(const std::string& commonName, Validity validity) const {
    return mIssuer->issue(commonName, validity, "clientAuth", "");
}

void CertificateAuthority::writeTo(const std::string& path) const {
    writeFile(path, mPem);
}

Certificate::Files Certificate::writeTo(const std::string& directory, const std::string& name) const {
    const Files files{directory + "/" + name + ".pem", directory + "/" + name + ".key"};
    writeFile(files.certificate, certificatePem);
    writeFile(files.key, keyPem);
    return files;
}

}  // namespace test_support
