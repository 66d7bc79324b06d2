// Whatever stands in the settings files, the head starts from it, keeps what it could not read, and
// writes files that it reads again to the byte.

#include <array>
#include <filesystem>

#include "bench/bench_instrument.h"
#include "common/temporary_directory.h"
#include "fuzz/fuzz_target.h"
#include "leaf/lumet/board/settings_files.h"

namespace {

constexpr std::array kNames = {"factory", "cal", "main"};

// Loads the files, and saves them after a change of each. Returns what was said.
std::string LoadAndSave(const std::string& directory, int setpoint) {
  static const Machine machine = BenchMachine(BenchInstrument(directory + "/bench"));
  const Quiet quiet;
  DocTavo doc;
  SettingsFiles files(doc, {directory + "/factory", directory + "/cal", directory + "/main"},
                      machine);
  files.load_factory();
  files.load_cal();
  files.load_main([] {});
  std::string said = quiet.Text();
  ConfigTavo& tavo = doc.Conf();
  // One of the two is a change, whatever was read.
  for (const int value : {setpoint + 1, setpoint}) {
    tavo.Factory().Serialnumber().set("TVF-" + std::to_string(value));
    tavo.Cal().DC0().set(value);
    tavo.Cfg().Lightsource().QSetpoint().set(static_cast<float>(value));
  }
  files.save_factory();
  files.save_cal();
  files.save_main();
  return said;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TemporaryDirectory directory;
  std::vector<std::string> before = Pieces(data, size, kNames.size(), '\f');
  before.resize(kNames.size());
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    directory.Write(kNames[i], before[i]);
    std::filesystem::remove(directory.Path() + "/" + kNames[i] + ".bad");
  }
  LoadAndSave(directory.Path(), 7);
  std::array<std::string, kNames.size()> written;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    written[i] = directory.Read(kNames[i]);
    const std::string bad = std::string(kNames[i]) + ".bad";
    // Of a file that ended in the midst of its document, nothing is lost.
    if (std::filesystem::exists(directory.Path() + "/" + bad)) {
      Check(directory.Read(bad) == before[i]);
      std::filesystem::remove(directory.Path() + "/" + bad);
    }
    Check(written[i].ends_with(">\n") || written[i].ends_with(">\n\n"));
  }
  // What was written is read without a word, and written the same but for the change.
  Check(LoadAndSave(directory.Path(), 8).empty());
  Check(LoadAndSave(directory.Path(), 7).empty());
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    Check(directory.Read(kNames[i]) == written[i]);
    Check(!std::filesystem::exists(directory.Path() + "/" + kNames[i] + ".bad"));
  }
  return 0;
}
