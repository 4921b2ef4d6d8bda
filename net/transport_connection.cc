#include "net/transport_connection.h"

#include <array>
#include <atomic>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "base/log.h"
#include "base/mutex.h"
#include "net/frame_format.h"
#include "net/send_queues.h"

namespace cvn::agent {
namespace {

// A frame that was larger than this does not keep its memory for the rest of the session.
constexpr size_t kKeptFrameBytes = 256 * 1024;

void Join(std::thread thread) {
  if (thread.joinable()) thread.join();
}

}  // namespace

struct TransportConnection::State {
  State(std::unique_ptr<StreamSocket> ownedSocket, std::unique_ptr<SecureChannel> ownedChannel,
        std::string peer)
      : socket(std::move(ownedSocket)), channel(std::move(ownedChannel)), peerText(std::move(peer)) {}

  void RunReader(const ReceiveHandler& handler);
  bool ReadFrame(const ReceiveHandler& handler);
  void RunWriter();
  void WriteQueued();
  bool WriteFrame(const SendQueues::Message& message, std::vector<uint8_t>& frame);

  void StartThreads(const std::shared_ptr<State>& self, ReceiveHandler handler) EXCLUDES(mutex);
  void TearDown() EXCLUDES(mutex);
  void WaitUntilClosed() EXCLUDES(mutex);
  bool OnReaderThread() EXCLUDES(mutex);
  std::thread TakeReader() EXCLUDES(mutex);
  std::thread TakeWriter() EXCLUDES(mutex);

  // Used by the threads and destroyed by the one `TearDown` after they have ended.
  std::unique_ptr<StreamSocket> socket;
  std::unique_ptr<SecureChannel> channel;
  const std::string peerText;
  SendQueues queues;
  std::atomic<bool> readerRunning = false;

  // Guards how the threads begin and end. Never held together with the queues' own mutex.
  Mutex mutex;
  ConditionVariable closedChanged;
  bool closed GUARDED_BY(mutex) = false;
  // Whoever takes a thread joins it; the reader's id stays, to be recognised while it is being joined.
  std::thread::id readerId GUARDED_BY(mutex);
  std::thread reader GUARDED_BY(mutex);
  std::thread writer GUARDED_BY(mutex);
};

// Reader ---------------------------------------------------------------------------------------------------

void TransportConnection::State::RunReader(const ReceiveHandler& handler) {
  try {
    while (!queues.IsStopped() && ReadFrame(handler)) queues.WaitForControlRoom();
  } catch (...) {
    Log().Warn("[transport] a received message could not be handled; closing the session");
  }
  queues.Shut();
  readerRunning = false;
}

bool TransportConnection::State::ReadFrame(const ReceiveHandler& handler) {
  std::array<uint8_t, kChannelFrameHeaderBytes> headerBytes;
  if (!channel->ReceiveExactly(headerBytes)) return false;
  const std::optional<ChannelFrameHeader> header = ParseChannelFrameHeader(headerBytes);
  if (!header) {
    Log().Warn("[transport] malformed frame header; closing the session");
    return false;
  }
  std::vector<uint8_t> payload(header->payloadBytes);
  if (!channel->ReceiveExactly(payload)) return false;
  if (handler) handler(header->channel, std::move(payload));
  return true;
}

// Writer ---------------------------------------------------------------------------------------------------

void TransportConnection::State::RunWriter() {
  try {
    WriteQueued();
  } catch (...) {
    Log().Warn("[transport] write failed; closing the session");
  }
  queues.Shut();
}

void TransportConnection::State::WriteQueued() {
  std::vector<uint8_t> frame;
  while (const std::optional<SendQueues::Message> message = queues.TakeNext()) {
    const bool written = WriteFrame(*message, frame);
    queues.Finish(*message, written);
    if (written) continue;
    Log().Warn("[transport] write failed; closing the session");
    return;
  }
}

bool TransportConnection::State::WriteFrame(const SendQueues::Message& message, std::vector<uint8_t>& frame) {
  const auto header = BuildChannelFrameHeader({message.channel, static_cast<uint32_t>(message.bytes.size())});
  if (frame.capacity() > kKeptFrameBytes) frame = std::vector<uint8_t>();  // `= {}` would keep the memory
  frame.assign(header.begin(), header.end());
  frame.insert(frame.end(), message.bytes.begin(), message.bytes.end());
  return channel->Send(frame);
}

// Begin and end --------------------------------------------------------------------------------------------

void TransportConnection::State::StartThreads(const std::shared_ptr<State>& self, ReceiveHandler handler) {
  MutexLock lock(mutex);
  if (queues.IsStopped()) return;
  readerRunning = true;
  try {
    reader = std::thread([self, handler = std::move(handler)] { self->RunReader(handler); });
    readerId = reader.get_id();
    writer = std::thread([self] { self->RunWriter(); });
  } catch (const std::system_error&) {
    Log().Warn("[transport] could not start a thread; closing the session");
    readerRunning = reader.joinable();
    queues.Shut();
  }
}

void TransportConnection::State::TearDown() {
  if (socket) socket->Abort();
  channel->Abort();
  if (!OnReaderThread()) Join(TakeReader());
  Join(TakeWriter());
  channel->Close();
  channel.reset();
  socket.reset();
  MutexLock lock(mutex);
  closed = true;
  closedChanged.NotifyAll();
}

void TransportConnection::State::WaitUntilClosed() {
  MutexLock lock(mutex);
  while (!closed) closedChanged.Wait(mutex);
}

bool TransportConnection::State::OnReaderThread() {
  MutexLock lock(mutex);
  return readerId == std::this_thread::get_id();
}

std::thread TransportConnection::State::TakeReader() {
  MutexLock lock(mutex);
  return std::move(reader);
}

std::thread TransportConnection::State::TakeWriter() {
  MutexLock lock(mutex);
  return std::move(writer);
}

// TransportConnection --------------------------------------------------------------------------------------

TransportConnection::TransportConnection(std::unique_ptr<StreamSocket> socket,
                                         std::unique_ptr<SecureChannel> channel, std::string peerText)
    : state_(std::make_shared<State>(std::move(socket), std::move(channel), std::move(peerText))) {}

TransportConnection::~TransportConnection() {
  Close();
  // Only the handler's own thread is left now: it ends by itself and keeps the state until then.
  if (std::thread reader = state_->TakeReader(); reader.joinable()) reader.detach();
}

void TransportConnection::Start(ReceiveHandler handler) {
  state_->StartThreads(state_, std::move(handler));
}

void TransportConnection::Enqueue(Channel channel, std::vector<uint8_t> message) {
  state_->queues.Push(channel, std::move(message));
}

void TransportConnection::Close() {
  // The handler may drop the connection while it is being closed elsewhere.
  const std::shared_ptr<State> state = state_;
  if (state->queues.Stop()) {
    state->TearDown();
    return;
  }
  if (state->OnReaderThread()) return;
  state->WaitUntilClosed();
  Join(state->TakeReader());
}

bool TransportConnection::IsOpen() const {
  return state_->queues.IsOpen();
}
bool TransportConnection::ReaderRunning() const {
  return state_->readerRunning;
}
int64_t TransportConnection::QueuedBytes(Channel channel) const {
  return state_->queues.QueuedBytes(channel);
}
uint64_t TransportConnection::SentBytes(Channel channel) const {
  return state_->queues.SentBytes(channel);
}
const std::string& TransportConnection::PeerText() const {
  return state_->peerText;
}

}  // namespace cvn::agent
