#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <streambuf>
#include <vector>

struct z_stream_s;

// zlib streams, fed and emptied in pieces: fill the input room and Commit, Run, read the output and
// Consume. Failures are std::runtime_error with the call and zlib's own words.

// What both directions share: one stream and its two buffers.
class ZlibStream {
 public:
  static constexpr std::size_t kBufferSize = 36864;

  ZlibStream(const ZlibStream&) = delete;
  ZlibStream& operator=(const ZlibStream&) = delete;

  // Free room for input.
  std::span<std::uint8_t> Input();
  // `bytes` of that room are filled.
  void Commit(std::size_t bytes);
  // Output that waits to be read; valid until the next turn, which it may be left for in part.
  std::span<const std::uint8_t> Output() const;
  void Consume(std::size_t bytes);
  // The end of the stream was reached.
  bool Finished() const { return finished; }

 protected:
  using EndCall = int (*)(z_stream_s*);
  explicit ZlibStream(EndCall end_call);
  ~ZlibStream();

  // A fresh stream, begun by `begin`, and empty buffers.
  void Restart(int (*begin)(z_stream_s*), const char* failure);
  // One turn of `step`, if there is anything for it to do.
  void Step(int (*step)(z_stream_s*, int), bool flush, const char* failure);

 private:
  struct Ender {
    EndCall call;
    void operator()(z_stream_s* stream) const;
  };
  std::unique_ptr<z_stream_s, Ender> stream;
  // Bytes wait from `from` up to `to`; room follows them.
  struct Buffer {
    std::size_t Waiting() const { return to - from; }
    void MoveToFront();

    std::array<std::uint8_t, kBufferSize> bytes;
    std::size_t from = 0;
    std::size_t to = 0;
  };
  Buffer input;
  Buffer output;
  bool finished = false;
};

// Compresses at level 1.
class ZlibDeflater : public ZlibStream {
 public:
  ZlibDeflater();
  // Drops everything and begins a new stream.
  void Reset();
  // With `flush` the stream is brought to its end, over as many turns as the output takes.
  void Run(bool flush);
};

class ZlibInflater : public ZlibStream {
 public:
  ZlibInflater();
  void Reset();
  void Run();
};

// Whole ranges: through the compressor, or back, into a vector or a stream buffer, or from one.
std::vector<std::uint8_t> ZlibDeflate(std::span<const std::uint8_t> bytes);
std::vector<std::uint8_t> ZlibInflate(std::span<const std::uint8_t> bytes);
void ZlibDeflate(std::span<const std::uint8_t> bytes, std::streambuf& out);
void ZlibInflate(std::span<const std::uint8_t> bytes, std::streambuf& out);
std::vector<std::uint8_t> ZlibDeflate(std::streambuf& in);
std::vector<std::uint8_t> ZlibInflate(std::streambuf& in);
