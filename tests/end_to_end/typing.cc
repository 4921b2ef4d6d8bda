#include "tests/end_to_end/typing.h"

namespace cvn::end_to_end {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kDigits = 12;  // binary ones
constexpr int kDigitWidth = 4;
constexpr int kWidth = kDigits * kDigitWidth;
constexpr int kHeight = 16;
constexpr uint32_t kWhite = 0xffffff;

Picture Written(int number) {
  Picture picture{kWidth, kHeight, {}};
  for (int i = 0; i < kWidth * kHeight; ++i) {
    picture.pixels.push_back(number >> (i % kWidth / kDigitWidth) & 1 ? 0 : kWhite);
  }
  return picture;
}

int NumberIn(const Picture& picture, int row) {
  int number = 0;
  for (int digit = 0; digit < kDigits; ++digit) {
    const uint32_t green = picture.At(digit * kDigitWidth + kDigitWidth / 2, row) >> 8 & 0xff;
    number |= (green < 128 ? 1 : 0) << digit;
  }
  return number;
}

}  // namespace

CounterCell::CounterCell(Desktop& desktop, int x, int y)
    : desktop_(desktop),
      x_(x),
      y_(y),
      window_(desktop.OpenPictureWindow(x, y, Written(0))),
      typedAt_{Clock::now()} {}

void CounterCell::Type() {
  typedAt_.push_back(Clock::now());
  desktop_.Paint(window_, Written(Newest()));
}

std::optional<int> CounterCell::ShownOn(const LiveCanvas& canvas) const {
  const auto shown = canvas.ReadPart(x_, y_, kWidth, kHeight);
  if (!shown) return std::nullopt;
  const int number = NumberIn(*shown, 1);
  if (number != NumberIn(*shown, kHeight - 2) || number > Newest()) return std::nullopt;
  return number;
}

std::optional<milliseconds> CounterCell::AgeOn(const LiveCanvas& canvas) const {
  const auto shown = ShownOn(canvas);
  if (!shown) return std::nullopt;
  if (*shown == Newest()) return milliseconds(0);
  return std::chrono::duration_cast<milliseconds>(Clock::now() - typedAt_[static_cast<size_t>(*shown) + 1]);
}

}  // namespace cvn::end_to_end
