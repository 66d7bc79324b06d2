#include "common/stream_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <streambuf>

#include "common/errno_error.h"

namespace {

enum class Direction { kRead, kWrite };

// A file buffer over a descriptor that somebody else owns.
class DescriptorBuffer : public std::streambuf {
 public:
  DescriptorBuffer(int descriptor, Direction direction) : fd(descriptor) {
    if (direction == Direction::kWrite) setp(buffer.data(), buffer.data() + buffer.size());
  }
  ~DescriptorBuffer() override { Flush(); }

 protected:
  int_type underflow() override {
    const ssize_t count = ::read(fd, buffer.data(), buffer.size());
    if (count <= 0) return traits_type::eof();
    setg(buffer.data(), buffer.data(), buffer.data() + count);
    return traits_type::to_int_type(*gptr());
  }

  int_type overflow(int_type byte) override {
    if (!Flush()) return traits_type::eof();
    if (!traits_type::eq_int_type(byte, traits_type::eof())) sputc(traits_type::to_char_type(byte));
    return traits_type::not_eof(byte);
  }

  int sync() override { return Flush() ? 0 : -1; }

 private:
  bool Flush() {
    const char* next = pbase();
    while (next < pptr()) {
      const ssize_t count = ::write(fd, next, static_cast<std::size_t>(pptr() - next));
      if (count <= 0) return false;
      next += count;
    }
    if (pbase() != nullptr) setp(buffer.data(), buffer.data() + buffer.size());
    return true;
  }

  int fd;
  std::array<char, 8192> buffer;
};

bool Usable(int fd, Direction direction) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0) return false;
  const int other_only = direction == Direction::kWrite ? O_RDONLY : O_WRONLY;
  return (flags & O_ACCMODE) != other_only;
}

// A stream that owns its buffer.
template <class Stream>
class DescriptorStream : public Stream {
 public:
  DescriptorStream(int fd, Direction direction) : Stream(nullptr), buffer(fd, direction) {
    this->rdbuf(&buffer);
  }

 private:
  DescriptorBuffer buffer;
};

template <class Stream>
std::unique_ptr<Stream> MakeStream(int fd, Direction direction, const char* failure) {
  if (!Usable(fd, direction)) throw StreamFileBaseError(failure);
  return std::make_unique<DescriptorStream<Stream>>(fd, direction);
}

int CheckedDescriptor(int fd) {
  if (fd < 0) throw StreamFileBaseError("StreamFileBase: invalid file descriptor");
  fcntl(fd, F_SETFD, FD_CLOEXEC);
  return fd;
}

int Duplicate(int fd) { return fcntl(fd, F_DUPFD_CLOEXEC, 0); }

int CheckedOpen(const std::string& path, int flags) {
  const int fd = open(path.c_str(), flags, 0666);
  if (fd < 0) throw ErrnoError("StreamFile: Unable to open " + path);
  return fd;
}

}  // namespace

StreamFileBase::StreamFileBase(int descriptor) : fd(CheckedDescriptor(descriptor)) {}

StreamFileBase::StreamFileBase(const StreamFileBase& other)
    : fd(other.IsOpen() ? Duplicate(other.fd) : -1) {}

StreamFileBase& StreamFileBase::operator=(const StreamFileBase& other) {
  if (this == &other) return *this;
  Close();
  if (other.fd >= 1) fd = Duplicate(other.fd);
  return *this;
}

// NOLINTNEXTLINE(bugprone-exception-escape): a failing close ends the process
StreamFileBase::~StreamFileBase() { Close(); }

void StreamFileBase::SetNonBlocking() const {
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0) throw ErrnoError("StreamFileBase: unable to get file flags");
  if (fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0)
    throw ErrnoError("StreamFileBase: unable to set file flags");
}

void StreamFileBase::Close() {
  out_stream.reset();
  in_stream.reset();
  if (fd < 0) return;
  // Linux releases the descriptor whatever close returns, so it is never closed twice.
  const int closing = fd;
  fd = -1;
  if (close(closing) != 0) throw ErrnoError("StreamFileBase: unable to close file");
}

void StreamFileBase::Attach(int descriptor) {
  Close();
  fd = CheckedDescriptor(descriptor);
}

int StreamFileBase::Read(void* buffer, unsigned size) {
  CheckOpen();
  const ssize_t count = read(fd, buffer, size);
  if (count < 0) throw ErrnoError("StreamFileBase: error in Read");
  return static_cast<int>(count);
}

int StreamFileBase::Write(const void* buffer, unsigned size) {
  CheckOpen();
  const ssize_t count = write(fd, buffer, size);
  if (count < 0) throw ErrnoError("StreamFileBase: error in Write");
  return static_cast<int>(count);
}

int StreamFileBase::Write(const std::string& text) {
  return Write(text.data(), static_cast<unsigned>(text.size()));
}

int StreamFileBase::ReadString(std::string& out) {
  constexpr unsigned kSize = 4096;
  if (read_string_buffer.size() < kSize) read_string_buffer.resize(kSize);
  const int count = Read(read_string_buffer.data(), kSize);
  out.assign(read_string_buffer.data(), static_cast<std::size_t>(count));
  return count;
}

std::ostream& StreamFileBase::GetOStream() {
  CheckOpen();
  if (!out_stream)
    out_stream =
        MakeStream<std::ostream>(fd, Direction::kWrite, "StreamFileBase: unable to create ostream");
  return *out_stream;
}

std::istream& StreamFileBase::GetIStream() {
  CheckOpen();
  if (!in_stream)
    in_stream =
        MakeStream<std::istream>(fd, Direction::kRead, "StreamFileBase: unable to create istream");
  return *in_stream;
}

void StreamFileBase::CheckOpen() const {
  if (!IsOpen()) throw StreamFileBaseError("StreamFileBase: file is closed");
}

StreamFile::StreamFile(const std::string& path, int flags)
    : StreamFileBase(CheckedOpen(path, flags)) {}

void StreamFile::Open(const std::string& path, int flags) {
  Close();
  Attach(CheckedOpen(path, flags));
}
