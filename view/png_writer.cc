#include "view/png_writer.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

#include "view/text.h"

namespace cvn::view {
namespace {

/// Screens are mostly flat: more effort than this costs much time for little size.
constexpr int kCompressionLevel = 3;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/// What libpng reported; the caller's buffer outlives the jump out of libpng.
struct PngFault {
  char text[128] = "";
};

void KeepFault(png_structp png, png_const_charp message) {
  auto* const fault = static_cast<PngFault*>(png_get_error_ptr(png));
  std::snprintf(fault->text, sizeof fault->text, "%s", message);
  png_longjmp(png, 1);
}

void IgnoreWarning(png_structp, png_const_charp) {}

void PutRows(png_structp png, std::span<const uint8_t> pixels, PictureSize size) {
  const size_t strideBytes = static_cast<size_t>(size.width) * 4;
  for (int y = 0; y < size.height; ++y)
    png_write_row(png, pixels.data() + static_cast<size_t>(y) * strideBytes);
}

/// libpng leaves by a long jump when it fails, so nothing here may need a destructor.
bool Encode(png_structp png, png_infop info, std::FILE* file, std::span<const uint8_t> pixels,
            PictureSize size) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  png_init_io(png, file);
  // Both limits default to a million pixels.
  png_set_user_limits(png, 0x7fffffff, 0x7fffffff);
  png_set_compression_level(png, kCompressionLevel);
  png_set_IHDR(png, info, static_cast<png_uint_32>(size.width), static_cast<png_uint_32>(size.height), 8,
               PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_set_bgr(png);
  png_set_filler(png, 0, PNG_FILLER_AFTER);
  PutRows(png, pixels, size);
  png_write_end(png, nullptr);
  return true;
}

bool EncodeToFile(std::FILE* file, std::span<const uint8_t> pixels, PictureSize size, PngFault& fault) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &fault, KeepFault, IgnoreWarning);
  png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
  const bool ok = info != nullptr && Encode(png, info, file, pixels, size);
  png_destroy_write_struct(&png, &info);
  return ok;
}

}  // namespace

bool WritePng(const std::string& path, std::span<const uint8_t> pixels, PictureSize size,
              std::string& error) {
  std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "wb"));
  if (!file) return Refuse(error, FormatText("cannot create %s: %s", path.c_str(), std::strerror(errno)));
  PngFault fault;
  if (!EncodeToFile(file.get(), pixels, size, fault))
    return Refuse(error, FormatText("cannot write %s: %s", path.c_str(), fault.text));
  // Only closing tells whether the last bytes have found room on the disk.
  if (std::fclose(file.release()) != 0)
    return Refuse(error, FormatText("cannot write %s: %s", path.c_str(), std::strerror(errno)));
  return true;
}

}  // namespace cvn::view
