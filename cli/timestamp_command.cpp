#include "base/calendar.h"
#include "base/digest.h"
#include "base/file.h"
#include "base/text.h"
#include "cli/commands.h"
#include "evidence/timestamp_authority.h"

namespace ambervane {
namespace {

/// As one word of a shell's command line, quoted only where it must be.
std::string shellWord(const std::string& text) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_./:@%+=,";
  if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) return text;
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

void writeRequest(const std::string& file, BytesView digest, const std::string& url,
                  std::ostream& out) {
  const Bytes request = TimestampAuthority::request(
      digest, randomBytes(TimestampAuthority::kNonceBytes), /*requestCertificate=*/true);
  writeFileAtomically(standardizedPath(file), request);
  out << "Request   : " << request.size() << " bytes written to " << printable(file) << "\n"
      << "            curl -s -H 'Content-Type: application/timestamp-query' \\\n"
      << "                 --data-binary @" << printable(shellWord(file)) << " "
      << printable(shellWord(url)) << " -o reply.tsr\n";
}

}  // namespace

int timestamp(const Arguments& arguments, Console& console) {
  const std::string url = arguments.option("url").value_or("");
  if (url.empty()) throw CLIError::usage("usage: ambervane timestamp --url <tsa> [--data <text>]");
  const Bytes digest = sha256(arguments.option("data").value_or("Ambervane timestamp probe"));
  console.out << "Digest    : " << hexEncode(digest) << "\n"
              << "Authority : " << printable(url) << "\n"
              << std::flush;
  if (const auto file = arguments.option("write-request")) {
    writeRequest(*file, digest, url, console.out);
    return kExitSuccess;
  }
  const auto replyFile = arguments.option("parse-reply");
  const TimestampToken token =
      replyFile ? TimestampAuthority::readReply(readFile(standardizedPath(*replyFile)), digest, url,
                                                /*nonce=*/std::nullopt)
                : TimestampAuthority{.url = url}.stampSynchronously(digest);
  console.out << "Stated at : " << (token.generatedAt ? iso8601(*token.generatedAt) : "not stated")
              << "\n"
              << "Token     : " << token.token.size() << " base64 characters\n"
              << "The authority stamped the digest that was sent.\n";
  return kExitSuccess;
}

}  // namespace ambervane
