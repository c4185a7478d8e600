#pragma once

#include <string>
#include <vector>

#include "support/files.h"

namespace test_support {

/// A certificate with its key, as PEM texts.
struct Certificate {
    std::string certificatePem;
    std::string keyPem;
};

/// A certificate authority that lives as long as the object, played by the openssl program. Any failure ends the test
/// process: without certificates no test of this kind means anything.
class CertificateAuthority {
public:
    explicit CertificateAuthority(const std::string& commonName = "Test Authority");

    enum class Validity { Now, Expired };

    /// For a server under the given host names or IPv4 addresses.
    [[nodiscard]] Certificate issueServer(const std::vector<std::string>& names = {"localhost", "posit.localhost",
                                                                                   "127.0.0.1"},
                                          Validity validity = Validity::Now) const;
    [[nodiscard]] Certificate issueClient(const std::string& commonName) const;

    /// What a client must trust.
    [[nodiscard]] std::string pem() const { return readFile(mDirectory.file("ca.pem")); }

private:
    [[nodiscard]] Certificate issue(const std::string& commonName, const std::string& extension,
                                    Validity validity) const;
    /// Runs openssl with these arguments; the names of files are those in mDirectory.
    void openssl(const std::string& arguments) const;

    TempDir mDirectory;
};

}  // namespace test_support
