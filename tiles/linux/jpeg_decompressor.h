#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tiles/linux/jpeg_failure.h"

namespace cvn::agent {

/// Decodes JPEG files that may be hostile. The library's handle is reused. One thread at a time.
class JpegDecompressor {
 public:
  JpegDecompressor();
  ~JpegDecompressor();
  JpegDecompressor(const JpegDecompressor&) = delete;
  JpegDecompressor& operator=(const JpegDecompressor&) = delete;

  bool IsUsable() const { return usable_; }

  /// Makes `pixels` packed B, G, R, 255 pixels of exactly this size; false, before anything is decoded, when
  /// the file's header names another, and when anything at all is wrong with it.
  bool Decompress(std::span<const uint8_t> file, int width, int height, std::vector<uint8_t>& pixels);

 private:
  bool SetUp();
  bool ReadHeader(std::span<const uint8_t> file);
  bool ReadPixels(uint8_t* pixels);

  JpegFailure failure_;
  jpeg_decompress_struct handle_{};
  jpeg_progress_mgr progress_{};
  bool usable_ = false;
};

}  // namespace cvn::agent
