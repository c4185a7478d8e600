#include "support/CertificateAuthority.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace test_support {
namespace {

constexpr char kNewKey[] = " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes";

}  // namespace

void CertificateAuthority::openssl(const std::string& arguments) const {
    const std::string command = "cd " + mDirectory.path() + " && openssl " + arguments + " 2>log";
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "%s: %s\n", command.c_str(), readFile(mDirectory.file("log")).c_str());
        std::abort();
    }
}

CertificateAuthority::CertificateAuthority(const std::string& commonName) {
    openssl("req -x509 -days 2 -keyout ca.key -out ca.pem -subj '/CN=" + commonName + "'" + kNewKey);
}

Certificate CertificateAuthority::issue(const std::string& commonName, const std::string& extension,
                                        Validity validity) const {
    const std::string days = validity == Validity::Expired ? "-1" : "2";
    openssl("req -new -keyout leaf.key -out leaf.csr -subj '/CN=" + commonName + "' -addext " + extension + kNewKey);
    openssl("x509 -req -in leaf.csr -copy_extensions copy -CA ca.pem -CAkey ca.key -out leaf.pem -days " + days);
    return {readFile(mDirectory.file("leaf.pem")), readFile(mDirectory.file("leaf.key"))};
}

Certificate CertificateAuthority::issueServer(const std::vector<std::string>& names, Validity validity) const {
    std::string list;
    for (const std::string& name : names) {
        const bool is_address = std::isdigit(static_cast<unsigned char>(name.at(0))) != 0;
        list += (list.empty() ? "subjectAltName=" : ",") + std::string(is_address ? "IP:" : "DNS:") + name;
    }
    return issue(names.front(), list, validity);
}

Certificate CertificateAuthority::issueClient(const std::string& commonName) const {
    return issue(commonName, "extendedKeyUsage=clientAuth", Validity::Now);
}

}  // namespace test_support
