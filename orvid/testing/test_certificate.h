#pragma once

#include <string>
#include <vector>

namespace orvid::testing {

// A self-signed certificate and its private key, both PEM.
struct TestCertificate {
  std::string certificatePEM;
  std::string privateKeyPEM;
};

// Makes a fresh P-256 key and a certificate valid from an hour ago for a day, for
// `names`: each "DNS:host" or "IP:address", as subjectAltName entries.
TestCertificate makeSelfSignedCertificate(const std::vector<std::string>& names);

}  // namespace orvid::testing
