#pragma once

#include <windows.h>

#include <cstdint>

namespace cvn::agent {

/// Draws the mouse cursor, if one is showing, where it stands: `context` begins at (`originX`, `originY`) of
/// the virtual desktop. Any thread.
void DrawCursor(HDC context, int32_t originX, int32_t originY);

}  // namespace cvn::agent
