#pragma once

#include <memory>
#include <string>
#include <vector>

namespace test_support {

/// A certificate with its key, as PEM texts.
struct Certificate {
    std::string certificatePem;
    std::string keyPem;
};

/// A certificate authority that lives as long as the object: EC P-256, nothing on disk. Any failure of the library ends
/// the test process: without certificates no test of this kind means anything.
class CertificateAuthority {
public:
    explicit CertificateAuthority(const std::string& commonName = "Test Authority");
    ~CertificateAuthority();
    CertificateAuthority(const CertificateAuthority&) = delete;
    CertificateAuthority& operator=(const CertificateAuthority&) = delete;

    enum class Validity { Now, Expired };

    /// For a server under the given host names or IPv4 addresses.
    [[nodiscard]] Certificate issueServer(const std::vector<std::string>& names = {"localhost", "posit.localhost",
                                                                                   "127.0.0.1"},
                                          Validity validity = Validity::Now) const;
    [[nodiscard]] Certificate issueClient(const std::string& commonName) const;

    /// What a client must trust.
    [[nodiscard]] const std::string& pem() const { return mPem; }

private:
    struct Issuer;
    std::unique_ptr<Issuer> mIssuer;
    std::string mPem;
};

}  // namespace test_support
