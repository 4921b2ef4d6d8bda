#include "view/view_session.h"

#include <chrono>
#include <exception>
#include <utility>

namespace cvn::view {
namespace {

/// How often a session looks whether it has ended. An interruption is noticed at once all the same.
constexpr std::chrono::milliseconds kLookInterval{20};

bool TakeSafely(ViewConversation& conversation, agent::Channel channel, std::span<const uint8_t> bytes,
                std::string& error) try {
  return conversation.Take(channel, bytes, error);
} catch (const std::exception& exception) {
  error = exception.what();
  return false;
}

}  // namespace

ViewSession::ViewSession(TileReceiver& receiver, const agent::Clock& clock, const ViewWishes& wishes)
    : receiver_(receiver), clock_(clock), wishes_(wishes) {}

ViewOutcome ViewSession::Run(agent::TransportConnection& connection, const ViewLimits& limits,
                             agent::StopSignal& stop) {
  ViewConversation conversation(receiver_, clock_, wishes_,
                                [&connection](const agent::ControlMessage& message) {
                                  const std::string text = agent::EncodeControlMessage(message);
                                  connection.Enqueue(agent::Channel::Control, {text.begin(), text.end()});
                                });
  {
    agent::MutexLock lock(mutex_);
    situation_.startNs = clock_.NowNs();
  }
  conversation.Begin();
  connection.Start([this, &conversation](agent::Channel channel, std::vector<uint8_t> bytes) {
    TakeFrame(conversation, channel, bytes);
  });

  ViewEnd end = ViewEnd::kGoesOn;
  while ((end = DecideEnd(limits, Situation(connection, stop), clock_.NowNs())) == ViewEnd::kGoesOn) {
    conversation.Tick();
    stop.WaitFor(kLookInterval);
  }
  connection.Close();
  return Outcome(end, conversation);
}

void ViewSession::TakeFrame(ViewConversation& conversation, agent::Channel channel,
                            std::span<const uint8_t> bytes) {
  {
    agent::MutexLock lock(mutex_);
    if (situation_.failed) return;
  }
  std::string error;
  const bool taken = TakeSafely(conversation, channel, bytes, error);
  agent::MutexLock lock(mutex_);
  situation_.failed = !taken;
  error_ = std::move(error);
  situation_.pictureReady = conversation.PictureReady();
  situation_.frameInTheMaking = receiver_.FrameInTheMaking();
  situation_.lastChangeNs = conversation.LastChangeNs();
  situation_.lastArrivalNs = clock_.NowNs();
}

ViewSituation ViewSession::Situation(const agent::TransportConnection& connection,
                                     const agent::StopSignal& stop) const {
  // Asked before the lock is taken: once the reader has ended, everything it has told is in `situation_`.
  const bool disconnected = !connection.ReaderRunning();
  agent::MutexLock lock(mutex_);
  ViewSituation situation = situation_;
  situation.interrupted = stop.IsSet();
  situation.disconnected = disconnected;
  return situation;
}

ViewOutcome ViewSession::Outcome(ViewEnd end, const ViewConversation& conversation) const {
  agent::MutexLock lock(mutex_);
  if (situation_.failed) return {ViewEnd::kFailed, conversation.PictureReady(), error_};
  const std::string missing = conversation.WhatIsMissing();
  if (missing.empty()) return {end, true, ""};
  return {end, false, std::string(EndText(end)) + ": " + missing};
}

}  // namespace cvn::view
