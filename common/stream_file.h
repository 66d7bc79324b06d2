#pragma once

#include <istream>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

// A misuse of a descriptor; the text is as given, without strerror.
class StreamFileBaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Owns one descriptor: checked reads and writes on it, and standard streams over it on demand.
// It is closed in programs that this process starts.
//
// Nothing is retried: EINTR and EAGAIN throw like any other error, so read only what poll says is
// there. System errors are ErrnoError; a closed object throws StreamFileBaseError.
class StreamFileBase {
 public:
  // Closed.
  StreamFileBase() = default;
  // Takes the descriptor over; a negative one throws.
  explicit StreamFileBase(int descriptor);
  // Duplicates the other's descriptor; streams and buffer are not copied.
  StreamFileBase(const StreamFileBase& other);
  // Closes, then duplicates.
  // Protocol: descriptor 0 is not duplicated and leaves this closed.
  StreamFileBase& operator=(const StreamFileBase& other);
  // Closes. A failing close ends the process here.
  // NOLINTNEXTLINE(bugprone-exception-escape): it does
  virtual ~StreamFileBase();

  // -1 when closed.
  int GetFD() const { return fd; }
  bool IsOpen() const { return fd >= 0; }
  void SetNonBlocking() const;
  // Has no effect on a closed object.
  void Close();
  // Closes, then takes `descriptor` over; a negative one throws.
  void Attach(int descriptor);

  // One read; returns the bytes read, 0 at end of file.
  int Read(void* buffer, unsigned size);
  // One write; returns the bytes written.
  int Write(const void* buffer, unsigned size);
  int Write(const std::string& text);
  // One read of up to 4096 bytes into `out`; returns their number, 0 at end of file.
  int ReadString(std::string& out);

  // Streams over the descriptor, buffered by 8192 bytes, valid until Close. The same object at
  // each call.
  std::ostream& GetOStream();
  std::istream& GetIStream();

 protected:
  void CheckOpen() const;

 private:
  int fd = -1;
  std::unique_ptr<std::ostream> out_stream;
  std::unique_ptr<std::istream> in_stream;
  std::vector<char> read_string_buffer;
};

// A StreamFileBase opened by path. Flags are those of open(2).
class StreamFile : public StreamFileBase {
 public:
  StreamFile() = default;
  explicit StreamFile(int descriptor) : StreamFileBase(descriptor) {}
  // Throws ErrnoError "StreamFile: Unable to open " and the path.
  StreamFile(const std::string& path, int flags);
  void Open(const std::string& path, int flags);
};
