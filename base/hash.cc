#include "base/hash.h"

#include <bit>
#include <cstring>

namespace cvn::agent {
namespace {

static_assert(std::endian::native == std::endian::little, "XXH64 reads little-endian words");

constexpr uint64_t kPrime1 = 0x9E3779B185EBCA87;
constexpr uint64_t kPrime2 = 0xC2B2AE3D27D4EB4F;
constexpr uint64_t kPrime3 = 0x165667B19E3779F9;
constexpr uint64_t kPrime4 = 0x85EBCA77C2B2AE63;
constexpr uint64_t kPrime5 = 0x27D4EB2F165667C5;
constexpr size_t kStripeBytes = 32;

template <typename Word>
Word Load(const uint8_t* bytes) {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

uint64_t Round(uint64_t lane, uint64_t input) {
  return std::rotl(lane + input * kPrime2, 31) * kPrime1;
}

uint64_t MergeLane(uint64_t hash, uint64_t lane) {
  return (hash ^ Round(0, lane)) * kPrime1 + kPrime4;
}

// Consumes whole stripes; the four lanes do not depend on one another.
uint64_t HashStripes(const uint8_t*& next, const uint8_t* end) {
  uint64_t lane1 = kPrime1 + kPrime2;
  uint64_t lane2 = kPrime2;
  uint64_t lane3 = 0;
  uint64_t lane4 = 0 - kPrime1;
  for (; end - next >= static_cast<ptrdiff_t>(kStripeBytes); next += kStripeBytes) {
    lane1 = Round(lane1, Load<uint64_t>(next));
    lane2 = Round(lane2, Load<uint64_t>(next + 8));
    lane3 = Round(lane3, Load<uint64_t>(next + 16));
    lane4 = Round(lane4, Load<uint64_t>(next + 24));
  }
  uint64_t hash = std::rotl(lane1, 1) + std::rotl(lane2, 7) + std::rotl(lane3, 12) + std::rotl(lane4, 18);
  for (const uint64_t lane : {lane1, lane2, lane3, lane4}) hash = MergeLane(hash, lane);
  return hash;
}

uint64_t HashTail(uint64_t hash, const uint8_t* next, const uint8_t* end) {
  for (; end - next >= 8; next += 8)
    hash = std::rotl(hash ^ Round(0, Load<uint64_t>(next)), 27) * kPrime1 + kPrime4;
  if (end - next >= 4) {
    hash = std::rotl(hash ^ Load<uint32_t>(next) * kPrime1, 23) * kPrime2 + kPrime3;
    next += 4;
  }
  for (; next != end; ++next) hash = std::rotl(hash ^ *next * kPrime5, 11) * kPrime1;
  return hash;
}

uint64_t Avalanche(uint64_t hash) {
  hash = (hash ^ hash >> 33) * kPrime2;
  hash = (hash ^ hash >> 29) * kPrime3;
  return hash ^ hash >> 32;
}

}  // namespace

uint64_t Xxh64(std::span<const uint8_t> bytes) {
  const uint8_t* next = bytes.data();
  const uint8_t* const end = next + bytes.size();
  const uint64_t start = bytes.size() >= kStripeBytes ? HashStripes(next, end) : kPrime5;
  return Avalanche(HashTail(start + bytes.size(), next, end));
}

}  // namespace cvn::agent
