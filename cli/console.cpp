#include "cli/console.h"

namespace ambervane {

void ProgressLine::show(const std::string& text) {
  if (!isShown()) return;
  console_.err << "\r  " << text << "\x1b[K" << std::flush;
  drawn_ = true;
}

void ProgressLine::clear() {
  if (!drawn_) return;
  console_.err << "\r\x1b[K" << std::flush;
  drawn_ = false;
}

}  // namespace ambervane
