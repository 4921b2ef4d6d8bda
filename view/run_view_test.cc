#include "view/run_view.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "net/admission.h"
#include "testing/eventually.h"
#include "testing/temporary_directory.h"
#include "view/png_for_test.h"
#include "view/stream_for_test.h"
#include "view/view_platform.h"

namespace cvn::view {
namespace {

using agent::Channel;

constexpr PictureSize kSize{300, 200};

/// The program over a real loopback connection, with an agent that the test plays.
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

  using Play = std::function<void(agent::TransportConnection&)>;

  /// Admits one viewer, plays, and stays until the viewer leaves.
  void ServeOnThread(Play play) {
    agent_ = std::thread([this, play = std::move(play)] {
      std::string error;
      const auto connection =
          agent::ListenAndAdmit({*sockets_, clock_, agentStop_}, {port_, true}, {.plaintext = true}, error);
      if (!connection) return;
      connection->Start({});
      play(*connection);
      while (connection->ReaderRunning() && !agentStop_.IsSet())
        agentStop_.WaitFor(std::chrono::milliseconds(1));
    });
  }

  int Run(std::vector<std::string> words) {
    words.insert(words.begin(), {"127.0.0.1", "--port", std::to_string(port_), "--insecure-plaintext"});
    return RunView(words, {*sockets_, *codec_, clock_, stop_, out_, err_});
  }
  std::string Path(const char* name) const { return (directory_.Path() / name).string(); }

  const std::unique_ptr<agent::SocketSystem> sockets_ = CreateHostSockets();
  const std::unique_ptr<TileImageCodec> codec_ = CreateHostImageCodec();
  const agent::SystemClock clock_;
  agent::StopSignal stop_;
  agent::StopSignal agentStop_;
  agent::TemporaryDirectory directory_;
  std::ostringstream out_;
  std::ostringstream err_;
  uint16_t port_ = 0;
  std::thread agent_;
};

void SendFrame(agent::TransportConnection& connection, StreamWriter& writer,
               std::span<const agent::EncodedTile> tiles, bool keyframe) {
  for (Bytes& message : writer.Frame(tiles, keyframe)) connection.Enqueue(Channel::Tiles, std::move(message));
}

TEST_F(RunViewTest, KeepsThePictureThatTravelledInSnapshotAndCanvas) {
  ServeOnThread([this](agent::TransportConnection& connection) {
    StreamWriter writer({64, 64});
    SendFrame(connection, writer, std::vector{FlatTile(0, 0, {64, 64}, 0xff999999)}, true);
    writer.SetSize(kSize);
    SendFrame(connection, writer,
              std::vector{GradientTile(0, 0, {200, 200}, 0xff000000), JpegTile(*codec_, 200, 0, {100, 200})},
              true);
    SendFrame(connection, writer, std::vector{FlatTile(200, 0, {100, 200}, 0xff123456)}, false);
  });
  EXPECT_EQ(Run({"--wait", "10", "--until-exact", "--snapshot", Path("s.png"), "--canvas", Path("canvas")}),
            kViewOk)
      << err_.str();
  EXPECT_EQ(err_.str(), "");

  const ReadPicture picture = ReadPng(Path("s.png"));
  ASSERT_EQ(picture.size, kSize);
  EXPECT_EQ(picture.pixels[0], 0xff000000);
  EXPECT_EQ(picture.pixels[199 * 300 + 199], 0xff000000 + 39999);
  EXPECT_EQ(picture.pixels[299], 0xff123456);

  std::ifstream canvas(Path("canvas"), std::ios::binary);
  std::vector<uint32_t> pixels(picture.pixels.size());
  canvas.seekg(4096).read(reinterpret_cast<char*>(pixels.data()),
                          static_cast<std::streamsize>(pixels.size() * 4));
  EXPECT_EQ(pixels, picture.pixels);

  for (const char* line :
       {"picture   300x200, first full ", "exact     first ", " ms after the last lossy tile\n",
        "frames    3 (keyframes 2, heartbeats 0)\n", "tiles     4 (palette 2, lossless 1, JPEG 1, WebP 0)\n",
        "payload   ", "the screen rested\n", "snapshot  "})
    EXPECT_NE(out_.str().find(line), std::string::npos) << line << "\nis missing in\n" << out_.str();
}

TEST_F(RunViewTest, AFullPictureIsKeptThoughTheStreamBrokeOffLater) {
  ServeOnThread([](agent::TransportConnection& connection) {
    StreamWriter writer(kSize);
    SendFrame(connection, writer, std::vector{FlatTile(0, 0, kSize, 0xff010203)}, true);
    agent::EncodedTile bomb = TileAt(0, 0, {64, 64});
    bomb.payload = Zip(Bytes(1'000'000, 0));
    SendFrame(connection, writer, std::vector{bomb}, false);
  });
  EXPECT_EQ(Run({"--wait", "10", "--snapshot", Path("s.png")}), kViewFailed);
  EXPECT_EQ(err_.str(), "cvn-view: the payload of tile 0 does not inflate: it holds more than the tile\n");
  EXPECT_EQ(ReadPng(Path("s.png")).pixels.at(0), 0xff010203);
}

TEST_F(RunViewTest, SaysThatNobodyListensAndStopsTryingInTime) {
  const std::string refused =
      "cvn-view: could not connect to 127.0.0.1 port " + std::to_string(port_) + ": connect failed (WSA ";
  EXPECT_EQ(Run({"--snapshot", Path("s.png")}), kViewFailed);
  EXPECT_EQ(err_.str().substr(0, refused.size()), refused);
  EXPECT_NE(err_.str().find("--wait S keeps trying"), std::string::npos);
  err_.str("");
  EXPECT_EQ(Run({"--snapshot", Path("s.png"), "--wait", "0.2"}), kViewFailed);
  EXPECT_EQ(err_.str().substr(0, refused.size()), refused);

  stop_.Set();
  err_.str("");
  EXPECT_EQ(Run({"--snapshot", Path("s.png"), "--wait", "1000"}), kViewFailed);
  EXPECT_EQ(err_.str(), "cvn-view: interrupted while connecting\n");
}

TEST_F(RunViewTest, RefusesBeforeConnectingWhatCouldNotEndWell) {
  const auto run = [this](std::vector<std::string> words) {
    err_.str("");
    return RunView(words, {*sockets_, *codec_, clock_, stop_, out_, err_});
  };
  EXPECT_EQ(run({"h", "--snapshot", "s.png"}), kViewFailed);
  EXPECT_NE(err_.str().find("connects without TLS only"), std::string::npos);
  EXPECT_EQ(run({"h", "--bogus"}), kViewUsage);
  EXPECT_EQ(err_.str(), "cvn-view: unknown option: --bogus\ncvn-view --help tells how it is used\n");
  EXPECT_EQ(run({"h", "--insecure-plaintext", "--snapshot", Path("no/s.png")}), kViewFailed);
  EXPECT_EQ(err_.str(), "cvn-view: there is no folder for " + Path("no/s.png") + "\n");
  EXPECT_EQ(run({"h", "--insecure-plaintext", "--snapshot", directory_.Path().string()}), kViewFailed);
  EXPECT_EQ(run({"h", "--insecure-plaintext", "--canvas", directory_.Path().string()}), kViewFailed);
  EXPECT_EQ(run({"--help"}), kViewOk);
  EXPECT_EQ(out_.str().rfind("Corvinet viewer", 0), 0u);
}

}  // namespace
}  // namespace cvn::view
