#include "view/mapped_file.h"

#include <cerrno>
#include <cstring>

#include "view/text.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace cvn::view {
namespace {

class FileDescriptor {
 public:
  explicit FileDescriptor(int number) : number_(number) {}
  ~FileDescriptor() {
    if (number_ >= 0) close(number_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int Number() const { return number_; }

 private:
  int number_;
};

std::unique_ptr<MappedFile> Fail(const char* what, const std::string& path, int errorNumber,
                                 std::string& error) {
  error = FormatText("cannot %s %s: %s", what, path.c_str(), std::strerror(errorNumber));
  return nullptr;
}

/// A hole in the file would turn a full disk into a fatal signal at the first write to it.
int Reserve(int file, size_t byteCount) {
  int result = EINTR;
  while (result == EINTR) result = posix_fallocate(file, 0, static_cast<off_t>(byteCount));
  return result;
}

}  // namespace

std::unique_ptr<MappedFile> MappedFile::Make(const std::string& path, size_t byteCount, std::string& error) {
  const FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (file.Number() < 0) return Fail("create", path, errno, error);
  if (const int result = Reserve(file.Number(), byteCount); result != 0) {
    unlink(path.c_str());
    return Fail("reserve room for", path, result, error);
  }
  void* const memory = mmap(nullptr, byteCount, PROT_READ | PROT_WRITE, MAP_SHARED, file.Number(), 0);
  if (memory == MAP_FAILED) {
    const int errorNumber = errno;
    unlink(path.c_str());
    return Fail("map", path, errorNumber, error);
  }
  return std::unique_ptr<MappedFile>(new MappedFile({static_cast<uint8_t*>(memory), byteCount}));
}

MappedFile::~MappedFile() {
  munmap(bytes_.data(), bytes_.size());
}

}  // namespace cvn::view
