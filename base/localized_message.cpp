#include "base/localized_message.h"

#include <string_view>

namespace ambervane {

std::string LocalizedMessage::text() const {
  if (arguments.empty()) return format;
  std::string out;
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    const std::string_view rest = std::string_view(format).substr(i);
    if (rest.starts_with("%@")) {
      if (next < arguments.size()) out += arguments[next];
      ++next;
      ++i;
    } else if (rest.size() >= 4 && rest[0] == '%' && rest[1] >= '1' && rest[1] <= '9' &&
               rest.substr(2, 2) == "$@") {
      const auto index = static_cast<std::size_t>(rest[1] - '1');
      if (index < arguments.size()) out += arguments[index];
      i += 3;
    } else {
      out.push_back(format[i]);
    }
  }
  return out;
}

const char* TranslatableError::what() const noexcept {
  try {
    if (text_.empty()) text_ = message().text();
    return text_.c_str();
  } catch (...) {
    return "out of memory";
  }
}

}  // namespace ambervane
