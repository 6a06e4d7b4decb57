#include "evidence/sync_schedule.h"

#include <fmt/format.h>

#include <array>

#include "base/json.h"

namespace ambervane {
namespace {

using nlohmann::json;

constexpr std::array kWeekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};
constexpr int kMonday = 2;

/// A number of the object, or what stands already for one that is missing or no small integer.
void take(int& into, const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_integer()) return;
  const auto value = found->get<std::int64_t>();
  if (value >= 0 && value <= 59) into = static_cast<int>(value);
}

}  // namespace

LocalizedMessage SyncSchedule::summary() const {
  if (!enabled) return {"off", {}};
  const std::string time = fmt::format("{:02}:{:02}", hour, minute);
  switch (interval) {
    case Interval::hourly:
      return {"every hour", {}};
    case Interval::daily:
      return {"every day at %@", {time}};
    case Interval::weekly:
      break;
  }
  const bool isKnown = weekday >= 1 && weekday <= static_cast<int>(kWeekdays.size());
  const auto index = static_cast<std::size_t>((isKnown ? weekday : kMonday) - 1);
  return {"every %1$@ at %2$@", {kWeekdays[index], time}};
}

double SyncSchedule::staleAfter() const noexcept {
  switch (interval) {
    case Interval::hourly:
      return 10'800;
    case Interval::daily:
      return 259'200;
    case Interval::weekly:
      break;
  }
  return 1'814'400;
}

std::optional<SyncSchedule> SyncSchedule::fromJson(std::string_view text) {
  const json object = tryParseJson(text);
  if (!object.is_object()) return std::nullopt;
  SyncSchedule schedule;
  schedule.enabled = object.value("enabled", json()) == true;
  const json interval = object.value("interval", json());
  if (interval == "hourly") schedule.interval = Interval::hourly;
  if (interval == "weekly") schedule.interval = Interval::weekly;
  take(schedule.hour, object, "hour");
  take(schedule.minute, object, "minute");
  take(schedule.weekday, object, "weekday");
  return schedule;
}

}  // namespace ambervane
