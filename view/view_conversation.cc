#include "view/view_conversation.h"

#include <algorithm>
#include <utility>

#include "view/text.h"

namespace cvn::view {

ViewConversation::ViewConversation(TileReceiver& receiver, const agent::Clock& clock,
                                   const ViewWishes& wishes, SendControl send)
    : receiver_(receiver),
      clock_(clock),
      wishes_(wishes),
      send_(send),
      reporter_(clock, wishes.quality, std::move(send)) {}

void ViewConversation::Begin() {
  lastAskedNs_ = clock_.NowNs();
  reporter_.Begin();
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
  reporter_.NoteTiles(message.size(), receiver_.Canvas().Size());
  AskForRepaintWhenFull();
  return true;
}

bool ViewConversation::TakeControl(std::span<const uint8_t> payload, std::string& error) {
  const auto message = agent::DecodeControlMessage(payload);
  if (!message) return Refuse(error, "a control message that is no JSON object");
  return message->type != agent::kMonitorList || TakeMonitorList(*message, error);
}

bool ViewConversation::TakeMonitorList(const agent::ControlMessage& list, std::string& error) {
  if (wishes_.monitor && !monitorShown_ && list.index != *wishes_.monitor)
    return AskForMonitor(list.count, error);
  if (!monitorShown_) lastAskedNs_ = clock_.NowNs();
  monitorShown_ = true;
  // Only now: the reporter probes with the monitor that is shown, and must not call back another one.
  reporter_.NoteMonitor(list.index);
  return true;
}

bool ViewConversation::AskForMonitor(int32_t count, std::string& error) {
  if (count < 1) return Refuse(error, "the agent has no monitors");
  if (*wishes_.monitor >= count)
    return Refuse(error, FormatText("there is no monitor %d: the agent's are numbered from 0 to %d",
                                    *wishes_.monitor, count - 1));
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
  const bool repainted =
      keyframesBeforeRepaint_ && receiver_.Statistics().keyframes > *keyframesBeforeRepaint_;
  if (wishes_.repaint && !repainted) return Missing::kRepaint;
  return wishes_.exact && !receiver_.Canvas().IsExact() ? Missing::kExactness : Missing::kNothing;
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
    case Missing::kExactness:
      return FormatText("%lld of the picture's %lld pixels had not become exact",
                        static_cast<long long>(receiver_.Canvas().InexactPixels()),
                        static_cast<long long>(receiver_.Canvas().Size().Pixels()));
  }
  return "";
}

int64_t ViewConversation::LastChangeNs() const {
  return std::max(lastAskedNs_, receiver_.Times().lastTileNs);
}

}  // namespace cvn::view
