#include <cmath>

#include "fuzz/fuzz_input.h"
#include "mailcore/charset.h"
#include "mailcore/mail_date.h"

/// Any field as a date; one of four digits in its year survives being written and read again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const auto date = MailDate::parse(Charset::decodeUnlabelled(fuzzInput(data, size)));
  if (!date) return 0;
  require(std::isfinite(date->seconds));
  for (const Zone zone : {Zone::utc, Zone::zurich}) {
    const int year = civilTime(*date, zone).year;
    const std::string text = MailDate::format(*date, zone);
    const auto again = MailDate::parse(text);
    // Before 1900 local time was no whole number of minutes away from UTC.
    if (year >= 1900 && year <= 9999) {
      require(again && again->seconds == std::floor(date->seconds));
    }
  }
  return 0;
}
