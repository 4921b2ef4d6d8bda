#include "session/tile_stream_sender.h"

#include <algorithm>
#include <span>
#include <utility>

#include "base/log.h"
#include "tiles/tile_message.h"

namespace cvn::agent {
namespace {

constexpr uint64_t kCappedBacklogBytes = 16'384;
constexpr int64_t kDropsPerLogLine = 10;
/// On a faster link a crisp frame arrives about as soon as a coarse one would.
constexpr double kCoarseBytesPerSecond = 716'800;
constexpr int64_t kLoggedFrameBytes = 40'960;
constexpr int kMostLosslessBudget = 32;
/// At least this good is a photographic tile of a picture that rests.
constexpr int kRestingTileQuality = 85;

}  // namespace

TileStreamSender::TileStreamSender(const Clock& clock, TileTransport& transport, TileImageCodec* codec,
                                   const TileStreamSettings& settings)
    : clock_(clock), transport_(transport), codec_(codec), settings_(settings), queue_(transport) {}

int64_t TileStreamSender::SendFrame(const CapturedFrame& frame) {
  if (!FitsEncoder(frame)) region_.Forget();
  region_.Add(frame);
  if (!transport_.IsOpen()) return 0;
  PumpPending();
  if (!WantsFrame() || DropsFrame()) return 0;
  return OrStartAnew([&] { return EncodeAndQueue(frame); });
}

bool TileStreamSender::ImprovementDue() const {
  return !WantsFrame() && transport_.IsOpen() &&
         improvement_.Next(clock_.NowMs()) != ImprovementPlan::Step::kNothing;
}

int64_t TileStreamSender::ImprovePicture(const CapturedFrame& frame) {
  if (!ImprovementDue() || !queue_.Empty()) return 0;
  const Allowance allowance = MeasureAllowance();
  const auto passBytes = ImprovementPlan::PassBytes(allowance.backlogBytes, allowance.allowedBytes);
  if (!passBytes) return 0;
  return OrStartAnew([&] { return EncodeImprovement(frame, *passBytes); });
}

int64_t TileStreamSender::PumpPending() {
  if (queue_.Empty() || !transport_.IsOpen()) return 0;
  return queue_.Pump(MeasureAllowance().allowedBytes);
}

int64_t TileStreamSender::SendHeartbeat() {
  if (!transport_.IsOpen()) return 0;
  auto message = Envelope(transport_.Protocol(), epoch_.keyframes, epoch_.width, epoch_.height,
                          BuildHeartbeat(nextSequence_));
  const auto bytes = static_cast<int64_t>(message.size());
  transport_.Send(std::move(message));
  return bytes;
}

void TileStreamSender::SetQuality(int tileQuality, int paletteColors, int losslessBudget) {
  TileEncoderSettings& quality = settings_.encoder;
  quality.tileQ = std::clamp(tileQuality, 1, 100);
  quality.paletteColors = std::clamp(paletteColors, 1, 256);
  if (losslessBudget >= 0) quality.losslessBudget = std::min(losslessBudget, kMostLosslessBudget);
  if (encoder_) encoder_->SetQuality(quality.tileQ, quality.paletteColors, quality.losslessBudget);
}

void TileStreamSender::SetGrayscale(bool grayscale) {
  if (grayscale == grayscale_) return;
  grayscale_ = grayscale;
  region_.Forget();
  if (encoder_) encoder_->SetGrayscale(grayscale);
}

bool TileStreamSender::PrefersWebp() const {
  return meter_.BytesPerSecond() < kCoarseBytesPerSecond && !producerOverloaded_;
}

TileStreamSender::Allowance TileStreamSender::MeasureAllowance() {
  const auto backlogBytes = static_cast<uint64_t>(transport_.QueuedBytes());
  uint64_t allowedBytes = meter_.AllowedBacklog(
      {.nowMs = clock_.NowMs(), .backlogBytes = backlogBytes, .drainedBytes = transport_.SentBytes()});
  if (settings_.capBacklog) allowedBytes = std::min(allowedBytes, kCappedBacklogBytes);
  return {.backlogBytes = backlogBytes, .allowedBytes = allowedBytes};
}

bool TileStreamSender::DropsFrame() {
  const Allowance allowance = MeasureAllowance();
  if (queue_.Empty() && allowance.backlogBytes <= allowance.allowedBytes) return false;
  CountDrop(allowance);
  return true;
}

void TileStreamSender::CountDrop(const Allowance& allowance) {
  ++droppedFrames_;
  measuredKbps_ = static_cast<int64_t>(meter_.BytesPerSecond() * 8 / 1000);
  lastDropMs_ = clock_.NowMs();
  if (droppedFrames_ - droppedAtLastLog_ < kDropsPerLogLine) return;
  droppedAtLastLog_ = droppedFrames_;
  Log().Info(
      "[tiles] backpressure: %lld frames dropped (channel backlog %llu KB > %llu KB allowed at %.0f KB/s "
      "measured drain)",
      static_cast<long long>(droppedFrames_), static_cast<unsigned long long>(allowance.backlogBytes / 1024),
      static_cast<unsigned long long>(allowance.allowedBytes / 1024), meter_.BytesPerSecond() / 1024);
}

int64_t TileStreamSender::EncodeAndQueue(const CapturedFrame& frame) {
  PrepareEncoder(frame);
  const EncodedFrame encoded = Encode(frame);
  improvement_.NoteFrame(encoded, clock_.NowMs());
  return QueueEncoded(encoded);
}

int64_t TileStreamSender::EncodeImprovement(const CapturedFrame& frame, int64_t passBytes) {
  PrepareEncoder(frame);
  const ImprovementPlan::Step step = improvement_.Next(clock_.NowMs());
  const TileEncoderSettings& quality = settings_.encoder;
  if (step == ImprovementPlan::Step::kCoarseResend) {
    encoder_->SetQuality(std::max(quality.tileQ, kRestingTileQuality), quality.paletteColors,
                         quality.losslessBudget);
    encoder_->RequestCoarseResend(passBytes);
  } else {
    encoder_->RequestRefine(passBytes);
  }
  const EncodedFrame encoded = Encode(frame);
  encoder_->SetQuality(quality.tileQ, quality.paletteColors, quality.losslessBudget);
  improvement_.NoteImprovement(step, encoded);
  return QueueEncoded(encoded);
}

EncodedFrame TileStreamSender::Encode(const CapturedFrame& frame) {
  const int64_t startNs = clock_.NowNs();
  const auto changed = region_.Rects();
  const std::span<const uint8_t> pixels =
      grayscale_ ? grayFrame_.Convert(frame, changed) : std::span(frame.pixels, frame.byteSize);
  EncodedFrame encoded = encoder_->Encode(pixels, changed);
  encodeMs_ = (clock_.NowNs() - startNs) / 1'000'000;
  region_.Clear();
  return encoded;
}

int64_t TileStreamSender::QueueEncoded(const EncodedFrame& encoded) {
  if (encoded.tiles.empty()) return 0;
  const uint32_t sequence = nextSequence_++;
  if (encoded.keyframe) ++epoch_.keyframes;
  LogFrame(sequence, encoded);
  QueueFrame(sequence, encoded);
  PumpPending();
  return encoded.payloadBytes;
}

/// What the viewer has of a frame that failed is unknown.
template <typename Work>
int64_t TileStreamSender::OrStartAnew(Work work) {
  try {
    return work();
  } catch (...) {
    encoder_.reset();
    throw;
  }
}

void TileStreamSender::PrepareEncoder(const CapturedFrame& frame) {
  if (!FitsEncoder(frame)) {
    epoch_.width = static_cast<int>(frame.width);
    epoch_.height = static_cast<int>(frame.height);
    encoder_ = std::make_unique<TileEncoder>(epoch_.width, epoch_.height, codec_, settings_.encoder);
    encoder_->SetGrayscale(grayscale_);
    region_.Forget();
  }
  if (std::exchange(repaintPending_, false)) {
    encoder_->ForgetReference();
    region_.Forget();
  }
  encoder_->SetAllowWebp(PrefersWebp());
  encoder_->SetEstimatePhotographic(!producerOverloaded_);
}

bool TileStreamSender::FitsEncoder(const CapturedFrame& frame) const {
  return encoder_ && frame.width == static_cast<uint32_t>(epoch_.width) &&
         frame.height == static_cast<uint32_t>(epoch_.height);
}

void TileStreamSender::QueueFrame(uint32_t sequence, const EncodedFrame& encoded) {
  const std::span<const EncodedTile> tiles(encoded.tiles);
  Queue(BuildFrameHeader({.sequence = sequence,
                          .keyframe = encoded.keyframe,
                          .width = static_cast<uint16_t>(epoch_.width),
                          .height = static_cast<uint16_t>(epoch_.height),
                          .tileHeight = static_cast<uint16_t>(encoder_->TileHeight()),
                          .tileCount = static_cast<uint16_t>(tiles.size())}));
  size_t first = 0;
  size_t batchBytes = 0;
  for (size_t i = 0; i < tiles.size(); ++i) {
    const size_t tileBytes = tiles[i].payload.size();
    if (i > first && batchBytes + tileBytes > kMaxBatchPayloadBytes) {
      if (!transport_.IsOpen()) return;
      Queue(BuildTileBatch(sequence, tiles.subspan(first, i - first)));
      first = i;
      batchBytes = 0;
    }
    batchBytes += tileBytes;
  }
  if (transport_.IsOpen()) Queue(BuildTileBatch(sequence, tiles.subspan(first)));
}

void TileStreamSender::LogFrame(uint32_t sequence, const EncodedFrame& encoded) const {
  if (!encoded.keyframe && !encoded.losslessRefine && encoded.payloadBytes < kLoggedFrameBytes) return;
  Log().Info("[tiles] frame seq=%u tiles=%d/%d lossless=%d bytes=%lld enc=%lldms backlog=%lluKB%s%s%s",
             sequence, encoded.encodedTiles, encoded.totalTiles, encoded.losslessTiles,
             static_cast<long long>(encoded.payloadBytes), static_cast<long long>(encodeMs_),
             static_cast<unsigned long long>(transport_.QueuedBytes()) / 1024,
             encoded.keyframe ? " keyframe" : "", encoded.coarse ? " coarse" : "",
             encoded.losslessRefine ? " lossless-refine" : "");
}

}  // namespace cvn::agent
