// SPDX-License-Identifier: MIT
#include <tools/common/json_object.h>

#include <nlohmann/json.hpp>

namespace Zephly::tools {

std::string jsonString(std::string_view text) {
  using Json = nlohmann::json;
  return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string jsonNumber(double number) { return nlohmann::json(number).dump(); }

std::string jsonValue(const JsonArray& array) { return array.text(); }

std::string jsonValue(const JsonObject& object) { return object.text(); }

JsonObject& JsonObject::raw(std::string_view name, std::string_view json) {
  if (!members_.empty()) members_ += ',';
  members_ += '"';
  members_ += name;
  members_ += "\":";
  members_ += json;
  return *this;
}

}  // namespace Zephly::tools
