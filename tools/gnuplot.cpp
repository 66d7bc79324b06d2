#include "tools/gnuplot.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "client/deadline.h"
#include "common/errno_error.h"
#include "tools/terminal.h"

namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// A file without a name, which nobody has to wait for as for a pipe.
File Scratch() {
  File file(std::tmpfile());
  if (!file) throw ErrnoError("unable to make a temporary file");
  return file;
}

std::string TextIn(const File& file) {
  std::string text;
  std::array<char, 65536> piece;
  std::rewind(file.get());
  while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), file.get()))
    text.append(piece.data(), count);
  return text;
}

int Wait(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) throw ErrnoError("unable to wait for gnuplot");
  return status;
}

}  // namespace

const PictureFormat& PictureFormatOf(const std::string& path) {
  static constexpr std::array<PictureFormat, 3> kFormats = {
      {{".svg", "svg noenhanced font 'sans-serif,12' background 'white'", 1},
       {".png", "pngcairo noenhanced font 'sans,9.5' fontscale 2 linewidth 2 pointscale 2", 2},
       {".pdf", "pdfcairo noenhanced font 'sans,9' fontscale 0.95 linewidth 1.4", 0}}};
  for (const PictureFormat& format : kFormats)
    if (path.ends_with(format.ending)) return format;
  throw FileError("unable to draw into " + path +
                  ": the name of a drawing ends in .svg, .png or "
                  ".pdf");
}

void CheckDrawing(const std::string& path) {
  PictureFormatOf(path);
  RunGnuplot("");
}

std::string RunGnuplot(const std::string& script) {
  const File input = Scratch();
  const File output = Scratch();
  const File errors = Scratch();
  if (std::fwrite(script.data(), 1, script.size(), input.get()) != script.size() ||
      std::fflush(input.get()) != 0)
    throw ErrnoError("unable to write a temporary file");
  std::rewind(input.get());

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  int descriptor = 0;
  for (const File* file : {&input, &output, &errors})
    posix_spawn_file_actions_adddup2(&actions, fileno(file->get()), descriptor++);
  // The user's own file of gnuplot settings must not change the picture.
  std::array<char*, 3> words = {const_cast<char*>("gnuplot"), const_cast<char*>("-d"), nullptr};
  pid_t pid = 0;
  const int failure = posix_spawnp(&pid, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure == ENOENT)
    throw ClientError(
        "drawings need gnuplot, which is not installed (Debian's gnuplot-nox has it)");
  if (failure != 0) throw ClientError(std::string("unable to run gnuplot: ") + strerror(failure));

  const int status = Wait(pid);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return TextIn(output);
  std::string said = TextIn(errors);
  said.erase(said.find_last_not_of(" \n") + 1);
  constexpr std::size_t kMost = 300;
  if (said.size() > kMost) said.erase(0, said.size() - kMost);
  throw ClientError("gnuplot failed" + (said.empty() ? "" : ": " + said));
}

std::string GnuplotText(const std::string& text) {
  std::string quoted = "'";
  for (const char letter : text) {
    if (letter == '\'') quoted += '\'';
    quoted += static_cast<unsigned char>(letter) < ' ' ? ' ' : letter;
  }
  return quoted + "'";
}
