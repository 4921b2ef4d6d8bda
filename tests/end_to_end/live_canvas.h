#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tests/end_to_end/picture.h"

namespace cvn::end_to_end {

/// Reads the file in which a viewer shows its picture (docs/wire-format.md has its layout).
class LiveCanvas {
 public:
  explicit LiveCanvas(std::string path) : path_(std::move(path)) {}

  /// The picture as it is now; nothing while there is none.
  std::optional<Picture> Read() const;
  /// The part of it whose top left corner is x, y, which lies inside.
  std::optional<Picture> ReadPart(int x, int y, int width, int height) const;
  /// Whether every pixel has arrived once.
  bool IsFull() const;
  /// Updates drawn so far; 0 while there is no picture.
  uint64_t Updates() const;

 private:
  std::string path_;
};

}  // namespace cvn::end_to_end
