#include "session/control_dispatch.h"

#include <optional>
#include <string>
#include <vector>

#include "base/log.h"
#include "capture/capture_area.h"

namespace cvn::agent {
namespace {

/// Quality, monitor, cursor and repaint: what a viewer may ask for who only watches.
constexpr uint32_t kViewOnlyTypes =
    1u << kQuality | 1u << kSelectMonitor | 1u << kCursorVisibility | 1u << kRepaint;
static_assert(kViewOnlyTypes == 0x10430);
constexpr int32_t kViewOnlyTypeEnd = 17;

bool AllowedInViewOnly(int32_t type) {
  return type >= 0 && type < kViewOnlyTypeEnd && (kViewOnlyTypes >> type & 1) != 0;
}

QualityReport ReportFrom(const ControlMessage& message) {
  return {.receiveKbps = message.kbps,
          .lossPermille = message.lossPermille,
          .rttMs = message.rttMs,
          .preset = PresetFromText(message.preset),
          .grayscale = message.gray,
          .viewportWidth = message.viewportWidth,
          .viewportHeight = message.viewportHeight};
}

}  // namespace

void ControlDispatch::HandleControlMessage(std::span<const uint8_t> payload) {
  const std::optional<ControlMessage> message = DecodeControlMessage(payload);
  if (!message) {
    Log().Warn("[session] bad control message");
    return;
  }
  if (viewOnly_ && !AllowedInViewOnly(message->type)) {
    Log().Warn("[session] viewer command rejected: %d", message->type);
    return;
  }
  Dispatch(*message);
}

void ControlDispatch::Dispatch(const ControlMessage& message) {
  switch (message.type) {
    case kQuality:
      return parts_.requests.qualityReports.Add(ReportFrom(message));
    case kSelectMonitor:
      return SelectMonitor(message.index);
    case kCursorVisibility:
      parts_.requests.showCursor = message.show;
      return parts_.requests.NoteSupporterActed();
    case kRepaint:
      return RequestRepaint();
    case kTypeText:
    case kKey:
    case kMouse:
    case kSecureAttention:
    case kCredentials:
      return parts_.requests.NoteSupporterActed();
    default:
      return;
  }
}

void ControlDispatch::SelectMonitor(int32_t index) {
  if (index < kAllDisplays || index >= MonitorCount()) return;
  // Asking for what is shown already is how a viewer times the line: no reason to wake a resting loop.
  if (parts_.requests.monitor.exchange(index) != index) parts_.requests.NoteSupporterActed();
  SendMonitorList();
}

void ControlDispatch::RequestRepaint() {
  if (!parts_.tiles.IsOpen()) return;
  parts_.requests.repaint = true;
  parts_.requests.NoteSupporterActed();
  Log().Info("[tiles] repaint requested by the supporter");
}

void ControlDispatch::SendMonitorList() {
  ControlMessage list;
  list.type = kMonitorList;
  list.count = MonitorCount();
  const int32_t monitor = parts_.requests.monitor;
  list.index = monitor >= 0 && monitor < list.count ? monitor : kAllDisplays;
  const std::string text = EncodeControlMessage(list);
  parts_.control.Send({text.begin(), text.end()});
}

int32_t ControlDispatch::MonitorCount() const {
  return static_cast<int32_t>(parts_.displays.Monitors().size());
}

}  // namespace cvn::agent
