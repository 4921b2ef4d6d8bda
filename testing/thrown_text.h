#pragma once

#include <stdexcept>
#include <string>

namespace cvn::agent {

/// The text of the exception that `action` throws, which must be an `Exception`.
template <typename Exception = std::out_of_range, typename Action>
std::string ThrownText(Action action) {
  try {
    action();
  } catch (const Exception& error) {
    return error.what();
  }
  return "nothing thrown";
}

}  // namespace cvn::agent
