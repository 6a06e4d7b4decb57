#include "evidence/timestamp_error.h"

namespace ambervane {
namespace {

std::string words(TimestampError::Malformed::Detail detail) {
  switch (detail) {
    case TimestampError::Malformed::Detail::notSequence:
      return "not a DER sequence";
    case TimestampError::Malformed::Detail::status:
      return "unreadable status";
    case TimestampError::Malformed::Detail::noToken:
      return "granted but no token";
    case TimestampError::Malformed::Detail::noInfo:
      return "no TSTInfo in the token";
    case TimestampError::Malformed::Detail::fieldsMissing:
      return "TSTInfo is missing fields";
    case TimestampError::Malformed::Detail::noTime:
      return "TSTInfo has no genTime";
  }
  return {};
}

}  // namespace

LocalizedMessage TimestampError::message() const {
  struct Words {
    LocalizedMessage operator()(const Rejected& r) const {
      const std::string status = std::to_string(r.status);
      if (r.text.empty()) {
        return {"The time-stamping authority refused the request (status %@).", {status}};
      }
      return {"The time-stamping authority refused the request (status %1$@): %2$@",
              {status, r.text}};
    }
    LocalizedMessage operator()(const Malformed& r) const {
      return {"The authority's reply could not be read: %@.", {words(r.detail)}};
    }
    LocalizedMessage operator()(const Transport& r) const {
      return {"Could not reach the time-stamping authority: %@", {r.detail}};
    }
    LocalizedMessage operator()(const NotConfigured&) const {
      return {"No time-stamping authority is configured for this archive.", {}};
    }
    LocalizedMessage operator()(const ImprintMismatch&) const {
      return {
          "The authority timestamped a different digest from the one sent. The token does not "
          "cover this seal and has not been kept.",
          {}};
    }
    LocalizedMessage operator()(const NonceMismatch&) const {
      return {
          "The authority's reply answers a different request from the one sent. It may be an older "
          "reply played back, so it has not been kept.",
          {}};
    }
  };
  return std::visit(Words{}, reason_);
}

}  // namespace ambervane
