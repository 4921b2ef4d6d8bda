#include "tiles/slow_deflate_test.h"

#include <zlib.h>

#include <algorithm>
#include <map>
#include <stdexcept>

namespace cvn::agent {
namespace {

constexpr int kLengthBase[] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                               31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr int kLengthExtra[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr int kDistanceBase[] = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                 33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr int kDistanceExtra[] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                  6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

void Require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

class Bits {
 public:
  explicit Bits(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  int Take(int count) {
    int value = 0;
    for (int i = 0; i < count; ++i) value |= One() << i;
    return value;
  }
  int One() {
    Require(position_ / 8 < bytes_.size(), "stream ends early");
    const int bit = bytes_[position_ / 8] >> position_ % 8 & 1;
    ++position_;
    return bit;
  }
  void Align() { position_ = (position_ + 7) / 8 * 8; }
  size_t BytePosition() const { return position_ / 8; }

 private:
  std::span<const uint8_t> bytes_;
  size_t position_ = 0;
};

/// Canonical code: (length, code) to symbol.
class SlowCode {
 public:
  explicit SlowCode(std::span<const int> lengths) {
    int code = 0;
    for (int length = 1; length <= 15; ++length, code <<= 1)
      for (size_t symbol = 0; symbol < lengths.size(); ++symbol)
        if (lengths[symbol] == length) symbols_[{length, code++}] = static_cast<int>(symbol);
  }
  int Take(Bits& bits) const {
    int code = 0;
    for (int length = 1; length <= 15; ++length) {
      code = code << 1 | bits.One();
      if (const auto found = symbols_.find({length, code}); found != symbols_.end()) return found->second;
    }
    throw std::runtime_error("no such code");
  }

 private:
  std::map<std::pair<int, int>, int> symbols_;
};

void ReadStored(Bits& bits, SlowBlock& block) {
  bits.Align();
  const int length = bits.Take(16);
  Require((length ^ bits.Take(16)) == 0xFFFF, "stored length and its complement");
  for (int i = 0; i < length; ++i) block.bytes.push_back(static_cast<uint8_t>(bits.Take(8)));
}

std::vector<int> ReadLengths(Bits& bits, const SlowCode& code, int count) {
  std::vector<int> lengths;
  while (static_cast<int>(lengths.size()) < count) {
    const int symbol = code.Take(bits);
    Require(symbol != 16 || !lengths.empty(), "nothing to repeat");
    const int repeated = symbol == 16 ? lengths.back() : symbol < 16 ? symbol : 0;
    const int times = symbol == 16   ? 3 + bits.Take(2)
                      : symbol == 17 ? 3 + bits.Take(3)
                      : symbol == 18 ? 11 + bits.Take(7)
                                     : 1;
    lengths.insert(lengths.end(), static_cast<size_t>(times), repeated);
  }
  Require(static_cast<int>(lengths.size()) == count, "a run goes too far");
  return lengths;
}

void ReadCodes(Bits& bits, SlowBlock& block) {
  constexpr size_t kOrder[] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
  const int literals = bits.Take(5) + 257;
  const int distances = bits.Take(5) + 1;
  const int listed = bits.Take(4) + 4;
  Require(literals <= 286 && distances <= 30, "too many codes");
  std::vector<int> lengthLengths(19);
  for (int i = 0; i < listed; ++i) lengthLengths[kOrder[i]] = bits.Take(3);
  std::vector<int> lengths = ReadLengths(bits, SlowCode(lengthLengths), literals + distances);
  block.literalLengths.assign(lengths.begin(), lengths.begin() + literals);
  block.distanceLengths.assign(lengths.begin() + literals, lengths.end());
}

void ReadDynamic(Bits& bits, std::vector<uint8_t>& output, SlowBlock& block) {
  ReadCodes(bits, block);
  const SlowCode literals(block.literalLengths);
  const SlowCode distances(block.distanceLengths);
  for (int symbol = literals.Take(bits); symbol != 256; symbol = literals.Take(bits)) {
    if (symbol < 256) {
      block.tokens.push_back({true, symbol, 0, 0});
      output.push_back(static_cast<uint8_t>(symbol));
      continue;
    }
    const int length = kLengthBase[symbol - 257] + bits.Take(kLengthExtra[symbol - 257]);
    const int distanceSymbol = distances.Take(bits);
    const int distance = kDistanceBase[distanceSymbol] + bits.Take(kDistanceExtra[distanceSymbol]);
    Require(static_cast<size_t>(distance) <= output.size(), "distance before the start");
    block.tokens.push_back({false, 0, length, distance});
    for (int i = 0; i < length; ++i) output.push_back(output[output.size() - static_cast<size_t>(distance)]);
  }
}

uint32_t HashOf(std::span<const uint8_t> bytes, size_t position) {
  const uint32_t three =
      static_cast<uint32_t>(bytes[position] << 16 | bytes[position + 1] << 8 | bytes[position + 2]);
  return (three * 0x9E3779B1U >> 17) & 0x7FFF;
}

int CommonBytes(std::span<const uint8_t> bytes, size_t a, size_t b) {
  int length = 0;
  while (length < 258 && b < bytes.size() && bytes[a] == bytes[b]) ++a, ++b, ++length;
  return length;
}

/// `starts`: earlier token starts of the same hash, oldest first.
SlowToken LongestMatch(std::span<const uint8_t> bytes, size_t position, const std::vector<size_t>& starts) {
  SlowToken best{true, bytes[position], 0, 0};
  int probes = 0;
  for (auto start = starts.rbegin(); start != starts.rend() && probes < 16; ++start, ++probes) {
    if (position - *start > 32768) break;
    const int length = CommonBytes(bytes, *start, position);
    if (length >= 3 && length > best.lengthBytes)
      best = {false, 0, length, static_cast<int>(position - *start)};
  }
  return best;
}

}  // namespace

std::vector<SlowBlock> ReadZlibStream(std::span<const uint8_t> stream) {
  Require(stream.size() > 6 && stream[0] == 0x78 && stream[1] == 0x01, "stream header");
  Bits bits(stream.subspan(2));
  std::vector<SlowBlock> blocks;
  std::vector<uint8_t> output;
  while (blocks.empty() || !blocks.back().final) {
    SlowBlock block;
    block.final = bits.One() == 1;
    block.type = bits.Take(2);
    Require(block.type == 0 || block.type == 2, "block type");
    const size_t begin = output.size();
    if (block.type == 0) {
      ReadStored(bits, block);
      output.insert(output.end(), block.bytes.begin(), block.bytes.end());
    } else {
      ReadDynamic(bits, output, block);
      block.bytes.assign(output.begin() + static_cast<ptrdiff_t>(begin), output.end());
    }
    blocks.push_back(std::move(block));
  }
  bits.Align();
  const auto trailer = stream.subspan(2 + bits.BytePosition());
  Require(trailer.size() == 4, "bytes behind the checksum");
  const uLong sum = adler32(1, output.data(), static_cast<uInt>(output.size()));
  for (size_t i = 0; i < 4; ++i) Require(trailer[i] == (sum >> (24 - 8 * i) & 0xFF), "checksum");
  return blocks;
}

std::vector<SlowToken> ParseSlowly(std::span<const uint8_t> bytes) {
  std::vector<SlowToken> tokens;
  std::map<uint32_t, std::vector<size_t>> startsByHash;
  for (size_t position = 0; position < bytes.size();) {
    SlowToken token{true, bytes[position], 0, 0};
    if (bytes.size() - position >= 3) {
      std::vector<size_t>& starts = startsByHash[HashOf(bytes, position)];
      token = LongestMatch(bytes, position, starts);
      starts.push_back(position);
    }
    tokens.push_back(token);
    position += token.literal ? 1 : static_cast<size_t>(token.lengthBytes);
  }
  return tokens;
}

std::vector<std::vector<SlowToken>> BlocksOf(std::span<const SlowToken> tokens) {
  std::vector<std::vector<SlowToken>> blocks;
  for (; tokens.size() >= 16384; tokens = tokens.subspan(16384))
    blocks.emplace_back(tokens.begin(), tokens.begin() + 16384);
  blocks.emplace_back(tokens.begin(), tokens.end());
  return blocks;
}

std::vector<uint8_t> InflateByZlib(std::span<const uint8_t> stream, size_t expectedBytes) {
  std::vector<uint8_t> output(expectedBytes + 1);
  auto outputBytes = static_cast<uLongf>(output.size());
  if (uncompress(output.data(), &outputBytes, stream.data(), static_cast<uLong>(stream.size())) != Z_OK)
    return {};
  output.resize(outputBytes);
  return output;
}

}  // namespace cvn::agent
