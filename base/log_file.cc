#include "base/log_file.h"

#include <string>
#include <system_error>

namespace cvn::agent {

namespace fs = std::filesystem;

bool LogLineNeedsRotation(uint64_t writtenBytes, size_t lineBytes) {
  // By subtraction: an addition would wrap past the unknown size and never rotate.
  return writtenBytes > kMaxLogFileBytes || lineBytes + 2 > kMaxLogFileBytes - writtenBytes;
}

fs::path LogFileDirectory(const fs::path& path) {
  fs::path::string_type text = path.native();
  const auto isSeparator = [](fs::path::value_type c) { return c == '/' || c == '\\'; };
  while (!text.empty() && isSeparator(text.back())) text.pop_back();
  while (!text.empty() && !isSeparator(text.back())) text.pop_back();
  return text;
}

void LogFile::Open(const fs::path& path) {
  Close();
  std::error_code failure;
  fs::create_directories(LogFileDirectory(path), failure);
  path_ = path;
  writtenBytes_ = 0;
  const fs::file_type type = fs::status(path_, failure).type();
  rotates_ = type == fs::file_type::regular || type == fs::file_type::not_found;
  if (type == fs::file_type::regular) {
    const uint64_t size = fs::file_size(path_, failure);
    writtenBytes_ = failure ? kUnknownLogFileBytes : size;
  }
  OpenStream(std::ios::app);
}

void LogFile::Close() {
  stream_.close();
  stream_.clear();
}

void LogFile::Append(std::string_view line) {
  if (!stream_.is_open()) return;
  if (rotates_ && LogLineNeedsRotation(writtenBytes_, line.size())) Rotate();
  if (!stream_.is_open()) return;
  const std::string ended = std::string(line) + '\n';
  stream_.clear();  // A disk that was full a line ago may have room again.
  stream_.write(ended.data(), static_cast<std::streamsize>(ended.size()));
  writtenBytes_ += ended.size();
}

void LogFile::Rotate() {
  Close();
  fs::path older = path_;
  older += ".1";
  std::error_code failure;
  fs::remove(older, failure);
  fs::rename(path_, older, failure);
  writtenBytes_ = 0;
  // A file that cannot be moved is emptied instead: the newest lines matter most, and appending would let it
  // grow by the whole limit at each try.
  OpenStream(failure && fs::exists(path_, failure) ? std::ios::trunc : std::ios::app);
}

void LogFile::OpenStream(std::ios::openmode mode) {
  // Unbuffered: a line is one write, and none that failed stays behind to be written again.
  stream_.rdbuf()->pubsetbuf(nullptr, 0);
  stream_.open(path_, std::ios::out | std::ios::binary | mode);
}

}  // namespace cvn::agent
