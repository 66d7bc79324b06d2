// What `cmake --install` puts on a machine.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

#include "bench/child_process.h"
#include "common/temporary_directory.h"
#include "leaf/lumet/version.h"

namespace {

namespace fs = std::filesystem;

// What a command prints, errors included.
std::string Said(const std::string& command, int* status = nullptr) {
  ChildProcess shell({"sh", "-c", command + " 2>&1"});
  const int result = shell.Wait();
  if (status != nullptr) *status = result;
  return shell.Output();
}

bool IsThere(const std::string& program) { return !Said("command -v " + program).empty(); }

// The long options that a text names.
std::set<std::string> OptionsIn(const std::string& text) {
  const std::string letters = "abcdefghijklmnopqrstuvwxyz-";
  std::set<std::string> options;
  for (std::size_t at = 0; (at = text.find("--", at)) != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_not_of(letters, at), text.size());
    if (end > at + 2) options.insert(text.substr(at, end - at));
    at = end;
  }
  return options;
}

TEST(Installation, HasManualAndCompletionForEachProgramAndAConfinedService) {
  const TemporaryDirectory root;
  const std::string prefix = root.Path() + LUMET_PREFIX;
  int status = -1;
  const std::string log =
      Said("DESTDIR=" + root.Path() + " cmake --install " + LUMET_BUILD, &status);
  ASSERT_EQ(status, 0) << log;

  // A manual, which names every option that the program tells of, and completion, which knows them.
  for (const auto& entry : fs::directory_iterator(prefix + "/bin")) {
    const std::string program = entry.path();
    SCOPED_TRACE(program);
    const std::string name = entry.path().filename();
    const std::string page = ReadFile(prefix + "/share/man/man1/" + name + ".1");
    std::string plain;
    for (const char letter : page)
      if (letter != '\\') plain += letter;
    const std::set<std::string> told = OptionsIn(plain);
    for (const std::string& option : OptionsIn(Said(program + " --help")))
      EXPECT_TRUE(option == "--help" || told.contains(option)) << option;
    EXPECT_TRUE(fs::exists(prefix + "/share/zsh/site-functions/_" + name));
    EXPECT_EQ(Said("bash -c 'source " + prefix + "/share/bash-completion/completions/" + name +
                   "; COMP_WORDS=(" + program +
                   " --vers); COMP_LINE=${COMP_WORDS[*]} COMP_CWORD=1 "
                   "COMP_POINT=${#COMP_LINE}; set -- $(complete -p " +
                   name +
                   "); "
                   "${@: -2:1} " +
                   program + " --vers " + program + "; echo $COMPREPLY'"),
              "--version\n");
    EXPECT_EQ(Said(program + " --version"), name + " " + std::string(kLumetVersion) + "\n");
  }

  // The unit, as the service manager's own tool judges it. The units of the system, by which it is
  // ordered, have to be there.
  if (!IsThere("systemd-analyze")) GTEST_SKIP() << "there is no systemd-analyze";
  fs::create_directories(root.Path() + "/lib/systemd/system");
  fs::copy("/lib/systemd/system", root.Path() + "/lib/systemd/system",
           fs::copy_options::recursive | fs::copy_options::skip_existing |
               fs::copy_options::copy_symlinks);
  const std::string in_root = " --root=" + root.Path() + " lumet.service";
  EXPECT_EQ(Said("systemd-analyze verify --man=no" + in_root), "");
  const std::string rating =
      Said("systemd-analyze security --no-pager --offline=true --threshold=40" + in_root, &status);
  EXPECT_EQ(status, 0) << rating;
}

}  // namespace
