// SPDX-License-Identifier: Apache-2.0
// JSON by Jansson, with its calls that take lengths: a text may hold a zero byte.
#include <jansson.h>

#include "platform/json_serialization.h"

namespace larkspur {
namespace {

struct ReleaseValue {
  void operator()(json_t* value) const noexcept { json_decref(value); }
};

// So that any valid text is read: numbers of any length, and zero bytes in texts.
constexpr std::size_t kReading = JSON_ALLOW_NUL | JSON_DECODE_INT_AS_REAL;
constexpr std::size_t kWriting = JSON_COMPACT | JSON_ESCAPE_SLASH;

[[noreturn]] void failWriting() { throw JSONError("unable to encode a text that is not UTF-8"); }

}  // namespace

void JSONObject::Release::operator()(void* value) const noexcept {
  json_decref(static_cast<json_t*>(value));
}

std::optional<std::string_view> JSONObject::stringForKey(std::string_view key) const {
  const json_t* value =
      json_object_getn(static_cast<const json_t*>(value_.get()), key.data(), key.size());
  if (!json_is_string(value)) return std::nullopt;
  return std::string_view(json_string_value(value), json_string_length(value));
}

std::string JSONSerialization::data(const std::map<std::string, std::string>& dictionary) {
  const std::unique_ptr<json_t, ReleaseValue> object(json_object());
  for (const auto& [key, value] : dictionary) {
    // Takes the value over, also when it fails; the value is null for text that is not UTF-8.
    if (json_object_setn_new(object.get(), key.data(), key.size(),
                             json_stringn(value.data(), value.size())) != 0)
      failWriting();
  }
  std::string text(json_dumpb(object.get(), nullptr, 0, kWriting), '\0');
  if (json_dumpb(object.get(), text.data(), text.size(), kWriting) != text.size() || text.empty())
    failWriting();
  return text;
}

std::optional<JSONObject> JSONSerialization::object(std::string_view data) {
  json_error_t error;
  // Not the data of an empty view, which may be null and then is no text to Jansson.
  const char* text = data.empty() ? "" : data.data();
  JSONObject::Handle value(json_loadb(text, data.size(), kReading, &error));
  if (value == nullptr) throw JSONError(error.text);
  if (!json_is_object(static_cast<const json_t*>(value.get()))) return std::nullopt;
  return JSONObject(std::move(value));
}

}  // namespace larkspur
