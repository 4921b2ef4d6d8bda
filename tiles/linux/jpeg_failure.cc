#include "tiles/linux/jpeg_failure.h"

namespace cvn::agent {
namespace {

[[noreturn]] void Jump(j_common_ptr handle) {
  std::longjmp(reinterpret_cast<JpegFailure*>(handle->err)->target, 1);
}

void JumpOnWarning(j_common_ptr handle, int level) {
  if (level < 0) Jump(handle);
}

void PrintNothing(j_common_ptr) {}

}  // namespace

jpeg_error_mgr* FailByJump(JpegFailure& failure) {
  jpeg_error_mgr* const manager = jpeg_std_error(&failure.manager);
  manager->error_exit = Jump;
  manager->emit_message = JumpOnWarning;
  manager->output_message = PrintNothing;
  return manager;
}

}  // namespace cvn::agent
