#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "tiles/deflate_tokens.h"

namespace cvn::agent {

/// Whatever is parsed must have this many readable bytes behind its end; their values do not matter.
inline constexpr size_t kReadableBytesBehind = 32;

/// The greedy LZ77 parse: which literals and matches stand for the input.
///
/// At each token's start the chain of earlier token starts with the same three-byte hash is followed, nearest
/// first, for at most 16 candidates and 32768 bytes; the first of the longest matches is taken. Deliberate:
/// positions inside a match never enter a chain, which is most of the speed on screen content.
///
/// The tables (192 KiB) serve one input after the other without being cleared. One thread at a time.
class TokenParser {
 public:
  TokenParser();

  /// `bytes` is borrowed until its last block; less than 2^30 of them.
  void Start(const uint8_t* bytes, size_t count);

  /// Fills `block` with the next tokens: 16384 of them, or fewer when that is the end of the input.
  void NextBlock(TokenBlock& block);

 private:
  static constexpr unsigned kHashBits = 15;
  static constexpr size_t kHashes = size_t{1} << kHashBits;
  static constexpr uint32_t kMostCandidates = 16;
  struct Tables {
    /// Which hashes have a head of this input: these bits are soon cleared, the heads never are.
    std::array<uint64_t, kHashes / 64> seen;
    /// The latest position of each hash.
    std::array<uint32_t, kHashes> head;
    /// How far before a position its predecessor in the chain lies, for the last 32768; 0 ends the chain.
    std::array<uint16_t, kWindowBytes> gap;
  };
  struct Match {
    uint32_t lengthBytes;
    uint32_t distanceBytes;
  };

  template <bool kNear>
  void Collect(TokenBlock& block);
  template <bool kNear>
  Match EnterAndSearch(uint32_t position);
  template <bool kNear>
  Match Search(uint32_t position, uint32_t candidate, uint32_t candidates) const;

  std::unique_ptr<Tables> tables_;
  const uint8_t* bytes_ = nullptr;
  uint32_t byteCount_ = 0;
  uint32_t position_ = 0;
};

}  // namespace cvn::agent
