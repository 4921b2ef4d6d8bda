#pragma once

namespace cvn::agent {

// How every connected socket is set up; the hosts' adapters only translate this into options.

/// The longest that a call on a socket waits, so that a blocked thread notices a close even where a shutdown
/// does not wake it.
inline constexpr int kWaitSliceMs = 250;

/// Small on purpose: bytes inside the system can no longer be overtaken by a control message.
inline constexpr int kSocketBufferBytes = 65536;

// A peer that vanished without a word while nothing was to be sent is noticed after 15 s.
inline constexpr int kKeepAliveIdleSeconds = 10;
inline constexpr int kKeepAliveIntervalSeconds = 1;
inline constexpr int kKeepAliveProbes = 5;

/// How long sent bytes may stay unacknowledged. A cut line must end the session within 25 s; but the system
/// also counts the time that a living peer keeps its window shut, and one that reads 3 KB/s opens it only
/// every 20 s or so. Hence as long as possible, and longer than the keep-alive alone would wait.
inline constexpr int kUnsentTimeoutSeconds = 22;

}  // namespace cvn::agent
