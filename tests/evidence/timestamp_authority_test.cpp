#include "evidence/timestamp_authority.h"

#include <gtest/gtest.h>

#include "evidence/der.h"
#include "evidence/timestamp_round.h"
#include "tests/support/openssl_authority.h"

namespace ambervane {
namespace {

constexpr const char* kUrl = "http://user@tsa.example:8080/tsr";
const Bytes kDigest = sha256("abc");
const Bytes kNonce = Bytes("\x80\x01\x02\x03\x04\x05\x06\x07", 8);

/// The pieces of a TimeStampResp, each as it stands in the encoding.
struct Reply {
  Bytes status = DER::sequence({DER::integer(0)});
  Bytes contentType = DER::objectIdentifier("1.2.840.113549.1.9.16.1.4");
  Bytes head = DER::integer(1) + DER::objectIdentifier("1.2.3.4.1");
  Bytes imprint = DER::sequence({DER::sequence({}), DER::octetString(kDigest)});
  Bytes serial = DER::integer(77);
  Bytes time = DER::encode(DER::kGeneralizedTime, "20260301101530.5Z");
  Bytes tail = DER::boolean(true) + DER::integer(kNonce);
  int wrappings = 2;  ///< constructed elements between token and content

  Bytes token() const {
    const Bytes info = DER::sequence({head, imprint, serial, time, tail});
    Bytes content = DER::sequence({contentType, DER::encode(0xa0, DER::octetString(info))});
    for (int i = 0; i < wrappings; ++i) content = DER::encode(0xa0, content);
    return DER::sequence({DER::objectIdentifier("1.2.840.113549.1.7.2"), content});
  }
  Bytes bytes() const { return DER::sequence({status, token()}); }
};

TimestampToken read(BytesView data, const std::optional<Bytes>& nonce = kNonce) {
  return TimestampAuthority::readReply(data, kDigest, kUrl, nonce);
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

// What "openssl ts -query -sha256 -cert" writes for the same digest and nonce.
TEST(TimestampAuthority, requestIsWhatOthersSend) {
  const Bytes request = TimestampAuthority::request(kDigest, kNonce, true);
  EXPECT_EQ(hexEncode(request), "30440201013031300d060960864801650304020105000420" +
                                    hexEncode(kDigest) + "020900" + hexEncode(kNonce) + "0101ff");
  EXPECT_EQ(request.size() - 3, TimestampAuthority::request(kDigest, kNonce, false).size());
}

TEST(TimestampAuthority, grantedReply) {
  const Reply reply;
  const TimestampToken expected{.token = base64Encode(reply.token()),
                                .generatedAt = Date{1772360130.5},
                                .authority = "tsa.example",
                                .digest = hexEncode(kDigest)};
  EXPECT_EQ(read(reply.bytes()), expected);
  EXPECT_EQ(read(reply.bytes() + "behind"), expected);
}

TEST(TimestampAuthority, replies) {
  const std::string unreadable = "The authority's reply could not be read: ";
  const std::string otherDigest =
      "The authority timestamped a different digest from the one sent. The token does not cover "
      "this seal and has not been kept.";
  const std::string otherRequest =
      "The authority's reply answers a different request from the one sent. It may be an older "
      "reply played back, so it has not been kept.";
  const struct {
    const char* name;
    std::function<void(Reply&)> edit;
    std::string error;
  } kCases[] = {
      {"withModifications", [](Reply& r) { r.status = DER::sequence({DER::integer(1)}); }, ""},
      {"rejected", [](Reply& r) { r.status = DER::sequence({DER::integer(2)}); },
       "The time-stamping authority refused the request (status 2)."},
      {"rejectedInWords",
       [](Reply& r) {
         r.status = DER::sequence(
             {DER::integer(2), DER::sequence({DER::encode(DER::kUtf8String, "No \x1b[1mü\xff")})});
       },
       "The time-stamping authority refused the request (status 2): No \\x1b[1mü\xef\xbf\xbd"},
      {"negativeStatus", [](Reply& r) { r.status = DER::sequence({"\x02\x01\xff"}); },
       "The time-stamping authority refused the request (status -1)."},
      {"flatStatus", [](Reply& r) { r.status = DER::integer(0); },
       unreadable + "unreadable status."},
      {"emptyStatus", [](Reply& r) { r.status = DER::sequence({}); },
       unreadable + "unreadable status."},
      {"hugeStatus", [](Reply& r) { r.status = DER::sequence({DER::integer(Bytes(9, '\1'))}); },
       unreadable + "unreadable status."},
      {"otherContent", [](Reply& r) { r.contentType = DER::objectIdentifier("1.2.3"); },
       unreadable + "no TSTInfo in the token."},
      {"contentMissing", [](Reply& r) { r.contentType += DER::null(); },
       unreadable + "no TSTInfo in the token."},
      {"deepEnough", [](Reply& r) { r.wrappings = 39; }, ""},
      {"tooDeep", [](Reply& r) { r.wrappings = 40; }, unreadable + "no TSTInfo in the token."},
      {"fieldMissing", [](Reply& r) { r.head = r.serial = ""; },
       unreadable + "TSTInfo is missing fields."},
      {"otherDigest",
       [](Reply& r) {
         r.imprint = DER::sequence({DER::sequence({}), DER::octetString(sha256("abd"))});
       },
       otherDigest},
      {"flatImprint", [](Reply& r) { r.imprint = DER::octetString(kDigest); }, otherDigest},
      {"utcTime", [](Reply& r) { r.time = DER::encode(0x17, "260301101530Z"); },
       unreadable + "TSTInfo has no genTime."},
      {"noNonce", [](Reply& r) { r.tail = DER::boolean(true); }, otherRequest},
      {"otherNonce", [](Reply& r) { r.tail = DER::integer(kNonce + "\x08"); }, otherRequest},
      {"paddedNonce",
       [](Reply& r) { r.tail = DER::encode(DER::kInteger, Bytes(3, '\0') + kNonce); }, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Reply reply;
    c.edit(reply);
    EXPECT_EQ(errorOf([&] { read(reply.bytes()); }), c.error);
  }
  EXPECT_EQ(errorOf([] { read("<html>"); }), unreadable + "not a DER sequence.");
  EXPECT_EQ(errorOf([] { read(DER::sequence({})); }), unreadable + "unreadable status.");
  EXPECT_EQ(errorOf([] { read(DER::sequence({Reply().status})); }),
            unreadable + "granted but no token.");
  Reply timeless;
  timeless.time = DER::encode(DER::kGeneralizedTime, "about noon");
  timeless.tail = "";
  EXPECT_EQ(read(timeless.bytes(), std::nullopt).generatedAt, std::nullopt);
}

TEST(TimestampAuthority, damagedRepliesAreErrors) {
  const Bytes whole = Reply().bytes();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_NE(errorOf([&] { read(whole.substr(0, size)); }), "") << size;
  }
  // Whatever a byte is replaced with, the reply is taken or refused, and nothing else happens.
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      Bytes damaged = whole;
      damaged[at] = static_cast<char>(value);
      errorOf([&] { read(damaged); });
    }
  }
}

TEST(TimestampAuthority, anOutsideProgramStampsAndVerifies) {
  const OpensslAuthority openssl;
  if (!openssl.works()) GTEST_SKIP() << "no openssl program";
  TimestampExchange exchange{.post =
                                 [&](const HttpRequest& r) {
                                   return HttpReply{200, openssl.answer(r.body)};
                                 },
                             .random = [](std::size_t) { return kNonce; }};
  const TimestampAuthority authority{.url = kUrl};
  const TimestampToken token = authority.stampSynchronously(kDigest, exchange);
  ASSERT_TRUE(token.generatedAt);
  EXPECT_NEAR(token.generatedAt->seconds, systemNow().seconds, 60);
  EXPECT_TRUE(openssl.verifies(token.token, kDigest));
  EXPECT_FALSE(openssl.verifies(token.token, sha256("abd")));
  EXPECT_EQ(errorOf([&] { authority.stampSynchronously("short", exchange); }),
            "The time-stamping authority refused the request (status 2): Bad message digest.");
}

TEST(TimestampAuthority, failuresOnTheWay) {
  const auto outcome = [](const HttpPost& post, const char* url = kUrl) {
    return errorOf([&] {
      TimestampAuthority{.url = url, .timeout = 2.5}.stampSynchronously(kDigest, {.post = post});
    });
  };
  const std::string unreachable = "Could not reach the time-stamping authority: ";
  EXPECT_EQ(outcome([](const HttpRequest& r) {
              EXPECT_EQ(r.timeoutSeconds, 2.5);
              EXPECT_EQ(r.headers[0], "Content-Type: application/timestamp-query");
              EXPECT_EQ(r.headers[1], "Accept: application/timestamp-reply");
              return HttpReply{503, Reply().bytes()};
            }),
            unreachable + "HTTP 503");
  EXPECT_EQ(outcome([](const auto&) -> HttpReply { throw HttpError(HttpError::TimedOut{}); }),
            unreachable + "2.5 seconds");
  EXPECT_EQ(outcome([](const auto&) -> HttpReply { throw HttpError(HttpError::Failed{"gone"}); }),
            unreachable + "gone");
  EXPECT_EQ(outcome({}, ""), "No time-stamping authority is configured for this archive.");
}

TEST(AskForTimestamp, authoritiesInOrderAndNotAgainForFiveMinutes) {
  std::vector<std::string> asked;
  Date now{1000};
  UnreachableAuthorities unreachable;
  TimestampEnvironment environment{
      {.post =
           [&](const HttpRequest& request) {
             asked.push_back(urlHost(request.url));
             if (asked.back() == "down") throw HttpError(HttpError::Failed{"no route"});
             return HttpReply{200, asked.back() == "good" ? Reply().bytes() : "odd"};
           },
       .random = [](std::size_t) { return kNonce; }},
      &unreachable};
  const auto ask = [&](const std::vector<std::string>& urls) {
    asked.clear();
    return askForTimestamp(
        urls, kDigest, 10, [&] { return now; }, environment);
  };
  const std::vector<std::string> all = {"http://down/", "https://odd/a", "http://good/",
                                        "http://x"};
  for (const auto& [at, expected] :
       std::vector<std::pair<double, std::vector<std::string>>>{{1000, {"down", "odd", "good"}},
                                                                {1299, {"odd", "good"}},
                                                                {1300, {"down", "odd", "good"}},
                                                                {1100, {"down", "odd", "good"}}}) {
    SCOPED_TRACE(at);
    now = {at};
    EXPECT_EQ(ask(all).token->authority, "good");
    EXPECT_EQ(asked, expected);
  }
  const std::string failure =
      "down: Could not reach the time-stamping authority: no route; odd: The authority's reply "
      "could not be read: not a DER sequence.";
  EXPECT_EQ(ask({all[0], all[1]}).failure, failure);
  EXPECT_EQ(asked, std::vector<std::string>{"odd"});
  environment.exchange.random = [](std::size_t) -> Bytes { throw std::runtime_error("no chance"); };
  EXPECT_EQ(ask({"odd"}).failure, "odd: no chance");
  EXPECT_EQ(ask({}).failure, "");
}

}  // namespace
}  // namespace ambervane
