#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace cvn::view {

/// A new file whose bytes are mapped into memory and shared with every process that maps it too. Unmapped,
/// but not removed, when destroyed.
class MappedFile {
 public:
  /// Makes the file at `path` (UTF-8), where there must be none, `byteCount` zeros long and for this user
  /// only. Its room on the disk is reserved, so that writing to it later cannot fail. Null with `error` set.
  static std::unique_ptr<MappedFile> Make(const std::string& path, size_t byteCount, std::string& error);

  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  std::span<uint8_t> Bytes() const { return bytes_; }

 private:
  explicit MappedFile(std::span<uint8_t> bytes) : bytes_(bytes) {}

  std::span<uint8_t> bytes_;
};

}  // namespace cvn::view
