#include "common/zlib.h"

#include <zlib.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace {

[[noreturn]] void Fail(const char* failure, int code) {
  throw std::runtime_error(std::string(failure) + ": " + zError(code));
}

int BeginDeflate(z_stream* stream) { return deflateInit(stream, 1); }
int BeginInflate(z_stream* stream) { return inflateInit(stream); }

void RunOnce(ZlibDeflater& deflater, bool input_ended) { deflater.Run(input_ended); }
void RunOnce(ZlibInflater& inflater, bool) { inflater.Run(); }

// Takes everything that `read` gives through `stream` and hands it to `write`.
template <class Stream, class Read, class Write>
void Copy(Stream& stream, Read read, Write write) {
  bool input_ended = false;
  while (true) {
    if (!input_ended) {
      const std::span<std::uint8_t> room = stream.Input();
      const std::size_t count = room.empty() ? 0 : read(room);
      input_ended = !room.empty() && count == 0;
      stream.Commit(count);
    }
    RunOnce(stream, input_ended);
    const std::span<const std::uint8_t> output = stream.Output();
    if (output.empty() && (input_ended || stream.Finished())) return;
    write(output);
    stream.Consume(output.size());
  }
}

auto ReaderOf(std::span<const std::uint8_t>& bytes) {
  return [&bytes](std::span<std::uint8_t> room) {
    const std::size_t count = std::min(room.size(), bytes.size());
    std::copy_n(bytes.begin(), count, room.begin());
    bytes = bytes.subspan(count);
    return count;
  };
}

auto ReaderOf(std::streambuf& in) {
  return [&in](std::span<std::uint8_t> room) {
    const auto wanted = static_cast<std::streamsize>(room.size());
    return static_cast<std::size_t>(in.sgetn(reinterpret_cast<char*>(room.data()), wanted));
  };
}

auto WriterTo(std::vector<std::uint8_t>& out) {
  return [&out](std::span<const std::uint8_t> bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
  };
}

auto WriterTo(std::streambuf& out) {
  return [&out](std::span<const std::uint8_t> bytes) {
    out.sputn(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  };
}

template <class Stream, class Source>
std::vector<std::uint8_t> CopyToVector(Source&& source) {
  Stream stream;
  std::vector<std::uint8_t> result;
  Copy(stream, ReaderOf(source), WriterTo(result));
  return result;
}

}  // namespace

ZlibStream::ZlibStream(EndCall end_call) : stream(nullptr, Ender{end_call}) {}

ZlibStream::~ZlibStream() = default;

void ZlibStream::Ender::operator()(z_stream_s* stream) const {
  call(stream);
  delete stream;
}

void ZlibStream::Restart(int (*begin)(z_stream*), const char* failure) {
  stream.reset();
  auto fresh = std::make_unique<z_stream>();
  const int code = begin(fresh.get());
  if (code != Z_OK) Fail(failure, code);
  stream.reset(fresh.release());
  input.from = input.to = output.from = output.to = 0;
  finished = false;
}

void ZlibStream::Buffer::MoveToFront() {
  if (from == 0) return;
  std::copy(bytes.begin() + static_cast<std::ptrdiff_t>(from),
            bytes.begin() + static_cast<std::ptrdiff_t>(to), bytes.begin());
  to -= from;
  from = 0;
}

std::span<std::uint8_t> ZlibStream::Input() {
  input.MoveToFront();
  return std::span(input.bytes).subspan(input.to);
}

void ZlibStream::Commit(std::size_t bytes) { input.to += bytes; }

std::span<const std::uint8_t> ZlibStream::Output() const {
  return std::span(output.bytes).subspan(output.from, output.Waiting());
}

void ZlibStream::Consume(std::size_t bytes) { output.from += bytes; }

void ZlibStream::Step(int (*step)(z_stream*, int), bool flush, const char* failure) {
  // Otherwise what a reader has left there would use up the room, a few bytes at each turn.
  output.MoveToFront();
  const std::size_t room = kBufferSize - output.to;
  if (finished || room == 0) return;
  stream->next_in = input.bytes.data() + input.from;
  stream->avail_in = static_cast<uInt>(input.Waiting());
  stream->next_out = output.bytes.data() + output.to;
  stream->avail_out = static_cast<uInt>(room);
  const int code = step(stream.get(), flush ? Z_FINISH : Z_NO_FLUSH);
  input.from = input.to - stream->avail_in;
  output.to = kBufferSize - stream->avail_out;
  if (code == Z_STREAM_END)
    finished = true;
  else if (code != Z_OK && code != Z_BUF_ERROR)
    // A buffer error only says that this turn could do nothing.
    Fail(failure, code);
}

ZlibDeflater::ZlibDeflater() : ZlibStream(deflateEnd) { Reset(); }
void ZlibDeflater::Reset() { Restart(BeginDeflate, "deflateInit() failed"); }
void ZlibDeflater::Run(bool flush) { Step(deflate, flush, "deflate() failed"); }

ZlibInflater::ZlibInflater() : ZlibStream(inflateEnd) { Reset(); }
void ZlibInflater::Reset() { Restart(BeginInflate, "inflateInit() failed"); }
void ZlibInflater::Run() { Step(inflate, false, "inflate() failed"); }

std::vector<std::uint8_t> ZlibDeflate(std::span<const std::uint8_t> bytes) {
  return CopyToVector<ZlibDeflater>(bytes);
}

std::vector<std::uint8_t> ZlibInflate(std::span<const std::uint8_t> bytes) {
  return CopyToVector<ZlibInflater>(bytes);
}

std::vector<std::uint8_t> ZlibDeflate(std::streambuf& in) { return CopyToVector<ZlibDeflater>(in); }

std::vector<std::uint8_t> ZlibInflate(std::streambuf& in) { return CopyToVector<ZlibInflater>(in); }

void ZlibDeflate(std::span<const std::uint8_t> bytes, std::streambuf& out) {
  ZlibDeflater deflater;
  Copy(deflater, ReaderOf(bytes), WriterTo(out));
}

void ZlibInflate(std::span<const std::uint8_t> bytes, std::streambuf& out) {
  ZlibInflater inflater;
  Copy(inflater, ReaderOf(bytes), WriterTo(out));
}
