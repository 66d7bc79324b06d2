#include "bench/bench_settings.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "bench/light_path.h"
#include "common/text_file.h"
#include "leaf/lumet/board/hw_mon.h"
#include "liborrel/doctavo/doc_tavo.h"

namespace {

constexpr const char* kSettings = R"(<nemra><tavo><cfg>
  <rectflash>
    <outrate>250</outrate><margin>5</margin><duration>800</duration>
    <Q_red_setpoint>8000</Q_red_setpoint><D_red_percent>50</D_red_percent>
  </rectflash>
  <multiphaseflash>
    <outrate>250</outrate><margin>5</margin>
    <phase1_duration>300</phase1_duration><phase2_duration>300</phase2_duration>
    <phase3_duration>300</phase3_duration>
    <Q_red_setpoint>8000</Q_red_setpoint><D_red_percent>50</D_red_percent><ramp>60</ramp>
  </multiphaseflash>
  <inductionflash>
    <margin>50</margin><duration>1000</duration>
    <Q_red_setpoint>5000</Q_red_setpoint><D_red_percent>30</D_red_percent>
  </inductionflash>
  <lightsource>
    <control>off</control><Q_setpoint>200</Q_setpoint><red_mix>90</red_mix><blue_mix>10</blue_mix>
    <D_red_percent>2</D_red_percent><D_blue_percent>1</D_blue_percent>
  </lightsource>
  <measure>
    <control>percent</control><outrate>10</outrate><dark_modrate>50</dark_modrate>
    <light_modrate>20000</light_modrate><flash_modrate>250000</flash_modrate>
    <D_modred_percent>30</D_modred_percent>
  </measure>
  <darkpulse>
    <outrate>25</outrate><margin>5</margin><duration>6</duration><before>1</before><after>5</after>
    <Q_farred_setpoint>25</Q_farred_setpoint><D_farred_percent>5</D_farred_percent>
  </darkpulse>
</cfg></tavo></nemra>)";

std::string FactoryDocument() {
  const LightCalibration calibration = LightPath::BenchCalibration();
  std::ostringstream text;
  text << "<nemra><tavo><factory><calibration>";
  const auto put = [&](const char* colour, const LightSourceCalibration& source) {
    text << "<F_" << colour << ">" << source.F << "</F_" << colour << "><u_" << colour << ">"
         << source.u << "</u_" << colour << "><dac_" << colour << "_zero>" << source.dac_zero
         << "</dac_" << colour << "_zero>";
  };
  put("red", calibration.red);
  put("blue", calibration.blue);
  put("farred", calibration.farred);
  put("modred", calibration.modred);
  text << "</calibration></factory></tavo></nemra>\n";
  return text.str();
}

void WriteIfMissing(const std::string& path, const std::string& text) {
  if (!std::filesystem::exists(path)) WriteFile(path, text);
}

// The lowest modulation rate that gives this output rate.
void SetModrate(ConfigModRate& modrate, std::uint32_t at_least) {
  for (int index = 0; index == 0 || modrate.Hz() < at_least; ++index) modrate.set(index);
}

void SetRate(const std::string& path, std::uint32_t rate) {
  DocTavo doc;
  ConfigCfgTavo& cfg = doc.Conf().Cfg();
  for (Configurable* elsewhere :
       {static_cast<Configurable*>(&cfg.Clock()), static_cast<Configurable*>(&cfg.Network())})
    elsewhere->set_flag(Configurable::Active, false);
  std::ifstream file(path);
  std::ostringstream text;
  // The head itself reports what is wrong with the file.
  doc.read_document(file, text);
  text.str("");
  cfg.Measure().Outrate().set(static_cast<int>(rate));
  SetModrate(cfg.Measure().DarkModrate(), rate);
  SetModrate(cfg.Measure().LightModrate(), std::max<std::uint32_t>(rate, 20'000));
  cfg.print_tree(text) << "\n";
  WriteFile(path, text.str());
}

}  // namespace

void ProvideSettings(const Instrument& instrument, const Machine& machine,
                     std::optional<std::uint32_t> rate) {
  WriteIfMissing(instrument.factory_settings, FactoryDocument());
  WriteIfMissing(instrument.main_settings, kSettings);
  if (rate) SetRate(instrument.main_settings, *rate);
  const HWMon sensors(instrument.i2c_devices, machine);
  int millidegrees = 27'000;
  for (const std::string& directory : sensors.DevicePaths())
    WriteIfMissing(directory + "/temp1_input", std::to_string(millidegrees += 1'500) + "\n");
}
