// Whatever a viewer sends: a payload is a message exactly when it is a JSON object, and what was decoded
// encodes to text that decodes to itself.

#include <cstdlib>
#include <string>
#include <string_view>

#include "control/control_message.h"
#include "control/json_text.h"

using cvn::agent::ControlMessage;

namespace {

std::string_view TextOf(std::span<const uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::span<const uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

void Require(bool held) {
  if (!held) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span payload(data, size);
  const auto document = cvn::agent::ParseJson(TextOf(payload));
  const auto message = cvn::agent::DecodeControlMessage(payload);
  Require(message.has_value() == (document && document->kind == cvn::agent::JsonKind::Object));
  if (!message) return 0;
  const std::string encoded = cvn::agent::EncodeControlMessage(*message);
  const auto again = cvn::agent::DecodeControlMessage(BytesOf(encoded));
  Require(again && cvn::agent::EncodeControlMessage(*again) == encoded);
  return 0;
}
