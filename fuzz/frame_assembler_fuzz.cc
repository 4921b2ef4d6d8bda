// Whatever an agent sends: what the assembler delivers lies inside the picture and can be drawn there.
//
// The input is a row of messages: a flag byte (1: put it into an envelope, 2: split it into fragments before
// that), a length (2 bytes, big-endian, cut to what is there) and the bytes.

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "tiles/tile_message.h"
#include "view/frame_assembler.h"
#include "view/tile_decoder.h"
#include "view/view_platform.h"

namespace {

using cvn::agent::TileRecord;
using cvn::view::Delivery;
using cvn::view::PictureSize;

constexpr PictureSize kSize{200, 100};
constexpr uint8_t kInEnvelope = 1;
constexpr uint8_t kInFragments = 2;
/// Larger pictures are followed but not drawn: the drawing is the same.
constexpr int64_t kMostDrawnPixels = 1 << 18;

void Require(bool held) {
  if (!held) std::abort();
}

cvn::TileImageCodec& Codec() {
  static const std::unique_ptr<cvn::TileImageCodec> codec = cvn::view::CreateHostImageCodec();
  return *codec;
}

class Viewer {
 public:
  bool Take(std::span<const uint8_t> message) {
    Delivery delivery;
    std::string error;
    const bool taken = assembler_.Take(message, delivery, error);
    Require(taken == error.empty());
    if (!taken) return false;
    if (delivery.kind == cvn::view::DeliveryKind::kFrameBegin) Begin(delivery.size);
    for (const TileRecord& tile : delivery.tiles) Draw(tile);
    return true;
  }

 private:
  void Begin(PictureSize size) {
    Require(size.Pixels() >= 1 && size.Pixels() <= cvn::view::kMaxPicturePixels);
    size_ = size;
    if (size.Pixels() <= kMostDrawnPixels) picture_.assign(static_cast<size_t>(size.Pixels()) * 4, 0);
  }

  void Draw(const TileRecord& tile) {
    Require(tile.width >= 1 && tile.height >= 1);
    Require(tile.x + tile.width <= size_.width && tile.y + tile.height <= size_.height);
    if (size_.Pixels() > kMostDrawnPixels) return;
    const size_t strideBytes = static_cast<size_t>(size_.width) * 4;
    std::string error;
    const bool drawn =
        decoder_.Decode(tile, {picture_.data() + tile.y * strideBytes + tile.x * 4u, strideBytes}, error);
    Require(drawn == error.empty());
  }

  cvn::view::FrameAssembler assembler_;
  cvn::view::TileDecoder decoder_{Codec()};
  PictureSize size_;
  std::vector<uint8_t> picture_;
};

std::vector<std::vector<uint8_t>> Messages(uint8_t flags, std::span<const uint8_t> bytes) {
  std::vector<std::vector<uint8_t>> messages{{bytes.begin(), bytes.end()}};
  if ((flags & kInFragments) != 0 && !bytes.empty()) messages = cvn::agent::Fragment(bytes, 1);
  if ((flags & kInEnvelope) == 0) return messages;
  for (auto& message : messages)
    message = cvn::agent::Envelope(cvn::agent::kTilesV3, 1, kSize.width, kSize.height, std::move(message));
  return messages;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  cvn::agent::ByteReader reader({data, size});
  Viewer viewer;
  while (!reader.AtEnd()) {
    const uint8_t flags = reader.U8();
    const size_t length = reader.U16();
    const auto bytes = reader.Bytes(std::min(length, reader.Rest().size()));
    for (const auto& message : Messages(flags, bytes))
      if (!viewer.Take(message)) return 0;
  }
  return 0;
}
