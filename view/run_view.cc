#include "view/run_view.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <ostream>
#include <system_error>

#include "base/utf.h"
#include "net/admission.h"
#include "view/canvas_file.h"
#include "view/canvas_memory.h"
#include "view/png_writer.h"
#include "view/text.h"
#include "view/tile_receiver.h"
#include "view/view_arguments.h"
#include "view/view_session.h"
#include "view/view_summary.h"

namespace cvn::view {
namespace {

constexpr char kVersion[] = "cvn-view 0.1";
constexpr std::chrono::milliseconds kConnectRetryInterval{100};

int Fail(const ViewHost& host, const std::string& error, int exitCode = kViewFailed) {
  host.out.flush();
  host.err << "cvn-view: " << error << "\n" << std::flush;
  return exitCode;
}

/// A session is not worth beginning when its picture could not be kept.
bool CheckSnapshotPlace(const std::string& path, std::string& error) {
  if (path.empty()) return true;
  const auto hostPath = agent::PathFromUtf8(path);
  std::error_code failure;
  if (std::filesystem::is_directory(hostPath, failure))
    return Refuse(error, FormatText("%s is a folder, not a file for a picture", path.c_str()));
  const auto folder = hostPath.parent_path();
  if (folder.empty() || std::filesystem::is_directory(folder, failure)) return true;
  return Refuse(error, FormatText("there is no folder for %s", path.c_str()));
}

std::unique_ptr<CanvasMemory> MakeCanvasMemory(const std::string& canvasPath, std::string& error) {
  if (canvasPath.empty()) return std::make_unique<PrivateCanvasMemory>();
  return CanvasFile::Prepare(canvasPath, error);
}

/// Null with `error` set, or with `error` empty when stopped. `connectNs` becomes the time just before the
/// attempt that succeeded.
std::unique_ptr<agent::TransportConnection> Connect(const ViewArguments& arguments, const ViewHost& host,
                                                    int64_t& connectNs, std::string& error) {
  const agent::AdmissionContext context{host.sockets, host.clock, host.stop};
  const agent::ConnectAddress address{arguments.host, arguments.port};
  const int64_t deadlineNs = host.clock.NowNs() + arguments.waitNs;
  for (;;) {
    connectNs = host.clock.NowNs();
    auto connection = agent::ConnectAndPresent(context, address, {.plaintext = true}, error);
    if (connection || host.stop.IsSet() || host.clock.NowNs() >= deadlineNs) return connection;
    host.stop.WaitFor(kConnectRetryInterval);
  }
}

std::string ConnectFailure(const ViewArguments& arguments, const ViewHost& host, const std::string& error) {
  if (host.stop.IsSet()) return "interrupted while connecting";
  const char* const advice =
      arguments.waitNs > 0 ? "" : " (an agent that is just starting: --wait S keeps trying)";
  return FormatText("could not connect to %s port %d: %s%s", arguments.host.c_str(), arguments.port,
                    error.c_str(), advice);
}

ViewWishes Wishes(const ViewArguments& arguments) {
  return {.monitor = arguments.monitor,
          .showCursor = arguments.showCursor,
          .repaint = arguments.repaint,
          .quality = {.preset = arguments.preset, .gray = arguments.gray},
          .exact = arguments.untilExact};
}

bool StoreSnapshot(const ViewArguments& arguments, const TileReceiver& receiver, const ViewHost& host,
                   std::string& error) {
  if (arguments.snapshotPath.empty() || !receiver.HasFullPicture()) return true;
  const TileCanvas& canvas = receiver.Canvas();
  if (!WritePng(arguments.snapshotPath, canvas.Pixels(), canvas.Size(), error)) return false;
  host.out << "snapshot  " << arguments.snapshotPath << "\n";
  return true;
}

/// The session and what is left of it; `memory` holds the picture.
int RunSession(const ViewArguments& arguments, const ViewHost& host, CanvasMemory& memory) {
  std::string error;
  int64_t connectNs = 0;
  const auto connection = Connect(arguments, host, connectNs, error);
  if (!connection) return Fail(host, ConnectFailure(arguments, host, error));
  host.out << "connected to " << connection->PeerText() << "\n" << std::flush;

  TileReceiver receiver(memory, host.codec, host.clock, connectNs);
  ViewSession session(receiver, host.clock, Wishes(arguments));
  const ViewLimits limits{arguments.durationNs, arguments.untilIdle || arguments.untilExact};
  const ViewOutcome outcome = session.Run(*connection, limits, host.stop);
  host.out << SummaryText({receiver.Statistics(), receiver.Canvas().Size(), outcome.end, connectNs,
                           host.clock.NowNs(), receiver.Times(), receiver.Canvas().InexactPixels()});
  const bool stored = StoreSnapshot(arguments, receiver, host, error);
  if (!outcome.error.empty()) return Fail(host, outcome.error);
  if (!stored) return Fail(host, error);
  host.out.flush();
  return kViewOk;
}

}  // namespace

int RunView(std::span<const std::string> words, const ViewHost& host) {
  ViewArguments arguments;
  std::string error;
  if (!ParseViewArguments(words, arguments, error))
    return Fail(host, error + "\ncvn-view --help tells how it is used", kViewUsage);
  if (arguments.help || arguments.version) {
    host.out << (arguments.help ? ViewUsage() : FormatText("%s\n", kVersion)) << std::flush;
    return kViewOk;
  }
  if (!arguments.insecurePlaintext)
    return Fail(host,
                "this build connects without TLS only, and never does so unasked: give --insecure-plaintext "
                "(loopback testing only)");
  if (!CheckSnapshotPlace(arguments.snapshotPath, error)) return Fail(host, error);
  const auto memory = MakeCanvasMemory(arguments.canvasPath, error);
  if (!memory) return Fail(host, error);
  return RunSession(arguments, host, *memory);
}

}  // namespace cvn::view
