#pragma once

#include <cstdint>
#include <memory>

#include "base/clock.h"
#include "capture/screen_capturer.h"
#include "net/tile_transport.h"
#include "session/changed_region.h"
#include "session/drain_meter.h"
#include "session/gray_frame.h"
#include "session/improvement_plan.h"
#include "session/tile_message_queue.h"
#include "tiles/tile_encoder.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

struct TileStreamSettings {
  TileEncoderSettings encoder;
  /// Keeps the backlog below 16384 bytes: for a line that others share.
  bool capBacklog = false;
};

/// Turns captured frames into the messages of the tile stream, and paces them so that the viewer sees a
/// recent picture rather than an ever-growing queue: a frame that finds the connection behind is dropped
/// whole.
///
/// One thread at a time. Everything borrowed outlives it. `SendFrame` and `SendHeartbeat` throw what the tile
/// encoder and the tile messages throw; the next frame is then a keyframe.
class TileStreamSender {
 public:
  /// `codec` may be null: no tile then travels in a photographic coding.
  TileStreamSender(const Clock& clock, TileTransport& transport, TileImageCodec* codec,
                   const TileStreamSettings& settings);

  /// Encodes and queues what changed since the last frame that was not dropped. Returns the encoded bytes; 0
  /// when the frame was dropped, nothing changed or the transport is closed.
  int64_t SendFrame(const CapturedFrame& frame);

  /// True while parts of the viewer's picture are rougher than the screen.
  bool HasRoughParts() const { return !improvement_.Finished(); }
  /// True when it has rested long enough to do something about them.
  bool ImprovementDue() const;
  /// Queues one bite of what makes the viewer's picture exact, as far as the line has room for it. `frame` is
  /// the one last given to `SendFrame`. Returns the encoded bytes.
  int64_t ImprovePicture(const CapturedFrame& frame);
  /// Looks once more whether a part of the picture could be improved.
  void LookForRoughParts() { improvement_.LookAgain(); }

  /// Hands queued messages to the transport as far as its backlog allows. Returns the bytes handed over.
  int64_t PumpPending();

  /// Tells the viewer at once, past the queue, that the stream is alive. Returns the bytes sent.
  int64_t SendHeartbeat();

  /// Both are clamped, to 1..100 and 1..256; a negative `losslessBudget` changes nothing.
  void SetQuality(int tileQuality, int paletteColors, int losslessBudget);
  /// While set, no frame is coarse and tiles are not estimated: the machine has no time for it.
  void SetProducerOverloaded(bool overloaded) { producerOverloaded_ = overloaded; }
  /// Whether the viewer gets the picture without its colours.
  void SetGrayscale(bool grayscale);
  /// The next frame is a keyframe.
  void RequestRepaint() { repaintPending_ = true; }
  /// The next frame comes from another capturer, whose hints tell nothing about earlier frames.
  void ForgetChangeHints() { region_.Forget(); }

  /// True while the viewer lacks something that even an unchanged frame would bring.
  bool WantsFrame() const { return encoder_ == nullptr || repaintPending_ || !region_.Empty(); }
  bool HasPending() const { return !queue_.Empty(); }
  /// Whether photographic tiles are tried as WebP: it is slow to make, and pays on a slow line.
  bool PrefersWebp() const;
  /// The drain estimate when a frame was last dropped, and when that was (negative before the first).
  int64_t MeasuredKbps() const { return measuredKbps_; }
  int64_t LastDropMs() const { return lastDropMs_; }

 private:
  struct Allowance {
    uint64_t backlogBytes = 0;
    uint64_t allowedBytes = 0;
  };

  Allowance MeasureAllowance();
  bool DropsFrame();
  void CountDrop(const Allowance& allowance);
  int64_t EncodeAndQueue(const CapturedFrame& frame);
  int64_t EncodeImprovement(const CapturedFrame& frame, int64_t passBytes);
  EncodedFrame Encode(const CapturedFrame& frame);
  int64_t QueueEncoded(const EncodedFrame& encoded);
  template <typename Work>
  int64_t OrStartAnew(Work work);
  void PrepareEncoder(const CapturedFrame& frame);
  bool FitsEncoder(const CapturedFrame& frame) const;
  void QueueFrame(uint32_t sequence, const EncodedFrame& encoded);
  void Queue(std::vector<uint8_t> message) { queue_.Add(std::move(message), epoch_); }
  void LogFrame(uint32_t sequence, const EncodedFrame& encoded) const;

  const Clock& clock_;
  TileTransport& transport_;
  TileImageCodec* const codec_;
  TileStreamSettings settings_;
  TileMessageQueue queue_;
  DrainMeter meter_;
  ChangedRegion region_;
  ImprovementPlan improvement_;
  GrayFrame grayFrame_;
  std::unique_ptr<TileEncoder> encoder_;
  /// `width` and `height` are those that the encoder was built for.
  StreamEpoch epoch_;
  uint32_t nextSequence_ = 0;
  int64_t encodeMs_ = 0;
  bool repaintPending_ = false;
  bool grayscale_ = false;
  bool producerOverloaded_ = false;
  int64_t droppedFrames_ = 0;
  int64_t droppedAtLastLog_ = 0;
  int64_t measuredKbps_ = 0;
  int64_t lastDropMs_ = -1;
};

}  // namespace cvn::agent
