#include "tests/end_to_end/wire_client.h"

#include <array>

namespace cvn::end_to_end {
namespace {

constexpr size_t kHeaderBytes = 5;
constexpr size_t kEnvelopeBytes = 9;
constexpr int kEnvelope = 5;
constexpr int kFrameHeader = 1;
constexpr size_t kKeyframeAt = 5;

size_t PayloadBytes(const std::vector<uint8_t>& frame) {
  return size_t{frame[1]} << 24 | size_t{frame[2]} << 16 | size_t{frame[3]} << 8 | size_t{frame[4]};
}

}  // namespace

int WireFrame::TileType() const {
  if (payload.empty()) return 0;
  return payload[0] == kEnvelope && payload.size() > kEnvelopeBytes ? payload[kEnvelopeBytes] : payload[0];
}

bool WireFrame::BeginsKeyframe() const {
  return channel == 1 && TileType() == kFrameHeader && payload.at(kEnvelopeBytes + kKeyframeAt) == 1;
}

std::optional<WireFrame> WireClient::Next(std::chrono::milliseconds patience) {
  if (buffer_.empty() && !socket_.Readable(patience)) return std::nullopt;
  if (!Fill(kHeaderBytes)) return std::nullopt;
  const size_t frameBytes = kHeaderBytes + PayloadBytes(buffer_);
  if (!Fill(frameBytes)) return std::nullopt;
  const auto end = buffer_.begin() + static_cast<ptrdiff_t>(frameBytes);
  WireFrame frame{buffer_[0], {buffer_.begin() + kHeaderBytes, end}};
  buffer_.erase(buffer_.begin(), end);
  return frame;
}

void WireClient::SendControl(std::string_view json) {
  std::vector<uint8_t> frame{0, 0, 0, static_cast<uint8_t>(json.size() >> 8),
                             static_cast<uint8_t>(json.size())};
  frame.insert(frame.end(), json.begin(), json.end());
  socket_.SendAll(frame);
}

bool WireClient::Fill(size_t byteCount) {
  std::array<uint8_t, 65536> chunk;
  while (buffer_.size() < byteCount) {
    const size_t count = socket_.Receive(chunk);
    if (count == 0) {
      closed_ = true;
      return false;
    }
    buffer_.insert(buffer_.end(), chunk.begin(), chunk.begin() + static_cast<ptrdiff_t>(count));
  }
  return true;
}

}  // namespace cvn::end_to_end
