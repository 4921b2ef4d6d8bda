#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "view/canvas_memory.h"
#include "view/mapped_file.h"

namespace cvn::view {

/// The picture as a file that another program maps into its memory and sees live.
///
/// Everything is little-endian. Header page: u32 magic at 0, width at 4, height at 8, stride in bytes at 12;
/// u64 updates at 16, connect time at 24, full-picture time at 32, tiles drawn at 40 (`CanvasProgress`). From
/// byte 4096 on, height x stride bytes of B, G, R, X pixels, top row first.
///
/// The magic is written last, so whoever finds it finds the rest. The u64 words are written after the pixels
/// that they tell of, `updates` last of all. A picture of another size is a new file, which takes the name in
/// one step after the old file has lost its magic: a reader that misses the magic opens the name again. Only
/// this user may read the file; it stays behind when the viewer ends.
class CanvasFile final : public CanvasMemory {
 public:
  static constexpr size_t kHeaderBytes = 4096;
  static constexpr uint32_t kMagic = 0x53564E43;

  /// Removes a file that an earlier run has left at `path` (UTF-8), so that nobody takes it for this run's.
  /// Null with `error` set when something else is there, or when no file can be made there.
  static std::unique_ptr<CanvasFile> Prepare(const std::string& path, std::string& error);

  std::span<uint8_t> Renew(PictureSize size, const CanvasProgress& progress, std::string& error) override;
  void Publish(const CanvasProgress& progress) override;

 private:
  explicit CanvasFile(std::string path) : path_(std::move(path)) {}

  std::string path_;
  std::unique_ptr<MappedFile> file_;
};

}  // namespace cvn::view
