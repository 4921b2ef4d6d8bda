#include "agent/run_agent.h"

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "control/control_message.h"
#include "net/admission.h"
#include "testing/captured_log.h"
#include "testing/scripted_capturer.h"
#include "testing/temporary_directory.h"

namespace cvn::agent {
namespace {

constexpr char kUsage[] =
    "Corvinet agent (0.1)\n"
    "\n"
    "  cvn-agent serve [--port N] [--monitor N] [--view-only] [--relayed]\n"
    "                  [--strips N] [--log PATH]\n"
    "  cvn-agent device-id [--data-dir PATH]\n"
    "  cvn-agent selftest [--monitor N] [--strips N]\n";

constexpr char kPlaintextWarning[] =
    "WRN [agent] --insecure-plaintext: no TLS and no token. Loopback testing only.";

/// The displays that `ScriptedScreen` plays, for an owner.
class BorrowedScreen final : public DisplaySystem {
 public:
  explicit BorrowedScreen(ScriptedScreen& screen) : screen_(screen) {}
  std::vector<PixelRect> Monitors() override { return screen_.Monitors(); }
  PixelRect VirtualDesktop() override { return screen_.VirtualDesktop(); }
  bool AttachToInputDesktop() override { return screen_.AttachToInputDesktop(); }
  void DetachFromInputDesktop() override { screen_.DetachFromInputDesktop(); }

 private:
  ScriptedScreen& screen_;
};

/// The host's own sockets and a scripted screen; either can be missing.
class ScriptedPlatform final : public HostPlatform {
 public:
  std::unique_ptr<SocketSystem> CreateSocketSystem(std::string& error) override {
    error = socketFailure;
    return socketFailure.empty() ? host_->CreateSocketSystem(error) : nullptr;
  }
  std::unique_ptr<DisplaySystem> CreateDisplaySystem(std::string& error) override {
    error = displayFailure;
    return displayFailure.empty() ? std::make_unique<BorrowedScreen>(screen) : nullptr;
  }
  CaptureBackends CreateCaptureBackends(DisplaySystem&, std::function<void()> screenTouched) override {
    return screen.Backends(std::move(screenTouched));
  }
  const char* FallbackCaptureName() const override { return "scripted"; }
  std::unique_ptr<TileImageCodec> CreateImageCodec() override { return host_->CreateImageCodec(); }
  std::wstring DefaultDataDirectory() override { return L"unused"; }

  std::string socketFailure;
  std::string displayFailure;
  ScriptedScreen screen{256, 128};

 private:
  std::unique_ptr<HostPlatform> host_ = CreateHostPlatform();
};

/// Runs the program on the scripted host.
class RunAgentTest : public testing::Test {
 protected:
  int Run(const std::vector<std::string>& arguments) {
    return RunAgent(arguments, {platform_, clock_, stop_, out_, errors_});
  }

  std::future<int> RunInBackground(const std::vector<std::string>& arguments) {
    return std::async(std::launch::async, [this, arguments] { return Run(arguments); });
  }

  std::string FreePort() {
    std::string error;
    for (port_ = static_cast<uint16_t>(20000 + clock_.NowNs() % 30000);; ++port_)
      if (sockets_->Listen(port_, true, error)) return std::to_string(port_);
  }

  /// Tries until the agent listens.
  std::unique_ptr<TransportConnection> Connect() {
    std::string error;
    for (int attempt = 0; attempt < 1000; ++attempt) {
      const AdmissionContext context{*sockets_, clock_, never_};
      if (auto connection = ConnectAndPresent(context, {"127.0.0.1", port_}, {.plaintext = true}, error))
        return connection;
      never_.WaitFor(std::chrono::milliseconds(10));
    }
    return nullptr;
  }

  ScriptedPlatform platform_;
  SystemClock clock_;
  StopSignal stop_;
  StopSignal never_;
  std::ostringstream out_;
  std::ostringstream errors_;
  CapturedLog log_;
  std::string socketError_;
  std::unique_ptr<SocketSystem> sockets_ = platform_.CreateSocketSystem(socketError_);
  uint16_t port_ = 0;
};

/// A viewer's side that remembers what comes first.
class FirstFrames {
 public:
  ReceiveHandler Handler() {
    return [this](Channel channel, std::vector<uint8_t> bytes) {
      MutexLock lock(mutex_);
      if (channel == Channel::Control && !control_) control_ = DecodeControlMessage(bytes);
      if (channel == Channel::Tiles) gotTiles_ = true;
      if (control_ && gotTiles_) both_.Set();
    };
  }
  std::optional<ControlMessage> AwaitBoth() {
    both_.WaitFor(std::chrono::seconds(20));
    MutexLock lock(mutex_);
    return gotTiles_ ? control_ : std::nullopt;
  }

 private:
  StopSignal both_;
  Mutex mutex_;
  std::optional<ControlMessage> control_ GUARDED_BY(mutex_);
  bool gotTiles_ GUARDED_BY(mutex_) = false;
};

TEST_F(RunAgentTest, UsageErrorsShowTheUsageTextAndExitWithTwo) {
  EXPECT_EQ(Run({"status"}), 2);
  EXPECT_EQ(Run({"--bogus"}), 2);
  EXPECT_EQ(Run({""}), 2);
  EXPECT_EQ(errors_.str(), std::string(kUsage) + "unknown option: --bogus\n" + kUsage + kUsage);
  EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(RunAgentTest, CommandsThatAreNotBuiltSaySo) {
  for (const std::string command : {"device-id", "tls-selftest"}) {
    errors_.str("");
    EXPECT_EQ(Run({command, "--view-only"}), 1);
    EXPECT_EQ(errors_.str(), "this build of cvn-agent has no " + command + " command yet\n");
  }
}

TEST_F(RunAgentTest, TheSelfTestReportsOnStandardOutput) {
  stop_.Set();  // it waits for the screen
  EXPECT_EQ(Run({"selftest", "--view-only", "--strips", "2"}), 0);
  EXPECT_TRUE(out_.str().starts_with("capture     : scripted\n")) << out_.str();
  EXPECT_NE(out_.str().find("grid        : 1 x 2 tiles of 256x64\n"), std::string::npos) << out_.str();
  EXPECT_TRUE(out_.str().ends_with("\nSELFTEST OK\n")) << out_.str();
  out_.str("");
  platform_.displayFailure = "no screen";
  EXPECT_EQ(Run({"selftest"}), 1);
  EXPECT_EQ(out_.str(), "capture     : cannot start: no screen\nSELFTEST FAILED\n");
  EXPECT_EQ(errors_.str(), "");
}

TEST_F(RunAgentTest, WithoutTheFlagNothingIsServedInPlaintext) {
  EXPECT_EQ(Run({}), 1);
  ASSERT_EQ(log_.Lines().size(), 1u);
  EXPECT_TRUE(log_.Lines()[0].starts_with("WRN [agent] no device identity, so no TLS: ")) << log_.Lines()[0];
}

TEST_F(RunAgentTest, AHostThatLacksSomethingIsAStartUpFailure) {
  platform_.displayFailure = "no screen";
  EXPECT_EQ(Run({"--insecure-plaintext"}), 1);
  platform_.socketFailure = "WSAStartup failed (WSA 10091)";
  EXPECT_EQ(Run({"--insecure-plaintext"}), 1);
  EXPECT_EQ(log_.Lines(),
            (std::vector<std::string>{kPlaintextWarning, "WRN [capture] no display to serve: no screen",
                                      "WRN WSAStartup failed (WSA 10091)"}));
}

TEST_F(RunAgentTest, APortInUseIsAStartUpFailure) {
  const std::string port = FreePort();
  const auto occupant = sockets_->Listen(port_, false, socketError_);
  ASSERT_NE(occupant, nullptr);
  EXPECT_EQ(Run({"--insecure-plaintext", "--listen-lan", "--port", port}), 1);
  const auto lines = log_.Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1],
            "WRN [agent] listening on ALL interfaces, port " + port +
                ". Anyone who can reach this port may attempt a session; the token is what stops them.");
  EXPECT_TRUE(lines[2].starts_with("WRN [agent] could not accept a session: bind failed (WSA ")) << lines[2];
}

TEST_F(RunAgentTest, OneSupporterIsServedAndThenTheProgramEnds) {
  const TemporaryDirectory directory;
  const std::string port = FreePort();
  const auto logPath = directory.Path() / "logs" / "agent.log";
  auto exitCode = RunInBackground({"--insecure-plaintext", "--port", port, "--monitor", "0", "--log",
                                   reinterpret_cast<const char*>(logPath.u8string().c_str())});
  FirstFrames frames;
  const auto viewer = Connect();
  ASSERT_NE(viewer, nullptr);
  viewer->Start(frames.Handler());
  const auto list = frames.AwaitBoth();
  ASSERT_TRUE(list);
  EXPECT_EQ(list->type, kMonitorList);
  EXPECT_EQ(list->count, 1);
  EXPECT_EQ(list->index, 0);
  viewer->Close();
  EXPECT_EQ(exitCode.get(), 0);
  Log().CloseFile();

  const auto lines = log_.Lines();
  ASSERT_GE(lines.size(), 5u);
  EXPECT_EQ(lines[0], kPlaintextWarning);
  EXPECT_EQ(lines[1], "INF [agent] listening on 127.0.0.1 port " + port + " for one supporter");
  EXPECT_TRUE(lines[2].starts_with("INF [transport] accepted a connection from 127.0.0.1:")) << lines[2];
  EXPECT_TRUE(lines[3].starts_with("INF [agent] session from 127.0.0.1:")) << lines[3];
  EXPECT_EQ(log_.Count("INF [agent] session ended"), 1u);
  std::ifstream file(logPath, std::ios::binary);
  EXPECT_EQ(std::count(std::istreambuf_iterator<char>(file), {}, '\n'), static_cast<ptrdiff_t>(lines.size()));
}

TEST_F(RunAgentTest, AStopFromOutsideEndsTheWaitForASupporter) {
  auto waiting = RunInBackground({"--insecure-plaintext", "--port", FreePort()});
  while (!log_.Mentions("listening on")) never_.WaitFor(std::chrono::milliseconds(1));
  stop_.Set();
  EXPECT_EQ(waiting.get(), 0);
}

TEST_F(RunAgentTest, AStopFromOutsideEndsASession) {
  auto serving = RunInBackground({"--insecure-plaintext", "--port", FreePort()});
  FirstFrames frames;
  const auto viewer = Connect();
  ASSERT_NE(viewer, nullptr);
  viewer->Start(frames.Handler());
  ASSERT_TRUE(frames.AwaitBoth());
  stop_.Set();
  EXPECT_EQ(serving.get(), 0);
  EXPECT_EQ(log_.Count("INF [agent] session ended"), 1u);
}

}  // namespace
}  // namespace cvn::agent
