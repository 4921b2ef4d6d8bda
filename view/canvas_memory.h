#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "view/picture_size.h"

namespace cvn::view {

/// How far a picture has come. Times are the monotonic clock's nanoseconds.
struct CanvasProgress {
  /// Frames of which every tile has been drawn, since connecting.
  uint64_t updates = 0;
  /// Just before connecting.
  uint64_t connectNs = 0;
  /// When every pixel of the present picture had arrived once; 0 before.
  uint64_t fullPictureNs = 0;
  /// Since connecting.
  uint64_t tilesDrawn = 0;
};

/// Where a picture's pixels live: `width * 4` bytes a row, B, G, R, X, top row first. One thread at a time.
class CanvasMemory {
 public:
  virtual ~CanvasMemory() = default;
  /// Black pixels for a picture of `size`; those handed out before are gone. Empty with `error` set when
  /// there is no room.
  virtual std::span<uint8_t> Renew(PictureSize size, const CanvasProgress& progress, std::string& error) = 0;
  /// Called whenever tiles have been drawn.
  virtual void Publish(const CanvasProgress& progress) = 0;
};

/// Pixels for nobody but the viewer itself.
class PrivateCanvasMemory final : public CanvasMemory {
 public:
  std::span<uint8_t> Renew(PictureSize size, const CanvasProgress& progress, std::string& error) override;
  void Publish(const CanvasProgress& progress) override;

 private:
  std::vector<uint8_t> pixels_;
};

}  // namespace cvn::view
