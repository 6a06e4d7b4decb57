#include "cli/console.h"

namespace ambervane {
namespace {

constexpr double kRedrawSeconds = 0.1;

}  // namespace

bool ProgressLine::isDue() {
  if (!isShown()) return false;
  const Date now = systemNow();
  if (now.seconds - drawnAt_.seconds < kRedrawSeconds) return false;
  drawnAt_ = now;
  return true;
}

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
