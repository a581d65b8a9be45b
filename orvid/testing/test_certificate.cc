#include "orvid/testing/test_certificate.h"

#include <memory>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace orvid::testing {
namespace {

void check(bool holds, const char* step) {
  if (!holds) throw std::runtime_error(std::string("cannot make a test certificate: ") + step);
}

template <typename Write>
std::string pem(Write write) {
  std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), &BIO_free);
  check(bio && write(bio.get()), "PEM");
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  return std::string(data, static_cast<std::size_t>(size));
}

}  // namespace

TestCertificate makeSelfSignedCertificate(const std::vector<std::string>& names) {
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  check(key != nullptr, "key");
  std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), &X509_free);
  check(certificate != nullptr, "certificate");
  X509* x509 = certificate.get();
  check(X509_set_version(x509, 2) == 1, "version");
  check(ASN1_INTEGER_set(X509_get_serialNumber(x509), 1) == 1, "serial");
  check(X509_gmtime_adj(X509_getm_notBefore(x509), -3600) != nullptr, "validity");
  check(X509_gmtime_adj(X509_getm_notAfter(x509), 86400) != nullptr, "validity");
  X509_NAME* subject = X509_get_subject_name(x509);
  check(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>("Orvid test"), -1, -1, 0) == 1,
        "subject");
  check(X509_set_issuer_name(x509, subject) == 1, "issuer");
  check(X509_set_pubkey(x509, key.get()) == 1, "public key");

  std::string alternativeNames;
  for (const auto& name : names) alternativeNames += (alternativeNames.empty() ? "" : ",") + name;
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, x509, x509, nullptr, nullptr, 0);
  for (const auto& [nid, value] : {std::pair{NID_subject_alt_name, alternativeNames},
                                  std::pair{NID_basic_constraints, std::string("critical,CA:TRUE")}}) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
    check(extension != nullptr && X509_add_ext(x509, extension, -1) == 1, "extension");
    X509_EXTENSION_free(extension);
  }
  check(X509_sign(x509, key.get(), EVP_sha256()) > 0, "signature");

  return {pem([&](BIO* bio) { return PEM_write_bio_X509(bio, x509); }),
          pem([&](BIO* bio) {
            return PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
          })};
}

}  // namespace orvid::testing
