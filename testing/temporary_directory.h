#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>

namespace cvn::agent {

/// A fresh directory of the test's own, removed with everything in it at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    static std::atomic<int> counter = 0;
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    path_ = std::filesystem::temp_directory_path() /
            ("cvn-test-" + std::to_string(now) + "-" + std::to_string(counter++));
    std::filesystem::create_directories(path_);
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace cvn::agent
