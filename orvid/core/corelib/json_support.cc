#include "orvid/core/corelib/json_support.h"

#include <cstdio>
#include <ctime>
#include <string>

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

namespace {

// The number spelled by text[at, at + width), which must be all ASCII digits.
std::optional<int> digits(const std::string& text, std::size_t at, std::size_t width) {
  if (at + width > text.size()) return std::nullopt;
  int value = 0;
  for (std::size_t i = at; i < at + width; ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

}  // namespace

std::optional<std::chrono::system_clock::time_point> parseISO8601(const std::string& text) {
  // "YYYY-MM-DDTHH:MM:SS" with fixed-width digits and nothing else in between.
  if (text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
      text[16] != ':') {
    return std::nullopt;
  }
  auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
  auto hour = digits(text, 11, 2), minute = digits(text, 14, 2), second = digits(text, 17, 2);
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;

  std::size_t at = 19;
  long long millis = 0;
  if (text[at] == '.') {
    std::size_t count = 0;
    for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, ++count) {
      if (count < 3) millis = millis * 10 + (text[at] - '0');
    }
    if (count == 0) return std::nullopt;
    for (; count < 3; ++count) millis *= 10;
  }
  if (text.compare(at, std::string::npos, "Z") != 0) return std::nullopt;
  if (*hour > 23 || *minute > 59 || *second > 60) return std::nullopt;

  using namespace std::chrono;
  const year_month_day date{std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                            std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) return std::nullopt;
  // Years 0000-9999 fit in milliseconds; the clock's own duration holds far less.
  const milliseconds sinceEpoch = sys_days(date).time_since_epoch() + hours(*hour) + minutes(*minute) +
                                  std::chrono::seconds(*second) + milliseconds(millis);
  if (sinceEpoch < duration_cast<milliseconds>(system_clock::duration::min()) ||
      sinceEpoch > duration_cast<milliseconds>(system_clock::duration::max())) {
    return std::nullopt;
  }
  return system_clock::time_point(duration_cast<system_clock::duration>(sinceEpoch));
}

}  // namespace orvid::json_support
