#pragma once

#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

namespace cvn::agent {

/// Where libjpeg-turbo goes when it fails: it leaves its caller no other way out than a jump. Each function
/// that calls the library sets the target first, and owns nothing that a jump would leave behind.
struct JpegFailure {
  /// First, so that the library's pointer to it leads to the whole.
  jpeg_error_mgr manager;
  std::jmp_buf target;
};

/// The handler for a handle's `err`. What the library merely warns about, such as missing data that it would
/// make up, is a failure too. Nothing is printed.
jpeg_error_mgr* FailByJump(JpegFailure& failure);

}  // namespace cvn::agent
