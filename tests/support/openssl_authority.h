#ifndef AMBERVANE_TESTS_SUPPORT_OPENSSL_AUTHORITY_H_
#define AMBERVANE_TESTS_SUPPORT_OPENSSL_AUTHORITY_H_

#include <cstdlib>
#include <string>

#include "base/file.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {

/// A time-stamping authority with a certificate of its own, played by the openssl program.
class OpensslAuthority {
 public:
  OpensslAuthority() {
    writeFileAtomically(folder_ / "conf",
                        "[tsa]\ndefault_tsa = own\n[own]\nserial = serial\nsigner_cert = tsa.pem\n"
                        "signer_key = key.pem\nsigner_digest = sha256\ndigests = sha256\n"
                        "default_policy = 1.2.3.4.1\ness_cert_id_alg = sha256\n");
    works_ =
        run("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout key.pem "
            "-out tsa.pem -days 2 -subj /CN=tsa.example "
            "-addext extendedKeyUsage=critical,timeStamping");
  }
  /// False where there is no openssl program to play it.
  bool works() const noexcept { return works_; }
  /// The TimeStampResp to a TimeStampReq.
  Bytes answer(BytesView request) const {
    writeFileAtomically(folder_ / "request", request);
    const bool made = run("ts -reply -config conf -queryfile request -out reply");
    return made ? readFile(folder_ / "reply") : Bytes();
  }
  /// Whether openssl takes `token` for a stamp of this authority over `digest`.
  bool verifies(BytesView token, BytesView digest) const {
    writeFileAtomically(folder_ / "token", token);
    return run("ts -verify -token_in -in token -CAfile tsa.pem -digest " + hexEncode(digest));
  }

 private:
  bool run(const std::string& command) const {
    const std::string line =
        "cd '" + folder_.path().native() + "' && timeout 20 openssl " + command + " >>log 2>&1";
    return std::system(line.c_str()) == 0;  // NOLINT(concurrency-mt-unsafe,cert-env33-c)
  }

  ScratchFolder folder_;
  bool works_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_OPENSSL_AUTHORITY_H_
