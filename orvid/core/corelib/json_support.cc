#include "orvid/core/corelib/json_support.h"

#include <cstdio>
#include <ctime>

namespace orvid::json_support {

const nlohmann::json* member(const nlohmann::json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> stringMember(const nlohmann::json& object, const char* key) {
  const nlohmann::json* value = member(object, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::string iso8601(std::chrono::system_clock::time_point time) {
  using namespace std::chrono;
  auto millis = duration_cast<milliseconds>(time.time_since_epoch()).count();
  auto seconds = static_cast<std::time_t>(millis >= 0 ? millis / 1000 : (millis - 999) / 1000);
  int fraction = static_cast<int>(millis - static_cast<long long>(seconds) * 1000);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char buffer[96];
  std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, fraction);
  return buffer;
}

std::optional<std::chrono::system_clock::time_point> parseISO8601(const std::string& text) {
  int year, month, day, hour, minute, second;
  int consumed = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &year, &month, &day, &hour, &minute, &second,
                  &consumed) != 6) {
    return std::nullopt;
  }
  std::string rest = text.substr(static_cast<std::size_t>(consumed));
  long long millis = 0;
  if (!rest.empty() && rest[0] == '.') {
    std::size_t i = 1;
    int digits = 0;
    while (i < rest.size() && rest[i] >= '0' && rest[i] <= '9') {
      if (digits < 3) millis = millis * 10 + (rest[i] - '0');
      ++digits;
      ++i;
    }
    if (digits == 0) return std::nullopt;
    for (; digits < 3; ++digits) millis *= 10;
    rest = rest.substr(i);
  }
  if (rest != "Z") return std::nullopt;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return std::nullopt;
  using namespace std::chrono;
  auto date = year_month_day{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                             std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok()) return std::nullopt;
  auto time = sys_days(date) + hours(hour) + minutes(minute) + std::chrono::seconds(second) + milliseconds(millis);
  return time_point_cast<system_clock::duration>(time);
}

}  // namespace orvid::json_support
