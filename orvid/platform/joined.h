#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvid {

// `parts` in order with `separator` between neighbours; empty for no parts.
inline std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
  std::size_t size = parts.empty() ? 0 : separator.size() * (parts.size() - 1);
  for (const auto& part : parts) size += part.size();
  std::string text;
  text.reserve(size);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text += separator;
    text += parts[i];
  }
  return text;
}

}  // namespace orvid
