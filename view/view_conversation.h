#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/clock.h"
#include "control/control_message.h"
#include "net/channel.h"
#include "view/line_reporter.h"
#include "view/tile_receiver.h"

namespace cvn::view {

/// What the person at the viewer wants to see.
struct ViewWishes {
  /// -1 for all displays; absent leaves the agent's choice.
  std::optional<int32_t> monitor;
  bool showCursor = false;
  /// The whole picture once more when it is full.
  bool repaint = false;
  QualityWishes quality = {};
  /// A picture that is exact in every pixel, however long that takes.
  bool exact = false;
};

/// The viewer's half of the conversation: takes what the agent sends, asks for what is wished for, and tells
/// the agent how the line is doing. One thread at a time, but for `Tick`.
class ViewConversation {
 public:
  /// Called on the thread that takes messages and on the one that ticks.
  using SendControl = LineReporter::SendControl;

  /// `receiver` and `clock` are borrowed.
  ViewConversation(TileReceiver& receiver, const agent::Clock& clock, const ViewWishes& wishes,
                   SendControl send);

  /// Says what can be said before the agent has said anything.
  void Begin();

  /// Takes one message. False with `error` set when the stream cannot be followed or a wish cannot be met.
  bool Take(agent::Channel channel, std::span<const uint8_t> message, std::string& error);

  /// Reports on the line when it is time; to be called every few milliseconds. Any thread.
  void Tick() { reporter_.Tick(); }

  /// A full picture of what was wished for is there.
  bool PictureReady() const { return NextMissing() == Missing::kNothing; }
  /// What keeps the picture from being ready, as the end of a sentence; empty when it is ready.
  std::string WhatIsMissing() const;
  /// When the picture last changed or something was asked for that may change it, on the clock.
  int64_t LastChangeNs() const;
  const TileReceiver& Receiver() const { return receiver_; }

 private:
  enum class Missing { kNothing, kPicture, kPixels, kMonitor, kRepaint, kExactness };

  Missing NextMissing() const;
  bool TakeControl(std::span<const uint8_t> payload, std::string& error);
  bool TakeMonitorList(const agent::ControlMessage& list, std::string& error);
  bool AskForMonitor(int32_t count, std::string& error);
  void Ask(const agent::ControlMessage& message);
  void AskForRepaintWhenFull();

  TileReceiver& receiver_;
  const agent::Clock& clock_;
  const ViewWishes wishes_;
  const SendControl send_;
  LineReporter reporter_;
  int64_t lastAskedNs_ = 0;
  bool monitorAskedFor_ = false;
  bool monitorShown_ = false;
  /// The number of keyframes when the repaint was asked for.
  std::optional<int64_t> keyframesBeforeRepaint_;
};

}  // namespace cvn::view
