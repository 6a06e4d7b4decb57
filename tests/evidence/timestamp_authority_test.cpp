#include "evidence/timestamp_authority.h"

#include <gtest/gtest.h>

#include "evidence/der.h"
#include "evidence/timestamp_defaults.h"
#include "evidence/timestamp_round.h"

namespace ambervane {
namespace {

const Bytes kDigest = sha256("abc");
const Bytes kNonce = *hexDecode("8001020304050607");

/// The pieces of a TimeStampResp, each as it stands in the encoding.
struct Reply {
  Bytes status = DER::sequence({DER::integer(0)});
  Bytes contentType = DER::objectIdentifier("1.2.840.113549.1.9.16.1.4");
  Bytes head = DER::integer(1) + DER::objectIdentifier("1.2.3.4.1");
  Bytes imprint = DER::sequence({DER::sequence({}), DER::octetString(kDigest)});
  Bytes time = DER::integer(77) + DER::encode(DER::kGeneralizedTime, "20260301101530.5Z");
  Bytes tail = DER::boolean(true) + DER::integer(kNonce);
  int wrappings = 2;  ///< constructed elements between token and content

  Bytes token() const {
    const Bytes info = DER::sequence({head, imprint, time, tail});
    Bytes content = DER::sequence({contentType, DER::encode(0xa0, DER::octetString(info))});
    for (int i = 0; i < wrappings; ++i) content = DER::encode(0xa0, content);
    return DER::sequence({DER::objectIdentifier("1.2.840.113549.1.7.2"), content});
  }
  Bytes bytes() const { return DER::sequence({status, token()}); }
};

TimestampToken read(BytesView data) {
  return TimestampAuthority::readReply(data, kDigest, "http://u@tsa.example:8080/x", kNonce);
}

/// Empty when `action` returns.
std::string errorOf(const std::function<void()>& action) {
  try {
    action();
    return {};
  } catch (const TimestampError& error) {
    return error.what();
  }
}

TEST(TimestampAuthority, replies) {
  const std::string unreadable = "The authority's reply could not be read: ";
  const std::string otherDigest = "The authority timestamped a different digest from the one sent.";
  const std::string otherRequest = "The authority's reply answers a different request from the one";
  const std::string refused = "The time-stamping authority refused the request (status ";
  const Bytes words = DER::sequence({DER::encode(DER::kUtf8String, "No \x1b[1mü\xff")});
  const struct {
    const char* name;
    Bytes Reply::*piece;
    Bytes value;
    std::string error;  ///< how it begins
  } kCases[] = {
      {"withModifications", &Reply::status, DER::sequence({DER::integer(1)}), ""},
      {"rejected", &Reply::status, DER::sequence({DER::integer(2)}), refused + "2)."},
      {"rejectedInWords", &Reply::status, DER::sequence({DER::integer(2), words}),
       refused + "2): No \\x1b[1mü\xef\xbf\xbd"},
      {"flatStatus", &Reply::status, DER::integer(0), unreadable + "unreadable status."},
      {"hugeStatus", &Reply::status, DER::sequence({DER::integer(Bytes(9, '\1'))}),
       unreadable + "unreadable status."},
      {"otherContent", &Reply::contentType, DER::null(), unreadable + "no TSTInfo in the token."},
      {"otherDigest", &Reply::imprint,
       DER::sequence({DER::null(), DER::octetString(sha256("abd"))}), otherDigest},
      {"flatImprint", &Reply::imprint, DER::octetString(kDigest), otherDigest},
      {"utcTime", &Reply::time, DER::integer(77) + DER::encode(0x17, "260301101530Z"),
       unreadable + "TSTInfo has no genTime."},
      {"noNonce", &Reply::tail, DER::boolean(true), otherRequest},
      {"otherNonce", &Reply::tail, DER::integer(kNonce + "\x08"), otherRequest},
      {"paddedNonce", &Reply::tail, DER::encode(DER::kInteger, Bytes(3, '\0') + kNonce), ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Reply reply;
    reply.*c.piece = c.value;
    const std::string error = errorOf([&] { read(reply.bytes()); });
    EXPECT_TRUE(error.starts_with(c.error) && error.empty() == c.error.empty()) << error;
  }
  EXPECT_EQ(errorOf([] { read(DER::sequence({Reply().status})); }),
            unreadable + "granted but no token.");
  EXPECT_EQ(errorOf([] { read(Reply{.time = "", .tail = ""}.bytes()); }),
            unreadable + "TSTInfo is missing fields.");
  EXPECT_EQ(errorOf([] { read(Reply{.wrappings = 39}.bytes()); }), "");
  EXPECT_EQ(errorOf([] { read(Reply{.wrappings = 40}.bytes()); }),
            unreadable + "no TSTInfo in the token.");
  const TimestampToken expected{.token = base64Encode(Reply().token()),
                                .generatedAt = Date{1772360130.5},
                                .authority = "tsa.example",
                                .digest = hexEncode(kDigest)};
  EXPECT_EQ(read(Reply().bytes()), expected);
}

TEST(TimestampAuthority, damagedRepliesAreErrors) {
  const Bytes whole = Reply().bytes();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    EXPECT_NE(errorOf([&] { read(whole.substr(0, at)); }), "") << at;
    // Whatever a byte is replaced with, the reply is taken or refused, and nothing else happens.
    for (int value = 0; value < 256; ++value) {
      Bytes damaged = whole;
      damaged[at] = static_cast<char>(value);
      errorOf([&] { read(damaged); });
    }
  }
}

TEST(TimestampAuthorities, namedByTheSettingElseTheDefaults) {
  EXPECT_TRUE(disablesTimestamps("1"));
  for (const char* value : {"", "0", "true", "1 "}) EXPECT_FALSE(disablesTimestamps(value));
  EXPECT_TRUE(TimestampDefaults::authorities().empty()) << "a test program must not ask anyone";
  EXPECT_EQ(timestampAuthorities(" http://b/x?y ,, https://a:1/ , http://a b/,\x01"),
            (std::vector<std::string>{"http://b/x?y", "https://a:1/"}));
}

TEST(AskForTimestamp, inOrderAndNotAgainForFiveMinutes) {
  std::string asked;
  Date now;
  UnreachableAuthorities unreachable;
  TimestampEnvironment environment{
      {.post =
           [&](const HttpRequest& request) {
             asked += urlHost(request.url) + " ";
             if (asked.ends_with("down ")) throw HttpError(HttpError::TimedOut{});
             if (asked.ends_with("busy ")) return HttpReply{503, Reply().bytes()};
             return HttpReply{200, asked.ends_with("good ") ? Reply().bytes() : "odd"};
           },
       .random = [](std::size_t) { return kNonce; }},
      &unreachable};
  const auto ask = [&](const std::vector<std::string>& urls) {
    asked.clear();
    return askForTimestamp(
        urls, kDigest, 2.5, [&] { return now; }, environment);
  };
  static constexpr std::pair<double, const char*> kCases[] = {
      {1000, "down odd good "},
      {1299, "odd good "},
      {1300, "down odd good "},
      {1100, "down odd good "}  // the clock was set back
  };
  for (const auto& [at, expected] : kCases) {
    now = {at};
    EXPECT_EQ(ask({"http://down/", "http://odd/a", "http://good/", "x"}).token->authority, "good");
    EXPECT_EQ(asked, expected);
  }
  EXPECT_EQ(ask({"http://down/", "http://odd/", "http://busy/", ""}).failure,
            "down: Could not reach the time-stamping authority: 2.5 seconds; odd: The authority's "
            "reply could not be read: not a DER sequence.; busy: Could not reach the time-stamping "
            "authority: HTTP 503; : No time-stamping authority is configured for this archive.");
  EXPECT_EQ(asked, "odd busy ");
}

}  // namespace
}  // namespace ambervane
