#include "tiles/linux/jpeg_decompressor.h"

#include <algorithm>

namespace cvn::agent {
namespace {

constexpr JDIMENSION kRowsPerCall = 16;

/// Progressive files have about ten. Every scan goes over the whole image, so that thousands of them, a few
/// bytes each, would keep the decoder busy for a long time.
constexpr int kMaxScans = 64;

void RefuseManyScans(j_common_ptr common) {
  const auto* const handle = reinterpret_cast<j_decompress_ptr>(common);
  if (handle->input_scan_number > kMaxScans) handle->err->error_exit(common);
}

}  // namespace

JpegDecompressor::JpegDecompressor() {
  handle_.err = FailByJump(failure_);
  progress_.progress_monitor = RefuseManyScans;
  usable_ = SetUp();
}

JpegDecompressor::~JpegDecompressor() {
  jpeg_destroy_decompress(&handle_);
}

bool JpegDecompressor::SetUp() {
  if (setjmp(failure_.target)) return false;
  jpeg_create_decompress(&handle_);
  handle_.progress = &progress_;
  return true;
}

bool JpegDecompressor::Decompress(std::span<const uint8_t> file, int width, int height,
                                  std::vector<uint8_t>& pixels) {
  if (!usable_ || !ReadHeader(file)) return false;
  if (handle_.image_width != static_cast<JDIMENSION>(width)) return false;
  if (handle_.image_height != static_cast<JDIMENSION>(height)) return false;
  pixels.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
  return ReadPixels(pixels.data());
}

bool JpegDecompressor::ReadHeader(std::span<const uint8_t> file) {
  if (setjmp(failure_.target)) return false;
  jpeg_abort_decompress(&handle_);  // what an earlier failure left half done
  jpeg_mem_src(&handle_, file.data(), file.size());
  return jpeg_read_header(&handle_, TRUE) == JPEG_HEADER_OK;
}

bool JpegDecompressor::ReadPixels(uint8_t* pixels) {
  if (setjmp(failure_.target)) return false;
  handle_.out_color_space = JCS_EXT_BGRA;
  jpeg_start_decompress(&handle_);
  const size_t rowBytes = size_t{handle_.output_width} * 4;
  JSAMPROW rows[kRowsPerCall];
  while (handle_.output_scanline < handle_.output_height) {
    const JDIMENSION count = std::min(kRowsPerCall, handle_.output_height - handle_.output_scanline);
    for (JDIMENSION i = 0; i < count; ++i) rows[i] = pixels + (handle_.output_scanline + i) * rowBytes;
    jpeg_read_scanlines(&handle_, rows, count);
  }
  jpeg_finish_decompress(&handle_);
  return true;
}

}  // namespace cvn::agent
