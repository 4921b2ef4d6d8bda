#include "control/control_message.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>
#include <variant>

#include "control/json_cursor.h"
#include "control/json_text.h"

namespace cvn::agent {
namespace {

using Message = ControlMessage;
using OptionalText = std::optional<std::string>;
using OptionalInteger = std::optional<int32_t>;

using MemberPointer = std::variant<int32_t Message::*, int64_t Message::*, bool Message::*,
                                   OptionalInteger Message::*, OptionalText Message::*>;

struct Field {
  std::string_view key;
  MemberPointer member;
};

// The order is the order on the wire.
constexpr Field kFields[] = {
    {"t", &Message::type},
    {"s", &Message::text},
    {"vk", &Message::virtualKey},
    {"down", &Message::down},
    {"x", &Message::x},
    {"y", &Message::y},
    {"btn", &Message::button},
    {"wheel", &Message::wheel},
    {"hwheel", &Message::hwheel},
    {"mime", &Message::mime},
    {"data", &Message::data},
    {"kbps", &Message::kbps},
    {"fps", &Message::fps},
    {"lossPermille", &Message::lossPermille},
    {"rttMs", &Message::rttMs},
    {"preset", &Message::preset},
    {"gray", &Message::gray},
    {"vw", &Message::viewportWidth},
    {"vh", &Message::viewportHeight},
    {"index", &Message::index},
    {"count", &Message::count},
    {"show", &Message::show},
    {"shape", &Message::shape},
    {"reqId", &Message::requestId},
    {"url", &Message::url},
    {"name", &Message::name},
    {"run", &Message::run},
    {"ok", &Message::ok},
    {"error", &Message::error},
    {"path", &Message::path},
    {"on", &Message::on},
    {"pub", &Message::publicKey},
    {"port", &Message::port},
    {"user", &Message::user},
    {"fp", &Message::fingerprint},
    {"expires", &Message::expires},
    {"cmd", &Message::command},
    {"hostKey", &Message::hostKey},
};
static_assert(std::size(kFields) == 38);

void AppendValue(std::string& json, int64_t value) {
  json += std::to_string(value);
}
void AppendValue(std::string& json, int32_t value) {
  AppendValue(json, int64_t{value});
}
void AppendValue(std::string& json, bool value) {
  json += value ? "true" : "false";
}
void AppendValue(std::string& json, const std::string& value) {
  json.append("\"").append(EscapeJson(value)).append("\"");
}

template <typename Value>
void AppendValue(std::string& json, const std::optional<Value>& value) {
  if (value)
    AppendValue(json, *value);
  else
    json += "null";
}

// Truncates toward zero and saturates. The parser lets no NaN through.
template <typename Integer>
Integer IntegerFrom(const JsonValue& value) {
  if (value.kind != JsonKind::Number) return 0;
  constexpr double kLimit = -static_cast<double>(std::numeric_limits<Integer>::min());
  if (value.number >= kLimit) return std::numeric_limits<Integer>::max();
  if (value.number <= -kLimit) return std::numeric_limits<Integer>::min();
  return static_cast<Integer>(value.number);
}

void Assign(JsonValue&& value, int32_t& field) {
  field = IntegerFrom<int32_t>(value);
}
void Assign(JsonValue&& value, int64_t& field) {
  field = IntegerFrom<int64_t>(value);
}
void Assign(JsonValue&& value, bool& field) {
  field = value.kind == JsonKind::Number ? value.number != 0 : value.boolean;
}
void Assign(JsonValue&& value, OptionalInteger& field) {
  field.reset();
  if (value.kind != JsonKind::Null) field = IntegerFrom<int32_t>(value);
}
void Assign(JsonValue&& value, OptionalText& field) {
  field.reset();
  if (value.kind == JsonKind::String) field = std::move(value.string);
}

// Only what the record has a place for is built, so that a message costs no more memory than its own bytes.
bool DecodeMember(JsonCursor& cursor, std::string_view key, Message& message) {
  const Field* field = std::find_if(std::begin(kFields), std::end(kFields),
                                    [key](const Field& candidate) { return candidate.key == key; });
  if (field == std::end(kFields)) return cursor.Skip(1);
  JsonValue value;
  if (!cursor.BuildScalar(1, value)) return false;
  std::visit([&](auto member) { Assign(std::move(value), message.*member); }, field->member);
  return true;
}

}  // namespace

std::string EncodeControlMessage(const ControlMessage& message) {
  std::string json;
  char separator = '{';
  for (const Field& field : kFields) {
    json += std::exchange(separator, ',');
    json.append("\"").append(field.key).append("\":");
    std::visit([&](auto member) { AppendValue(json, message.*member); }, field.member);
  }
  return json += '}';
}

std::optional<ControlMessage> DecodeControlMessage(std::span<const uint8_t> payload) {
  JsonCursor cursor({reinterpret_cast<const char*>(payload.data()), payload.size()});
  ControlMessage message;
  std::string key;
  cursor.SkipBlanks();
  if (!cursor.Members(&key, [&] { return DecodeMember(cursor, key, message); })) return std::nullopt;
  cursor.SkipBlanks();
  if (!cursor.AtEnd()) return std::nullopt;
  return message;
}

}  // namespace cvn::agent
