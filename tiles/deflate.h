#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tiles/deflate_block.h"
#include "tiles/token_parser.h"

namespace cvn::agent {

/// Compresses into zlib streams (RFC 1950) as any inflater reads them, quickly rather than tightly.
///
/// Tables and the output buffer are kept, so that once the largest input has been seen a call allocates and
/// clears nothing. One thread at a time.
class ZlibWriter {
 public:
  /// `count` bytes, less than 2^30, with `kReadableBytesBehind` more that may be read behind them. The stream
  /// is valid until the next call.
  std::span<const uint8_t> Compress(const uint8_t* bytes, size_t count);

 private:
  void WriteBlocks(const uint8_t* bytes, size_t count, BitWriter& out);

  TokenParser parser_;
  TokenBlock block_{};
  DeflateBlockWriter blockWriter_;
  std::vector<uint8_t> stream_;
};

}  // namespace cvn::agent
