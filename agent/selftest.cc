#include "agent/selftest.h"

#include <exception>
#include <string>

#include "agent/selftest_capture.h"
#include "agent/selftest_codec.h"
#include "agent/selftest_report.h"
#include "agent/selftest_stream.h"

namespace cvn::agent {
namespace {

void TestEverything(const SelftestParts& parts, SelftestReport& report) {
  const auto capturer = OpenScreen(parts, report);
  if (capturer == nullptr) return;
  const auto frame = CaptureFrame(parts, *capturer, "first frame", report);
  if (!frame) return;
  ReportCodecs(parts.codec, report);
  ReportTiles(parts, *frame, report);
  ReportPresets(parts, *capturer, *frame, report);
}

bool SayNoDisplay(const std::string& error, std::ostream& out) {
  SelftestReport report(out);
  report.Wrong("capture", "cannot start: %s", error.c_str());
  return report.Finish();
}

bool TestThisMachine(const Arguments& arguments, const AgentContext& context) {
  std::string error;
  const auto displays = context.platform.CreateDisplaySystem(error);
  if (displays == nullptr) return SayNoDisplay(error, context.out);
  const auto codec = context.platform.CreateImageCodec();
  return TestCaptureAndCodecs(
      {.displays = *displays,
       .backends = context.platform.CreateCaptureBackends(*displays, [] {}),
       .fallbackName = context.platform.FallbackCaptureName(),
       .codec = codec.get(),
       .clock = context.clock,
       .wait = [&context](std::chrono::milliseconds time) { context.stop.WaitFor(time); },
       .monitor = arguments.monitor,
       .strips = arguments.strips},
      context.out);
}

}  // namespace

bool TestCaptureAndCodecs(const SelftestParts& parts, std::ostream& out) {
  SelftestReport report(out);
  try {
    TestEverything(parts, report);
  } catch (const std::exception& failure) {
    report.Wrong("self-test", "cannot go on: %s", failure.what());
  }
  return report.Finish();
}

int RunSelftest(const Arguments& arguments, const AgentContext& context) {
  return TestThisMachine(arguments, context) ? 0 : 1;
}

}  // namespace cvn::agent
