#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace cvn::agent {

/// Message types, the value of "t". Others are valid on the wire and not acted on.
enum ControlType : int32_t {
  kTypeText = 0,
  kKey = 1,
  kMouse = 2,
  kClipboard = 3,
  kQuality = 4,
  kSelectMonitor = 5,
  kMonitorList = 9,
  kCursorVisibility = 10,
  kSecureAttention = 11,
  kCredentials = 13,
  kRepaint = 16,
};

/// The one flat record of every control message, in wire order. A type uses some fields and leaves the rest
/// alone; fields from `shape` on that the agent does not act on are carried so that a decoded message encodes
/// unchanged. The comment is the JSON key where it differs from the name.
struct ControlMessage {
  int32_t type = 0;                        // "t"
  std::optional<std::string> text;         // "s": text to type, or the secret of kCredentials
  int32_t virtualKey = 0;                  // "vk": Windows virtual-key code
  bool down = false;                       // pressed or released
  int32_t x = 0;                           // 0..65535 across the captured area
  int32_t y = 0;                           //
  std::optional<int32_t> button;           // "btn": 0 left, 1 right, 2 middle
  int32_t wheel = 0;                       // 120 is one notch
  int32_t hwheel = 0;                      //
  std::optional<std::string> mime;         //
  std::optional<std::string> data;         // clipboard text
  int32_t kbps = 0;                        // receive rate measured by the viewer
  int32_t fps = 0;                         //
  int32_t lossPermille = 0;                //
  int32_t rttMs = 0;                       //
  std::optional<std::string> preset;       //
  bool gray = false;                       //
  int32_t viewportWidth = 0;               // "vw"
  int32_t viewportHeight = 0;              // "vh"
  int32_t index = 0;                       // monitor, -1 for all displays
  int32_t count = 0;                       // number of monitors
  bool show = false;                       // draw the cursor into frames
  std::optional<std::string> shape;        //
  std::optional<std::string> requestId;    // "reqId"
  std::optional<std::string> url;          //
  std::optional<std::string> name;         // user name of kCredentials
  bool run = false;                        // press Enter after the secret
  bool ok = false;                         //
  std::optional<std::string> error;        //
  std::optional<std::string> path;         //
  bool on = false;                         //
  std::optional<std::string> publicKey;    // "pub"
  int32_t port = 0;                        //
  std::optional<std::string> user;         //
  std::optional<std::string> fingerprint;  // "fp"
  int64_t expires = 0;                     //
  std::optional<std::string> command;      // "cmd"
  std::optional<std::string> hostKey;      //

  bool operator==(const ControlMessage&) const = default;
};

/// Compact JSON with every key in wire order, pure ASCII.
std::string EncodeControlMessage(const ControlMessage& message);

/// Absent when the bytes are not one well-formed JSON object. Numbers beyond an integer field's range
/// saturate; missing fields take their defaults; unknown keys are ignored.
std::optional<ControlMessage> DecodeControlMessage(std::span<const uint8_t> payload);

}  // namespace cvn::agent
