#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace cvn::agent {

/// What tests hold the deflate writer against: written for clarity, sharing nothing with it.

struct SlowToken {
  /// 0 for a match.
  bool literal = true;
  int value = 0;
  int lengthBytes = 0;
  int distanceBytes = 0;
  bool operator==(const SlowToken&) const = default;
};

struct SlowBlock {
  bool final = false;
  /// 0 stored, 2 with codes of its own.
  int type = 0;
  std::vector<SlowToken> tokens;
  /// What the block decodes to.
  std::vector<uint8_t> bytes;
  /// Code lengths of a block of type 2, as many as its header lists.
  std::vector<int> literalLengths;
  std::vector<int> distanceLengths;
};

/// The blocks of a zlib stream. Throws std::runtime_error for anything malformed, a wrong checksum or
/// trailing bytes.
std::vector<SlowBlock> ReadZlibStream(std::span<const uint8_t> stream);

/// The greedy parse by its definition: every earlier token start with the same hash, newest first.
std::vector<SlowToken> ParseSlowly(std::span<const uint8_t> bytes);

/// What the writer should make of `bytes`: blocks of 16384 tokens, the last one shorter.
std::vector<std::vector<SlowToken>> BlocksOf(std::span<const SlowToken> tokens);

/// The input by zlib's own inflater; empty when it refuses the stream.
std::vector<uint8_t> InflateByZlib(std::span<const uint8_t> stream, size_t expectedBytes);

}  // namespace cvn::agent
