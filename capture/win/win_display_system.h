#pragma once

#include <memory>

#include "capture/display_system.h"

namespace cvn::agent {

/// The monitors and the input desktop of this Windows session. Makes the process aware of the real pixel
/// sizes of its displays.
std::unique_ptr<DisplaySystem> CreateWinDisplaySystem();

}  // namespace cvn::agent
