#ifndef AMBERVANE_TESTS_SUPPORT_MAIL_BUILDER_H_
#define AMBERVANE_TESTS_SUPPORT_MAIL_BUILDER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "tests/support/test_bytes.h"

namespace ambervane {

/// A plain text message; `number` makes it one of its kind.
inline Bytes plainMail(int number, const std::string& subject = "Lieferung",
                       const std::string& body = "Guten Tag\r\n\r\nDie Ware ist unterwegs.\r\n") {
  const std::string n = std::to_string(number);
  return "Message-ID: <m" + n +
         "@example.com>\r\nDate: Mon, 5 Feb 2024 10:00:00 +0100\r\nFrom: "
         "Anna Beispiel <anna@example.com>\r\nTo: bert@example.org\r\nSubject: " +
         subject + " " + n + "\r\n\r\n" + body;
}

/// Base64 in lines of `columns`, each ended by CRLF.
inline std::string wrappedBase64(BytesView bytes, std::size_t columns = 76) {
  const std::string text = base64Encode(bytes);
  std::string wrapped;
  for (std::size_t at = 0; at < text.size(); at += columns) {
    wrapped += text.substr(at, columns) + "\r\n";
  }
  return wrapped;
}

/// A message with a text and files, each a pair of name and content, in base64.
inline Bytes mailWithFiles(int number, const std::vector<std::pair<std::string, Bytes>>& files,
                           std::size_t columns = 76) {
  const std::string n = std::to_string(number);
  Bytes mail = "Message-ID: <f" + n +
               "@example.com>\r\nDate: Tue, 6 Feb 2024 10:00:00 +0000\r\nFrom: "
               "carla@example.ch\r\nTo: dora@example.org\r\nSubject: Offerte " +
               n +
               "\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=\"b1\"\r\n\r\n"
               "--b1\r\nContent-Type: text/plain; charset=utf-8\r\n\r\nAnbei die Offerte.\r\n";
  for (const auto& [name, content] : files) {
    mail +=
        "--b1\r\nContent-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n"
        "Content-Disposition: attachment; filename=\"" +
        name + "\"\r\n\r\n" + wrappedBase64(content, columns);
  }
  return mail + "--b1--\r\n";
}

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_MAIL_BUILDER_H_
