#include "tiles/linux/jpeg_compressor.h"

#include <algorithm>

namespace cvn::agent {
namespace {

constexpr JDIMENSION kRowsPerCall = 16;

void StartInBuffer(j_compress_ptr) {}

// The buffer holds whatever an image of its size can take: more is a fault.
boolean RefuseMore(j_compress_ptr handle) {
  handle->err->error_exit(reinterpret_cast<j_common_ptr>(handle));
  return FALSE;
}

void EndInBuffer(j_compress_ptr) {}

// The library's own bound for whole chroma: 6 bytes a pixel of the padded image, and the headers.
size_t LargestFile(const PixelView& image) {
  const auto padded = [](int side) { return (static_cast<size_t>(side) + 7) / 8 * 8; };
  return padded(image.width) * padded(image.height) * 6 + 2048;
}

// Deliberate: one pair of Huffman tables for all components, and no component halved. See the header.
void ChooseComponents(jpeg_compress_struct& handle) {
  for (int i = 0; i < handle.num_components; ++i) {
    jpeg_component_info& component = handle.comp_info[i];
    component.h_samp_factor = component.v_samp_factor = 1;
    component.dc_tbl_no = component.ac_tbl_no = 0;
  }
}

void WriteRows(jpeg_compress_struct& handle, const PixelView& image) {
  JSAMPROW rows[kRowsPerCall];
  while (handle.next_scanline < handle.image_height) {
    const JDIMENSION count = std::min(kRowsPerCall, handle.image_height - handle.next_scanline);
    for (JDIMENSION i = 0; i < count; ++i)
      rows[i] = const_cast<JSAMPROW>(image.Row(static_cast<int>(handle.next_scanline + i)));
    jpeg_write_scanlines(&handle, rows, count);
  }
}

}  // namespace

JpegCompressor::JpegCompressor() {
  handle_.err = FailByJump(failure_);
  destination_.init_destination = StartInBuffer;
  destination_.empty_output_buffer = RefuseMore;
  destination_.term_destination = EndInBuffer;
  usable_ = SetUp();
}

JpegCompressor::~JpegCompressor() {
  jpeg_destroy_compress(&handle_);
}

bool JpegCompressor::SetUp() {
  if (setjmp(failure_.target)) return false;
  jpeg_create_compress(&handle_);
  handle_.dest = &destination_;
  handle_.input_components = 4;
  handle_.in_color_space = JCS_EXT_BGRX;
  jpeg_set_defaults(&handle_);
  ChooseComponents(handle_);
  return true;
}

std::span<const uint8_t> JpegCompressor::Compress(const PixelView& image, int quality) {
  if (output_.size() < LargestFile(image)) output_.resize(LargestFile(image));
  destination_.next_output_byte = output_.data();
  destination_.free_in_buffer = output_.size();
  if (!usable_ || !WriteFile(image, quality)) return {};
  return {output_.data(), output_.size() - destination_.free_in_buffer};
}

bool JpegCompressor::WriteFile(const PixelView& image, int quality) {
  if (setjmp(failure_.target)) return false;
  jpeg_abort_compress(&handle_);  // what an earlier failure left half done
  handle_.image_width = static_cast<JDIMENSION>(image.width);
  handle_.image_height = static_cast<JDIMENSION>(image.height);
  if (quality != quality_) jpeg_set_quality(&handle_, quality, TRUE);
  quality_ = quality;
  jpeg_start_compress(&handle_, TRUE);
  WriteRows(handle_, image);
  jpeg_finish_compress(&handle_);
  return true;
}

}  // namespace cvn::agent
