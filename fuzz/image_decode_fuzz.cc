// Whatever a tile's payload is: it decodes to an image of exactly the size asked for, or to nothing. The
// first two bytes are that size.

#include <cstdlib>
#include <vector>

#include "tiles/linux/turbo_image_codec.h"

namespace {

void Require(bool held) {
  if (!held) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const auto codec = cvn::agent::CreateTurboImageCodec();
  if (size < 2) return 0;
  const int width = data[0];
  const int height = data[1];
  std::vector<uint8_t> pixels;
  if (codec->Decode(std::span(data, size).subspan(2), width, height, pixels))
    Require(pixels.size() == static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
  return 0;
}
