#include <json/json.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

#include "leaf/lumet/bounds.h"
#include "leaf/lumet/lumet.h"

// Carries out what clients and the bus order: the commands of the document, and messages.

void Lumet::CarryOutCommands() {
  ConfigCmdTavo& cmd = doc.Conf().Cmd();
  StartSequence(cmd);
  // Protocol: if both are set, `on` wins for red modulation, `off` for the test vector.
  if (cmd.Redmodon().get()) {
    dsp.RedModulationOn();
    diag_word &= ~REDMODOFF;
  } else if (cmd.Redmodoff().get()) {
    dsp.RedModulationOff();
    diag_word |= REDMODOFF;
  }
  if (cmd.Testvectoff().get()) {
    dsp.TestVectorOff();
    diag_word &= ~TESTMODEON;
    ApplyTimingSettings();
  } else if (cmd.Testvecton().get()) {
    dsp.TestVectorOn();
    diag_word |= TESTMODEON;
    ApplyTimingSettings();
  }
  if (cmd.Rawcapture().get()) {
    ConfigCfgRawDataCapture& capture = doc.Conf().Cfg().Rawdatacapture();
    dsp.StartRawCapture(static_cast<std::uint32_t>(capture.Size().get()),
                        static_cast<std::uint32_t>(capture.When().get()));
  }
  if (cmd.Reboot().get()) End(reboot);
}

void Lumet::StartSequence(ConfigCmdTavo& cmd) {
  // Protocol: only the first that is set acts.
  if (cmd.Rect().get()) {
    SelectFlash(FlashMode::kRect);
    dsp.StartRectFlash();
  } else if (cmd.Mpf().get()) {
    SelectFlash(FlashMode::kMultiPhase);
    dsp.StartMultiPhaseFlash();
  } else if (cmd.Induction().get()) {
    SelectFlash(FlashMode::kInduction);
    dsp.StartInductionFlash();
  } else if (cmd.Dark().get()) {
    dsp.StartDarkPulse();
  } else if (cmd.ZeroDc0().get() || cmd.ZeroPc0().get()) {
    if (cmd.ZeroDc0().get())
      zeroing.ArmDC0();
    else
      zeroing.ArmPc0();
    SelectFlash(FlashMode::kZero);
    dsp.StartRectFlash();
  } else if (cmd.Break().get()) {
    dsp.BreakSequence();
  } else if (cmd.Reset().get()) {
    dsp.ResetSequencer();
    dsp.RedModulationOn();
    diag_word &= ~REDMODOFF;
    dsp.TestVectorOff();
    diag_word &= ~TESTMODEON;
    UpdateBias(true);
    ApplyTimingSettings();
  }
}

void Lumet::SelectFlash(FlashMode mode) {
  if (flash_mode == mode) return;
  flash_mode = mode;
  ApplyTimingSettings();
}

void Lumet::HandleMessages() {
  const auto handler = [this](auto handle) {
    return [this, handle](const std::string&, const std::string&, const std::string& payload) {
      (this->*handle)(payload);
    };
  };
  bus.Handle("nemra/tavo/xml/update", handler(&Lumet::HandleXMLUpdate));
  bus.Handle("nemra/system/shutdown", handler(&Lumet::HandleSystemShutdown));
  bus.Handle("nemra/kesh/scripts/power/constants/update", handler(&Lumet::_HandlePowerButton));
}

void Lumet::HandleXMLUpdate(const std::string& payload) {
  const auto attempt = [&](auto act) {
    try {
      act();
    } catch (const std::exception& error) {
      std::cout << "Error with request: " << payload << ": " << error.what() << "\n";
    } catch (...) {
      std::cout << "Error with request: " << payload << "\n";
    }
  };
  attempt([&] {
    std::istringstream in(payload);
    TextOutput unheard;
    unheard.Open(bounds::kLongestAnswer);
    console.RefreshDynamicFields();
    doc.request(in, unheard);
  });
  // This runs after a failure too: the marks that it has left would make every later update fail.
  attempt([&] { console.CheckForChanges(); });
}

void Lumet::HandleSystemShutdown(const std::string&) { End(poweroff); }

void Lumet::End(bool* order) {
  if (order != nullptr) *order = true;
  sync();
  PollProcessor::Instance()->Quit();
}

void Lumet::_HandlePowerButton(const std::string& payload) const {
  try {
    Json::Value json;
    std::istringstream in(payload);
    if (!Json::parseFromStream(Json::CharReaderBuilder(), in, &json, nullptr)) return;
    if (debug) std::cout << "_HandlePowerButton: json=" << json << "\n";
    // The disks are synced before the power goes; the shutdown itself has a message of its own.
    if (json.isObject() && json["PowerAction"] == "shutdown") sync();
  } catch (const Json::Exception&) {
    // JSON that is nested too deeply to be read is ignored, like anything that is not JSON.
  }
}
