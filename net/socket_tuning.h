#pragma once

namespace cvn::agent {

// How every connected socket is set up; the hosts' adapters only translate this into options.

/// The longest that a call on a socket waits, so that a blocked thread notices a close even where a shutdown
/// does not wake it.
inline constexpr int kWaitSliceMs = 250;

/// Small on purpose: bytes inside the system can no longer be overtaken by a control message.
inline constexpr int kSocketBufferBytes = 65536;

/// What the system may hold beside what is under way to the peer, where it lets itself be told: on a slow
/// line the buffer above would hold seconds, and every change and every answer would stand behind them.
inline constexpr int kMostUnsentBytes = 4096;

// A peer that vanished without a word while nothing was to be sent is noticed after 15 s.
inline constexpr int kKeepAliveIdleSeconds = 10;
inline constexpr int kKeepAliveIntervalSeconds = 1;
inline constexpr int kKeepAliveProbes = 5;

/// How long sent bytes may stay without any answer: a line that was cut ends the session, and with it
/// whatever key the peer was holding down, within 25 s.
inline constexpr int kUnansweredLimitMs = 20000;

}  // namespace cvn::agent
