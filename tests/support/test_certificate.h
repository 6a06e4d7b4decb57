#ifndef AMBERVANE_TESTS_SUPPORT_TEST_CERTIFICATE_H_
#define AMBERVANE_TESTS_SUPPORT_TEST_CERTIFICATE_H_

#include <filesystem>
#include <optional>
#include <string>

namespace ambervane {

/// A server's certificate, signed by itself, and its key, both as PEM files: whoever trusts the
/// certificate file trusts the server.
struct TestCertificate {
  std::filesystem::path certificate;
  std::filesystem::path key;
};

enum class Validity { current, expired };

/// Writes "cert.pem" and "key.pem" for the DNS name `hostName` into `folder`.
TestCertificate writeTestCertificate(const std::filesystem::path& folder,
                                     const std::string& hostName = "localhost",
                                     Validity validity = Validity::current);

/// While it lives, a certificate file is what this process's TLS connections trust (SSL_CERT_FILE).
class TrustedCertificate {
 public:
  explicit TrustedCertificate(const std::filesystem::path& certificate);
  ~TrustedCertificate();
  TrustedCertificate(const TrustedCertificate&) = delete;
  TrustedCertificate& operator=(const TrustedCertificate&) = delete;

 private:
  std::optional<std::string> before_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_TEST_CERTIFICATE_H_
