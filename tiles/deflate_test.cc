#include "tiles/deflate.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tiles/slow_deflate_test.h"

namespace cvn::agent {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Noise(size_t count, int symbols, uint32_t seed = 1) {
  std::mt19937 random(seed);
  Bytes bytes(count);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() % static_cast<uint32_t>(symbols));
  return bytes;
}

Bytes Text(size_t count) {
  constexpr const char* kWords[] = {"tile ",    "frame ", "the ", "of ",     "pixel ",
                                    "window\n", "and ",   "a ",   "changed "};
  std::mt19937 random(7);
  std::string text;
  while (text.size() < count) text += kWords[random() % std::size(kWords)];
  return {text.begin(), text.begin() + static_cast<ptrdiff_t>(count)};
}

Bytes Periodic(size_t count, size_t period) {
  const Bytes once = Noise(period, 256, 3);
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = once[i % period];
  return bytes;
}

/// Index rows of a tile: runs, rows like the one above, a few strokes.
Bytes IndexRows(size_t count) {
  std::mt19937 random(11);
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) {
    const bool likeAbove = i >= 64 && random() % 8 != 0;
    bytes[i] = likeAbove ? bytes[i - 64] : static_cast<uint8_t>(random() % 10 < 7 ? 0 : random() % 12);
  }
  return bytes;
}

/// Every three bytes in a row occur once (a de Bruijn sequence), so that every byte stays a literal.
Bytes OnlyLiterals(size_t count) {
  constexpr int kLetters = 26;
  Bytes sequence;
  Bytes word(1, 0);
  while (!word.empty() && sequence.size() < count) {
    if (3 % word.size() == 0) sequence.insert(sequence.end(), word.begin(), word.end());
    const size_t period = word.size();
    while (word.size() < 3) word.push_back(word[word.size() - period]);
    while (!word.empty() && word.back() == kLetters - 1) word.pop_back();
    if (!word.empty()) ++word.back();
  }
  sequence.resize(count);
  return sequence;
}

/// The same eight bytes twice, that many bytes apart, with nothing like them between.
Bytes RepeatedAfter(size_t distance) {
  Bytes bytes = OnlyLiterals(distance / 2);
  const Bytes shifted = OnlyLiterals(distance - bytes.size());
  for (const uint8_t byte : shifted) bytes.push_back(static_cast<uint8_t>(byte + 100));
  for (size_t i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(200 + i);
  for (size_t i = 0; i < 8; ++i) bytes.push_back(static_cast<uint8_t>(200 + i));
  bytes.insert(bytes.end(), 400, 0xFF);  // Enough for a block with codes of its own.
  return bytes;
}

Bytes CompressBy(ZlibWriter& writer, const Bytes& input) {
  Bytes readable = input;
  readable.resize(input.size() + kReadableBytesBehind, 0xA5);
  const auto stream = writer.Compress(readable.data(), input.size());
  return {stream.begin(), stream.end()};
}

/// One writer for all inputs, as in use: nothing may leak from one input into the next.
class Deflate : public testing::Test {
 protected:
  Bytes Compress(const Bytes& input) { return CompressBy(writer_, input); }

  ZlibWriter writer_;
};

/// A dynamic block keeps its tokens; a stored one shows only its bytes.
void ExpectSameTokens(const std::vector<SlowBlock>& blocks, const Bytes& input) {
  const auto tokens = ParseSlowly(input);
  const auto expected = BlocksOf(tokens);
  ASSERT_EQ(blocks.size(), expected.size());
  for (size_t i = 0; i < blocks.size(); ++i) {
    EXPECT_EQ(blocks[i].final, i + 1 == blocks.size());
    if (blocks[i].type == 2) {
      EXPECT_TRUE(blocks[i].tokens == expected[i]) << "tokens of block " << i;
    }
    size_t bytes = 0;
    for (const SlowToken& token : expected[i])
      bytes += token.literal ? 1 : static_cast<size_t>(token.lengthBytes);
    EXPECT_EQ(blocks[i].bytes.size(), bytes) << "bytes of block " << i;
  }
}

TEST_F(Deflate, ParsesGreedilyAndInflatesToItsInput) {
  const struct {
    const char* what;
    Bytes input;
  } rows[] = {
      {"one byte", {42}},
      {"two bytes", {42, 43}},
      {"three bytes", {1, 2, 3}},
      {"a run that ends at once", {5, 5, 5, 5}},
      {"text of a tile", Text(4100)},
      {"text beyond the window", Text(100000)},
      {"index rows", IndexRows(4162)},
      {"index rows of a strip", IndexRows(200000)},
      {"noise", Noise(20000, 256)},
      {"noise of two bytes", Noise(40000, 2)},
      {"noise of four bytes beyond the window", Noise(90000, 4)},
      {"constant", Bytes(100000, 9)},
      {"constant, 258 behind the first", Bytes(259, 9)},
      {"constant, one more", Bytes(260, 9)},
      {"period 7", Periodic(70000, 7)},
      {"period 16", Periodic(5000, 16)},
      {"period 33000, too far back", Periodic(70000, 33000)},
      {"period 32768, just within reach", Periodic(70000, 32768)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const Bytes stream = Compress(row.input);
    EXPECT_TRUE(InflateByZlib(stream, row.input.size()) == row.input);
    ExpectSameTokens(ReadZlibStream(stream), row.input);
  }
}

TEST_F(Deflate, MatchesEveryShortInput) {
  for (size_t count = 1; count < 600; ++count) {
    const Bytes input = Noise(count, 3, static_cast<uint32_t>(count));
    const Bytes stream = Compress(input);
    ASSERT_TRUE(InflateByZlib(stream, count) == input) << count;
    ExpectSameTokens(ReadZlibStream(stream), input);
  }
}

TEST_F(Deflate, ReachesBack32768BytesAndNoFurther) {
  for (const auto& [distance, matched] : {std::pair<size_t, bool>{32768, true}, {32769, false}}) {
    const Bytes input = RepeatedAfter(distance);
    const auto blocks = ReadZlibStream(Compress(input));
    ExpectSameTokens(blocks, input);
    const SlowToken farthest{false, 0, 8, 32768};
    EXPECT_EQ(std::ranges::count(blocks.back().tokens, farthest), matched ? 1 : 0) << distance;
  }
}

TEST_F(Deflate, EndsABlockWith16384Tokens) {
  const struct {
    size_t literals;
    std::vector<size_t> bytesOfBlocks;
    int lastType;
  } rows[] = {{16383, {16383}, 2}, {16384, {16384, 0}, 2}, {16385, {16384, 1}, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.literals);
    const Bytes input = OnlyLiterals(row.literals);
    const Bytes stream = Compress(input);
    EXPECT_TRUE(InflateByZlib(stream, input.size()) == input);
    const auto blocks = ReadZlibStream(stream);
    ASSERT_EQ(blocks.size(), row.bytesOfBlocks.size());
    EXPECT_EQ(blocks[0].tokens.size(), row.bytesOfBlocks[0]);
    EXPECT_EQ(blocks.back().bytes.size(), row.bytesOfBlocks.back());
    EXPECT_EQ(blocks.back().type, row.lastType) << "a single byte is smaller stored";
    ExpectSameTokens(blocks, input);
  }
}

TEST_F(Deflate, AnEmptyInputIsOneStoredBlock) {
  EXPECT_EQ(Compress({}), (Bytes{0x78, 0x01, 0x01, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x01}));
}

TEST_F(Deflate, WithoutAMatchOneDistanceCodeOfNoBitsIsListed) {
  const auto blocks = ReadZlibStream(Compress(OnlyLiterals(1000)));
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_EQ(blocks[0].distanceLengths, std::vector<int>{0});
}

TEST_F(Deflate, StoresNoiseAndGrowsByLessThanAStoredBlock) {
  const Bytes input = Noise(16384, 256);
  const Bytes stream = Compress(input);
  EXPECT_EQ(ReadZlibStream(stream)[0].type, 0);
  EXPECT_LE(stream.size(), 6 + input.size() + 2 * 6);
}

/// The block writer weighs its tokens against the size of the source, whatever that holds.
TEST(DeflateBlock, StoresOnceCodesTakeAsManyWholeBytesAsStoring) {
  static TokenBlock block;
  block.literalCounts.fill(0);
  block.distanceCounts.fill(0);
  block.tokenCount = 900;
  for (size_t i = 0; i < block.tokenCount; ++i) {
    block.tokens[i] = static_cast<Token>(i % 61) | kNoDistance << kDistanceShift;
    ++block.literalCounts[i % 61];
  }
  const Bytes source(20000);
  DeflateBlockWriter writer;
  const auto isStored = [&](size_t sourceBytes, size_t* writtenBytes) {
    Bytes room(DeflateBlockWriter::MostBlockBytes(sourceBytes));
    BitWriter out(room.data());
    block.source = std::span(source).first(sourceBytes);
    writer.Write(block, true, out);
    *writtenBytes = static_cast<size_t>(out.Next() - room.data());
    return (room[0] >> 1 & 3) == 0;
  };
  size_t wholeBytes = 0;
  ASSERT_FALSE(isStored(source.size(), &wholeBytes));
  size_t writtenBytes = 0;
  EXPECT_TRUE(isStored(wholeBytes - 5, &writtenBytes));
  EXPECT_EQ(writtenBytes, wholeBytes);
  EXPECT_FALSE(isStored(wholeBytes - 4, &writtenBytes));
  EXPECT_EQ(writtenBytes, wholeBytes);
}

TEST_F(Deflate, CutsStoredBytesAt65535AndEndsWithTheLast) {
  for (const size_t count : {size_t{65535}, size_t{65536}, size_t{131071}}) {
    const Bytes input = Noise(count, 256);
    Bytes stream(DeflateBlockWriter::MostBlockBytes(count) + 6);
    BitWriter out(stream.data());
    out.Put(0x0178, 16);
    DeflateBlockWriter::WriteStored(input, true, out);
    const Bytes other = Compress(input);
    out.PutBytes(std::span(other).last(4));
    stream.resize(static_cast<size_t>(out.Next() - stream.data()));
    EXPECT_TRUE(InflateByZlib(stream, count) == input);
    EXPECT_EQ(ReadZlibStream(stream).size(), (count + 65534) / 65535);
  }
}

}  // namespace
}  // namespace cvn::agent
