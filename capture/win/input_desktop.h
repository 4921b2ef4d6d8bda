#pragma once

namespace cvn::agent {

/// Attaches the calling thread to the desktop that receives input; false leaves the thread where it was.
bool AttachToInputDesktop();

/// Returns the calling thread to the desktop it had before its first attach.
void DetachFromInputDesktop();

}  // namespace cvn::agent
