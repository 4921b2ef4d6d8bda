#include "view/run_view.h"

#include <gtest/gtest.h>
#include <png.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <thread>
#include <tuple>

#include "control/control_message.h"
#include "net/admission.h"
#include "testing/eventually.h"
#include "testing/received_frames.h"
#include "testing/temporary_directory.h"
#include "view/png_writer.h"
#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

using agent::Channel;

constexpr PictureSize kSize{300, 200};

/// The agent's end of a session, whose part the test plays.
class PlayedAgent {
 public:
  explicit PlayedAgent(std::unique_ptr<agent::TransportConnection> connection)
      : connection_(std::move(connection)) {
    connection_->Start(asked_.Handler());
  }

  void SendFrame(const std::vector<agent::EncodedTile>& tiles, bool keyframe) {
    for (Bytes& message : writer_.Frame(tiles, keyframe))
      connection_->Enqueue(Channel::Tiles, std::move(message));
  }
  void SendKeyframe() { SendFrame({FlatTile(0, 0, kSize, 0xff102030)}, true); }
  void SendMonitorList(int index, int count) {
    SendControl(R"({"t":9,"index":)" + std::to_string(index) + R"(,"count":)" + std::to_string(count) + "}");
  }
  void SendControl(const std::string& text) {
    connection_->Enqueue(Channel::Control, {text.begin(), text.end()});
  }
  void SetSize(PictureSize size) { writer_.SetSize(size); }

  /// The nth thing that the viewer asked for.
  agent::ControlMessage Asked(size_t nth) {
    if (!agent::Eventually([&] { return asked_.Count() > nth; })) return {};
    return agent::DecodeControlMessage(asked_.All()[nth].bytes).value_or(agent::ControlMessage{});
  }
  bool ViewerIsThere() const { return connection_->ReaderRunning(); }
  bool HasSentAll() const {
    return connection_->QueuedBytes(Channel::Tiles) == 0 && connection_->QueuedBytes(Channel::Control) == 0;
  }

 private:
  StreamWriter writer_{kSize};
  agent::ReceivedFrames asked_;
  const std::unique_ptr<agent::TransportConnection> connection_;
};

/// The program over a real loopback connection.
class RunViewTest : public testing::Test {
 protected:
  RunViewTest() {
    // The ports below the ephemeral range that nobody else's test uses.
    std::string error;
    for (uint16_t candidate = 21300; port_ == 0 && candidate < 21400; ++candidate)
      if (sockets_->Listen(candidate, true, error)) port_ = candidate;
  }
  ~RunViewTest() override {
    agentStop_.Set();
    if (agent_.joinable()) agent_.join();
  }

  /// Admits one viewer and plays. Leaves when that is done, or stays until the viewer leaves.
  void ServeOnThread(bool leaves, std::function<void(PlayedAgent&)> play) {
    if (agent_.joinable()) agent_.join();
    agent_ = std::thread([this, leaves, play = std::move(play)] {
      std::string error;
      auto connection =
          agent::ListenAndAdmit({*sockets_, clock_, agentStop_}, {port_, true}, {.plaintext = true}, error);
      if (!connection) return;
      PlayedAgent played(std::move(connection));
      play(played);
      while (!(leaves && played.HasSentAll()) && played.ViewerIsThere() && !agentStop_.IsSet())
        agentStop_.WaitFor(std::chrono::milliseconds(1));
    });
  }

  int Run(std::vector<std::string> words) {
    words.insert(words.begin(), {"127.0.0.1", "--port", std::to_string(port_), "--insecure-plaintext"});
    return RunView(words, {*sockets_, TestCodec(), clock_, stop_, out_, err_});
  }
  std::string Path(const char* name) const { return (directory_.Path() / name).string(); }

  const std::unique_ptr<agent::SocketSystem> sockets_ = CreateHostSockets();
  const agent::SystemClock clock_;
  agent::StopSignal stop_;
  agent::StopSignal agentStop_;
  agent::TemporaryDirectory directory_;
  std::ostringstream out_;
  std::ostringstream err_;
  uint16_t port_ = 0;
  std::thread agent_;
};

/// 0xffRRGGBB; nothing when the file is no PNG of `kSize`.
std::vector<uint32_t> ReadPng(const std::string& path) {
  std::vector<uint32_t> pixels(static_cast<size_t>(kSize.Pixels()));
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return {};
  if (PictureSize{static_cast<int>(image.width), static_cast<int>(image.height)} != kSize) return {};
  image.format = PNG_FORMAT_BGRA;
  png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr);
  return pixels;
}

TEST_F(RunViewTest, KeepsThePictureThatTravelledInSnapshotAndCanvas) {
  ServeOnThread(false, [](PlayedAgent& agent) {
    agent.SetSize({64, 64});
    agent.SendFrame({FlatTile(0, 0, {64, 64}, 0xff999999)}, true);
    agent.SetSize(kSize);
    agent.SendFrame({GradientTile(0, 0, {200, 200}, 0xff000000), JpegTile(200, 0, {100, 200})}, true);
    agent.SendFrame({FlatTile(200, 0, {100, 200}, 0xff123456)}, false);
  });
  EXPECT_EQ(Run({"--wait", "10", "--until-exact", "--snapshot", Path("s.png"), "--canvas", Path("canvas")}),
            kViewOk)
      << err_.str();
  EXPECT_EQ(err_.str(), "");

  const std::vector<uint32_t> picture = ReadPng(Path("s.png"));
  ASSERT_FALSE(picture.empty());
  EXPECT_EQ(picture[199 * 300 + 199], 0xff000000 + 39999);
  EXPECT_EQ(picture[299], 0xff123456);

  std::ifstream canvas(Path("canvas"), std::ios::binary);
  const std::string content(std::istreambuf_iterator<char>(canvas), {});
  ASSERT_EQ(content.size(), 4096 + picture.size() * 4);
  EXPECT_EQ(std::memcmp(content.data() + 4096, picture.data(), picture.size() * 4), 0);

  for (const char* line :
       {"picture   300x200, first full ", "exact     first ", " ms after the last lossy tile\n",
        "frames    3 (keyframes 2, heartbeats 0)\n", "tiles     4 (palette 2, lossless 1, JPEG 1, WebP 0)\n",
        "payload   ", "the screen rested\n", "snapshot  "})
    EXPECT_NE(out_.str().find(line), std::string::npos) << line << "\nis missing in\n" << out_.str();
}

TEST_F(RunViewTest, AFullPictureIsKeptThoughTheStreamBrokeOffLater) {
  ServeOnThread(false, [](PlayedAgent& agent) {
    agent.SendKeyframe();
    agent::EncodedTile bomb = TileAt(0, 0, {64, 64});
    bomb.payload = Zip(Bytes(1'000'000, 0));
    agent.SendFrame({bomb}, false);
    agent.SendFrame({FlatTile(0, 0, kSize, 0xff999999)}, false);
  });
  EXPECT_EQ(Run({"--wait", "10", "--snapshot", Path("s.png")}), kViewFailed);
  EXPECT_EQ(err_.str(), "cvn-view: the payload of tile 0 does not inflate: it holds more than the tile\n");
  EXPECT_EQ(ReadPng(Path("s.png")).at(0), 0xff102030);
}

TEST_F(RunViewTest, AsksForWhatIsWishedForAndWaitsForIt) {
  ServeOnThread(false, [](PlayedAgent& agent) {
    EXPECT_EQ(agent.Asked(0).type, agent::kQuality);
    EXPECT_EQ(agent.Asked(0).preset, "High");
    EXPECT_TRUE(agent.Asked(1).show);
    agent.SendMonitorList(-1, 2);
    EXPECT_EQ(agent.Asked(2).index, 1);
    agent.SendMonitorList(1, 2);
    EXPECT_EQ(agent.Asked(3).type, agent::kSelectMonitor) << "the probe, with what is shown already";
    EXPECT_EQ(agent.Asked(3).index, 1);
    agent.SendControl(R"({"t":3,"data":"clipboard","news":[1]})");
    agent.SendKeyframe();
    EXPECT_EQ(agent.Asked(4).type, agent::kRepaint);
    agent.SendFrame({JpegTile(0, 0, kSize)}, true);
    EXPECT_EQ(agent.Asked(5).type, agent::kQuality) << "it does not end: the picture is not exact";
    EXPECT_GE(agent.Asked(5).kbps, 1);
    agent.SendKeyframe();
  });
  EXPECT_EQ(Run({"--wait", "10", "--until-exact", "--snapshot", Path("s.png"), "--monitor", "1",
                 "--show-cursor", "--repaint", "--preset", "high", "--gray"}),
            kViewOk)
      << err_.str();
}

TEST_F(RunViewTest, SaysWhatIsMissingWhenItEndsWithoutIt) {
  const std::string left = "the agent closed the connection: ";
  const std::tuple<const char*, const char*, std::function<void(PlayedAgent&)>, std::string> rows[] = {
      {"--repaint", "--gray",
       [](PlayedAgent& agent) {
         agent.SendFrame({FlatTile(0, 0, {300, 199}, 1)}, true);
       },
       left + "300 of the picture's 60000 pixels had not arrived"},
      {"--monitor", "1", [](PlayedAgent& agent) { agent.SendMonitorList(0, 2), agent.SendKeyframe(); },
       left + "the agent had not switched to monitor 1"},
      {"--until-exact", "--gray", [](PlayedAgent& agent) { agent.SendFrame({JpegTile(0, 0, kSize)}, true); },
       left + "60000 of the picture's 60000 pixels had not become exact"},
      {"--monitor", "2", [](PlayedAgent& agent) { agent.SendMonitorList(0, 2); },
       "there is no monitor 2: the agent's are numbered from 0 to 1"},
      {"--repaint", "--gray", [](PlayedAgent& agent) { agent.SendControl("[]"); },
       "a control message that is no JSON object"},
  };
  for (const auto& [option, value, play, missing] : rows) {
    err_.str("");
    ServeOnThread(true, play);
    EXPECT_EQ(Run({"--wait", "10", "--snapshot", Path("s.png"), option, value}), kViewFailed);
    EXPECT_EQ(err_.str(), "cvn-view: " + missing + "\n");
  }
}

TEST(PngWriter, SaysThatADiskIsFull) {
  std::string error;
  EXPECT_FALSE(WritePng("/dev/full", Bytes(64 * 64 * 4, 1), {64, 64}, error));
  EXPECT_EQ(error, "cannot write /dev/full: No space left on device");
}

TEST_F(RunViewTest, SaysThatNobodyListensAndStopsTryingInTime) {
  const std::string refused =
      "cvn-view: could not connect to 127.0.0.1 port " + std::to_string(port_) + ": connect failed (WSA ";
  EXPECT_EQ(Run({"--snapshot", Path("s.png"), "--wait", "0.2"}), kViewFailed);
  EXPECT_EQ(err_.str().rfind(refused, 0), 0u) << err_.str();
  stop_.Set();
  err_.str("");
  EXPECT_EQ(Run({"--snapshot", Path("s.png"), "--wait", "1000"}), kViewFailed);
  EXPECT_EQ(err_.str(), "cvn-view: interrupted while connecting\n");
}

TEST_F(RunViewTest, RefusesBeforeConnectingWhatCouldNotEndWell) {
  const std::string folder = directory_.Path().string();
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"--snapshot", "s.png"}, "this build connects without TLS only"},
      {{"--insecure-plaintext", "--snapshot", Path("no/s.png")}, "there is no folder for "},
      {{"--insecure-plaintext", "--snapshot", folder}, folder + " is a folder"},
      {{"--insecure-plaintext", "--canvas", folder}, folder + " is there"},
      {{"--bogus"}, "unknown option: --bogus\ncvn-view --help tells how it is used\n"},
  };
  for (const auto& [options, error] : rows) {
    err_.str("");
    std::vector<std::string> words = options;
    words.push_back("host");
    const int exitCode = options[0] == "--bogus" ? kViewUsage : kViewFailed;
    EXPECT_EQ(RunView(words, {*sockets_, TestCodec(), clock_, stop_, out_, err_}), exitCode);
    EXPECT_EQ(err_.str().rfind("cvn-view: " + error, 0), 0u) << err_.str();
  }
}

}  // namespace
}  // namespace cvn::view
