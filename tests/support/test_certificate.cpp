#include "tests/support/test_certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace ambervane {
namespace {

constexpr long kDay = 24L * 60 * 60;

template <auto Free>
struct Freer {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freer<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freer<X509_EXTENSION_free>>;
using File = std::unique_ptr<FILE, Freer<std::fclose>>;

void require(bool done) {
  if (!done) throw std::runtime_error("no test certificate could be made");
}

void addExtension(X509* certificate, int id, const std::string& value) {
  const Extension extension(X509V3_EXT_conf_nid(nullptr, nullptr, id, value.c_str()));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

}  // namespace

TestCertificate writeTestCertificate(const std::filesystem::path& folder,
                                     const std::string& hostName, Validity validity) {
  const Key key(EVP_EC_gen("P-256"));
  const Certificate certificate(X509_new());
  require(key && certificate);
  X509* const x509 = certificate.get();
  const bool expired = validity == Validity::expired;
  require(X509_set_version(x509, X509_VERSION_3) == 1 &&
          ASN1_INTEGER_set(X509_get_serialNumber(x509), 1) == 1 &&
          X509_gmtime_adj(X509_getm_notBefore(x509), -10 * kDay) != nullptr &&
          X509_gmtime_adj(X509_getm_notAfter(x509), (expired ? -1 : 2) * kDay) != nullptr &&
          X509_set_pubkey(x509, key.get()) == 1);
  X509_NAME* const name = X509_get_subject_name(x509);
  const auto* const text = reinterpret_cast<const unsigned char*>(hostName.c_str());
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1 &&
          X509_set_issuer_name(x509, name) == 1);
  addExtension(x509, NID_subject_alt_name, "DNS:" + hostName);
  addExtension(x509, NID_basic_constraints, "critical,CA:TRUE");
  require(X509_sign(x509, key.get(), EVP_sha256()) > 0);

  const TestCertificate paths{folder / "cert.pem", folder / "key.pem"};
  const File certificateFile(std::fopen(paths.certificate.c_str(), "wbe"));
  const File keyFile(std::fopen(paths.key.c_str(), "wbe"));
  require(certificateFile && PEM_write_X509(certificateFile.get(), x509) == 1);
  require(keyFile && PEM_write_PrivateKey(keyFile.get(), key.get(), nullptr, nullptr, 0, nullptr,
                                          nullptr) == 1);
  return paths;
}

TrustedCertificate::TrustedCertificate(const std::filesystem::path& certificate) {
  if (const char* set = std::getenv("SSL_CERT_FILE")) before_ = set;
  ::setenv("SSL_CERT_FILE", certificate.c_str(), 1);
}

TrustedCertificate::~TrustedCertificate() {
  if (before_) {
    ::setenv("SSL_CERT_FILE", before_->c_str(), 1);
  } else {
    ::unsetenv("SSL_CERT_FILE");
  }
}

}  // namespace ambervane
