#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tiles/linux/jpeg_failure.h"
#include "tiles/pixel_view.h"

namespace cvn::agent {

/// Makes JPEG files of B, G, R, X pixels. The library's handle, its tables and the output buffer are reused,
/// so that a tile costs no set-up. One thread at a time.
///
/// Chroma is kept whole (4:4:4) and all components share one pair of Huffman tables. Against the library's
/// defaults (4:2:0, two pairs) a photographic tile is no larger, since the 216 bytes of the second pair weigh
/// more than the chroma of 64x64 pixels, and coloured text in the picture gains 5 to 10 dB. Tables made to
/// measure would save another fifth, at three times the time.
class JpegCompressor {
 public:
  JpegCompressor();
  ~JpegCompressor();
  JpegCompressor(const JpegCompressor&) = delete;
  JpegCompressor& operator=(const JpegCompressor&) = delete;

  bool IsUsable() const { return usable_; }

  /// The whole file, valid until the next call; empty on failure.
  std::span<const uint8_t> Compress(const PixelView& image, int quality);

 private:
  bool SetUp();
  bool WriteFile(const PixelView& image, int quality);

  JpegFailure failure_;
  jpeg_compress_struct handle_{};
  jpeg_destination_mgr destination_{};
  std::vector<uint8_t> output_;
  int quality_ = 0;
  bool usable_ = false;
};

}  // namespace cvn::agent
