#include "view/view_conversation.h"

#include <algorithm>
#include <utility>

#include "view/text.h"

namespace cvn::view {

ViewConversation::ViewConversation(TileReceiver& receiver, const agent::Clock& clock,
                                   const ViewWishes& wishes, SendControl send)
    : receiver_(receiver), clock_(clock), wishes_(wishes), send_(std::move(send)) {}

void ViewConversation::Begin() {
  if (!wishes_.showCursor) return;
  agent::ControlMessage message;
  message.type = agent::kCursorVisibility;
  message.show = true;
  Ask(message);
}

bool ViewConversation::Take(agent::Channel channel, std::span<const uint8_t> message, std::string& error) {
  if (channel == agent::Channel::Control) return TakeControl(message, error);
  if (channel != agent::Channel::Tiles) return true;
  if (!receiver_.Take(message, error)) return false;
  AskForRepaintWhenFull();
  return true;
}

bool ViewConversation::TakeControl(std::span<const uint8_t> payload, std::string& error) {
  const auto message = agent::DecodeControlMessage(payload);
  if (!message) return Refuse(error, "a control message that is no JSON object");
  return message->type != agent::kMonitorList || TakeMonitorList(*message, error);
}

bool ViewConversation::TakeMonitorList(const agent::ControlMessage& list, std::string& error) {
  if (!wishes_.monitor || monitorShown_) return true;
  if (list.index == *wishes_.monitor) {
    monitorShown_ = true;
    lastAskedNs_ = clock_.NowNs();
    return true;
  }
  if (*wishes_.monitor >= list.count)
    return Refuse(error, FormatText("there is no monitor %d: the agent's are numbered from 0 to %d",
                                    *wishes_.monitor, list.count - 1));
  if (monitorAskedFor_) return true;
  monitorAskedFor_ = true;
  agent::ControlMessage message;
  message.type = agent::kSelectMonitor;
  message.index = *wishes_.monitor;
  Ask(message);
  return true;
}

void ViewConversation::Ask(const agent::ControlMessage& message) {
  lastAskedNs_ = clock_.NowNs();
  send_(message);
}

void ViewConversation::AskForRepaintWhenFull() {
  if (!wishes_.repaint || keyframesBeforeRepaint_ || !receiver_.HasFullPicture()) return;
  if (wishes_.monitor && !monitorShown_) return;
  if (receiver_.FrameInTheMaking()) return;
  keyframesBeforeRepaint_ = receiver_.Statistics().keyframes;
  agent::ControlMessage message;
  message.type = agent::kRepaint;
  Ask(message);
}

ViewConversation::Missing ViewConversation::NextMissing() const {
  if (receiver_.Canvas().Size().Pixels() == 0) return Missing::kPicture;
  if (!receiver_.HasFullPicture()) return Missing::kPixels;
  if (wishes_.monitor && !monitorShown_) return Missing::kMonitor;
  if (!wishes_.repaint) return Missing::kNothing;
  const bool repainted =
      keyframesBeforeRepaint_ && receiver_.Statistics().keyframes > *keyframesBeforeRepaint_;
  return repainted ? Missing::kNothing : Missing::kRepaint;
}

std::string ViewConversation::WhatIsMissing() const {
  switch (NextMissing()) {
    case Missing::kNothing:
      return "";
    case Missing::kPicture:
      return "no picture had arrived";
    case Missing::kPixels:
      return FormatText("%lld of the picture's %lld pixels had not arrived",
                        static_cast<long long>(receiver_.Canvas().MissingPixels()),
                        static_cast<long long>(receiver_.Canvas().Size().Pixels()));
    case Missing::kMonitor:
      return FormatText("the agent had not switched to monitor %d", wishes_.monitor.value_or(0));
    case Missing::kRepaint:
      return "the agent had not painted the picture again";
  }
  return "";
}

int64_t ViewConversation::LastChangeNs() const {
  return std::max(lastAskedNs_, receiver_.LastTileNs());
}

}  // namespace cvn::view
