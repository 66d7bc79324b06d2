#include "common/stream_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "common/errno_error.h"
#include "common/temporary_directory.h"
#include "common/test_registry.h"

using namespace self_test;

void StreamFileCases() {
  const std::string closed = "StreamFileBase: file is closed";
  std::array<int, 2> ends = {};
  ExpectEqual(pipe(ends.data()), 0);
  StreamFileBase reader(ends[0]);
  StreamFileBase writer(ends[1]);

  // A stream and plain calls work on one file.
  writer.GetOStream() << "0123" << std::flush;
  ExpectEqual(&writer.GetOStream(), &writer.GetOStream(), "the stream at a second call");
  writer.Write("456789");
  std::string text;
  ExpectEqual(reader.ReadString(text), 10);
  ExpectEqual(text, "0123456789");
  writer.Write("12 ab");
  writer.Close();
  writer.Close();
  int number = 0;
  reader.GetIStream() >> number >> text;
  ExpectEqual(std::to_string(number) + text, "12ab", "words from the input stream");
  ExpectEqual(reader.ReadString(text), 0, "the count at end of file");
  ExpectEqual(text, "");

  // Large texts pass the stream's own buffer several times over.
  const TemporaryDirectory directory;
  const std::string path = directory.Path() + "/file";
  const std::string large(100'000, 'x');
  {
    StreamFile file(path, O_RDWR | O_CREAT | O_TRUNC);
    file.GetOStream() << large;
    StreamFile copy(file);
    file.Close();
    ExpectEqual(lseek(copy.GetFD(), 0, SEEK_END), off_t{100'000}, "length after Close");
    ExpectThrows<StreamFileBaseError>([&] { StreamFile(path, O_RDONLY).GetOStream(); },
                                      "StreamFileBase: unable to create ostream");
  }

  ExpectThrows<StreamFileBaseError>([&] { writer.Write("x"); }, closed);
  ExpectThrows<StreamFileBaseError>([&] { writer.GetOStream(); }, closed);
  ExpectThrows<ErrnoError>([&] { writer.SetNonBlocking(); },
                           "StreamFileBase: unable to get file flags: Bad file descriptor");
  ExpectThrows<StreamFileBaseError>([] { StreamFileBase(-1); },
                                    "StreamFileBase: invalid file descriptor");
  ExpectThrows<ErrnoError>([] { StreamFile("/no/such/file", O_RDONLY); },
                           "StreamFile: Unable to open /no/such/file: No such file or directory");
  ExpectThrows<ErrnoError>([&] { reader.Write("x"); },
                           "StreamFileBase: error in Write: Bad file descriptor");

  // Assignment duplicates the descriptor of an open file and closes what was there.
  writer = reader;
  ExpectTrue(writer.IsOpen() && writer.GetFD() != reader.GetFD(), "a duplicate");
  writer = StreamFileBase();
  ExpectTrue(!writer.IsOpen(), "a closed object assigned");
}
