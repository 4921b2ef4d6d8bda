#include "tiles/deflate.h"

#include "tiles/adler32.h"

namespace cvn::agent {
namespace {

/// 32 KiB window, deflate; no preset dictionary, fastest level.
constexpr uint64_t kStreamHeader = 0x0178;
constexpr size_t kStreamOverheadBytes = 2 + 4;

/// Blocks but the last hold `kBlockTokens` tokens, of one byte or more each.
size_t MostStreamBytes(size_t count) {
  const size_t blocks = count / kBlockTokens + 2;
  return kStreamOverheadBytes + count + blocks * DeflateBlockWriter::MostBlockBytes(0) + count / 1024;
}

uint32_t BigEndian(uint32_t value) {
  return value >> 24 | (value >> 8 & 0xFF00) | (value << 8 & 0xFF0000) | value << 24;
}

}  // namespace

std::span<const uint8_t> ZlibWriter::Compress(const uint8_t* bytes, size_t count) {
  if (stream_.size() < MostStreamBytes(count)) stream_.resize(MostStreamBytes(count));
  BitWriter out(stream_.data());
  out.Put(kStreamHeader, 16);
  WriteBlocks(bytes, count, out);
  out.AlignToByte();
  out.Put(BigEndian(Adler32({bytes, count})), 32);
  return std::span(stream_).first(static_cast<size_t>(out.Next() - stream_.data()));
}

void ZlibWriter::WriteBlocks(const uint8_t* bytes, size_t count, BitWriter& out) {
  if (count == 0) return DeflateBlockWriter::WriteStored({}, true, out);
  parser_.Start(bytes, count);
  do {
    parser_.NextBlock(block_);
    blockWriter_.Write(block_, block_.tokenCount < kBlockTokens, out);
  } while (block_.tokenCount == kBlockTokens);
}

}  // namespace cvn::agent
