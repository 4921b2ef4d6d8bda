#include "view/canvas_file.h"

#include <atomic>
#include <bit>
#include <filesystem>
#include <system_error>

#include "base/utf.h"
#include "view/text.h"

namespace cvn::view {
namespace {

static_assert(std::endian::native == std::endian::little, "the words of the file are written as they are");

constexpr size_t kMagicAt = 0;
constexpr size_t kWidthAt = 4;
constexpr size_t kHeightAt = 8;
constexpr size_t kStrideAt = 12;
constexpr size_t kUpdatesAt = 16;
constexpr size_t kConnectNsAt = 24;
constexpr size_t kFullPictureNsAt = 32;
constexpr size_t kTilesDrawnAt = 40;

/// The other program reads while this one writes: every word is stored whole, after what it tells of.
template <typename Word>
void Store(std::span<uint8_t> file, size_t offset, Word value) {
  std::atomic_ref<Word>(*reinterpret_cast<Word*>(file.data() + offset))
      .store(value, std::memory_order_release);
}

void StoreProgress(std::span<uint8_t> file, const CanvasProgress& progress) {
  Store(file, kConnectNsAt, progress.connectNs);
  Store(file, kFullPictureNsAt, progress.fullPictureNs);
  Store(file, kTilesDrawnAt, progress.tilesDrawn);
  Store(file, kUpdatesAt, progress.updates);
}

void StoreHeader(std::span<uint8_t> file, PictureSize size, const CanvasProgress& progress) {
  Store(file, kWidthAt, static_cast<uint32_t>(size.width));
  Store(file, kHeightAt, static_cast<uint32_t>(size.height));
  Store(file, kStrideAt, static_cast<uint32_t>(size.width) * 4);
  StoreProgress(file, progress);
  Store(file, kMagicAt, CanvasFile::kMagic);
}

std::string NewPath(const std::string& path) {
  return path + ".new";
}

bool RemoveFile(const std::string& path, std::string& error) {
  std::error_code failure;
  std::filesystem::remove(agent::PathFromUtf8(path), failure);
  return !failure ||
         Refuse(error, FormatText("cannot remove %s: %s", path.c_str(), failure.message().c_str()));
}

bool RenameFile(const std::string& from, const std::string& to, std::string& error) {
  std::error_code failure;
  std::filesystem::rename(agent::PathFromUtf8(from), agent::PathFromUtf8(to), failure);
  return !failure || Refuse(error, FormatText("cannot rename %s to %s: %s", from.c_str(), to.c_str(),
                                              failure.message().c_str()));
}

}  // namespace

std::unique_ptr<CanvasFile> CanvasFile::Prepare(const std::string& path, std::string& error) {
  std::error_code failure;
  const auto found = std::filesystem::symlink_status(agent::PathFromUtf8(path), failure);
  if (std::filesystem::exists(found) && !std::filesystem::is_regular_file(found)) {
    error = FormatText("%s is there and is no ordinary file", path.c_str());
    return nullptr;
  }
  // Making a file and removing it again tells now, and not after connecting, whether the place will do.
  const std::string newPath = NewPath(path);
  if (!RemoveFile(newPath, error) || !MappedFile::Make(newPath, kHeaderBytes, error)) return nullptr;
  if (!RemoveFile(newPath, error) || !RemoveFile(path, error)) return nullptr;
  return std::unique_ptr<CanvasFile>(new CanvasFile(path));
}

std::span<uint8_t> CanvasFile::Renew(PictureSize size, const CanvasProgress& progress, std::string& error) {
  const std::string newPath = NewPath(path_);
  const size_t pixelBytes = static_cast<size_t>(size.Pixels()) * 4;
  auto file = MappedFile::Make(newPath, kHeaderBytes + pixelBytes, error);
  if (!file) return {};
  StoreHeader(file->Bytes(), size, progress);
  if (file_) Store(file_->Bytes(), kMagicAt, uint32_t{0});
  if (!RenameFile(newPath, path_, error)) return {};
  file_ = std::move(file);
  return file_->Bytes().subspan(kHeaderBytes);
}

void CanvasFile::Publish(const CanvasProgress& progress) {
  StoreProgress(file_->Bytes(), progress);
}

}  // namespace cvn::view
