#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace cvn::agent {

inline constexpr uint64_t kMaxLogFileBytes = 8'388'608;

/// Stands for the size of a log file that cannot be read: the next line rotates the file.
inline constexpr uint64_t kUnknownLogFileBytes = UINT64_MAX;

/// Whether a line of `lineBytes` (without its line feed) no longer fits after `writtenBytes`.
/// Deliberate: the question counts two bytes for the line's end while the account counts the one that is
/// written, so a file ends at least one byte short of the limit.
bool LogLineNeedsRotation(uint64_t writtenBytes, size_t lineBytes);

/// The directory that holds a log file: trailing separators and the last component dropped, both kinds of
/// slash being separators on every host.
std::filesystem::path LogFileDirectory(const std::filesystem::path& path);

/// The log's file, kept below `kMaxLogFileBytes` with one older generation beside it under the same name with
/// ".1" appended. Not synchronised: the log's own lock covers it.
///
/// Nothing is reported: what cannot be opened stays closed, and what cannot be written is lost.
class LogFile {
 public:
  /// Creates the missing parent directories and appends to what is there. Replaces a file opened before.
  void Open(const std::filesystem::path& path);
  void Close();

  /// Writes `line` and a line feed, rotating first when they do not fit.
  void Append(std::string_view line);

 private:
  void Rotate();
  void OpenStream(std::ios::openmode mode);

  std::ofstream stream_;
  std::filesystem::path path_;
  uint64_t writtenBytes_ = 0;
  /// Only a regular file can be moved aside; a device or a pipe has no size to limit.
  bool rotates_ = false;
};

}  // namespace cvn::agent
