#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tests/end_to_end/picture.h"

namespace cvn::end_to_end {

/// Draws on the X display that DISPLAY names, and says what it shows. Windows keep their contents by
/// themselves; every call returns when the X server has done it. They disappear with this object.
class Desktop {
 public:
  using WindowId = unsigned long;

  Desktop();
  ~Desktop();
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  /// A window of black text on white, `lines` lines of it.
  WindowId OpenTextWindow(int x, int y, int lines);
  void TypeText(WindowId window, int line, const std::string& text);
  void Move(WindowId window, int x, int y);

  /// A window in which neighbouring pixels have nothing to do with each other.
  WindowId OpenNoiseWindow(int x, int y, int width, int height);
  void PaintNoise(WindowId window, uint32_t seed);

  /// A window that shows `picture`; `Paint` shows another one of the same size there.
  WindowId OpenPictureWindow(int x, int y, const Picture& picture);
  void Paint(WindowId window, const Picture& picture);

  /// A colour ramp over the whole screen, behind the windows: more colours than a palette holds.
  void PaintBackground(uint32_t seed);

  /// Changes the screen's size, with nothing of the desktop but its windows; at most 1920x1080, which this
  /// object restores at its end.
  void Resize(int width, int height);

  /// The X server's own pixels, without the cursor.
  Picture Screen() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace cvn::end_to_end
