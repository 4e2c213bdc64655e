#pragma once

#include <string>
#include <vector>

#include "base/json/json11.h"

namespace zo_base::json11 {

// Lists of texts in JSON. What is no text reads as an empty one.
inline std::vector<std::string> TextsOf(const Json& list) {
  std::vector<std::string> texts;
  for (const Json& item : list.array_items()) texts.push_back(item.string_value());
  return texts;
}

inline Json ToJson(const std::vector<std::string>& texts) {
  return Json::array(texts.begin(), texts.end());
}

}  // namespace zo_base::json11
