#include "leaf/lumet/lumet.h"

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>
#include <iostream>

#include "common/host_name.h"
#include "common/print_exception.h"
#include "leaf/lumet/calibration.h"
#include "leaf/lumet/version.h"

namespace {

constexpr std::size_t kLongestRequest = std::size_t{4} << 20;  // bytes

// Bits of DIAG.
constexpr std::uint32_t kConsoleConnected = 0x0001;
constexpr std::uint32_t kRedModOff = 0x2000;
constexpr std::uint32_t kTestModeOn = 0x4000;

// Listeners hear in the order of their names; this one is first.
const std::string kListenerName = "00-Lumet";

// The one output format that DSPDevice can read.
constexpr std::uint32_t kOutputFormat = 2;

SocketAddress ConsoleAddress(const Platform& platform) {
  SocketAddress address(platform.console_address);
  address.SetPort(platform.console_port);
  return address;
}

}  // namespace

Lumet::Lumet(const Platform& platform, bool debug_lines, bool* reboot_ordered, bool*)
    : PollSignalHandler(SIGUSR1, true),
      files(doc, platform),
      dsp(platform.dsp_fd >= 0 ? DSPDevice(platform.dsp_fd) : DSPDevice(platform.dsp_device)),
      server("\n", AF_INET6),
      clients(server),
      registers(dsp, clients, debug_lines),
      console(doc, clients, registers, debug_lines),
      reboot(reboot_ordered),
      debug(debug_lines) {
  doc.add_listener(kListenerName, this);
  dsp.SetListener(this);
  dsp.SetOutputFormat(kOutputFormat);
  server.AddListener(this);
  server.SetMessageLimit(kLongestRequest);
  server.Listen(ConsoleAddress(platform));
  platform.console_listens(server.GetPort());
}

Lumet::~Lumet() {
  server.RemoveListener(this);
  dsp.SetListener(nullptr);
  doc.remove_listener(kListenerName);
}

void Lumet::run() {
  try {
    PollProcessor* loop = PollProcessor::Instance();
    loop->AddQuitSignal(SIGINT);
    loop->AddQuitSignal(SIGTERM);
    readconfig();
    if (debug) {
      SaveAll();
      Dump();
    }
    while (loop->Process(-1)) {
    }
    std::cout << "Exiting...\n";
  } catch (...) {
    PrintCurrentException();
  }
  dsp.AllOff();
  // The processor needs a moment for that before its device closes.
  sleep(1);
}

void Lumet::readconfig() {
  files.load_factory();
  files.load_cal();
  files.load_main([this] {
    FillInIdentity();
    dsp.RequestVersion();
  });
  calibration = LightCalibrationOf(doc.Conf());
  UpdateBias(true);
  console.CheckForChanges();
}

void Lumet::FillInIdentity() {
  ConfigTavo& tavo = doc.Conf();
  tavo.Ver().set(std::string(kLumetVersion));
  tavo.Name().set(GetHostName());
  for (Configurable* item : {&tavo.Ver(), &tavo.Name()}) item->set_changed(false);
  for (Configurable* item :
       std::initializer_list<Configurable*>{&tavo.Ver(), &tavo.Name(), &tavo.Ipaddress(),
                                            &tavo.Fpga(), &tavo.Dsp(), &tavo.Serialnumber()})
    item->set_flag(Configurable::ReadOnly, true);
}

void Lumet::item_changed(const ConfigurableEvent&) {
  ConfigCfgTavo& cfg = doc.Conf().Cfg();
  ConfigTavo& tavo = doc.Conf();
  // A change of raw capture, or outside of these, goes to disk with the next one that does.
  const bool save_main =
      cfg.has_changed() &&
      (cfg.FanMode().has_changed() || cfg.FanDuty().has_changed() || cfg.FanFreq().has_changed() ||
       cfg.Measure().has_changed() || cfg.Lightsource().has_changed() ||
       cfg.Rectflash().has_changed() || cfg.Multiphaseflash().has_changed() ||
       cfg.Inductionflash().has_changed() || cfg.Darkpulse().has_changed());
  if (tavo.Factory().has_changed() || tavo.Cal().has_changed()) {
    calibration = LightCalibrationOf(tavo);
    UpdateBias(false);
  }
  if (tavo.Cmd().has_changed()) CarryOutCommands();
  if (tavo.Factory().has_changed()) files.save_factory();
  if (tavo.Cal().has_changed()) files.save_cal();
  if (save_main) files.save_main();
}

void Lumet::CarryOutCommands() {
  ConfigCmdTavo& cmd = doc.Conf().Cmd();
  StartSequence(cmd);
  // Of each pair one wins, and not the same side; clients rely on it.
  if (cmd.Redmodon().get()) {
    dsp.RedModulationOn();
    diag_word &= ~kRedModOff;
  } else if (cmd.Redmodoff().get()) {
    dsp.RedModulationOff();
    diag_word |= kRedModOff;
  }
  if (cmd.Testvectoff().get()) {
    dsp.TestVectorOff();
    diag_word &= ~kTestModeOn;
  } else if (cmd.Testvecton().get()) {
    dsp.TestVectorOn();
    diag_word |= kTestModeOn;
  }
  if (cmd.Rawcapture().get()) {
    ConfigCfgRawDataCapture& capture = doc.Conf().Cfg().Rawdatacapture();
    dsp.StartRawCapture(static_cast<std::uint32_t>(capture.Size().get()),
                        static_cast<std::uint32_t>(capture.When().get()));
  }
  if (cmd.Reboot().get()) {
    *reboot = true;
    sync();
    PollProcessor::Instance()->Quit();
  }
}

void Lumet::StartSequence(ConfigCmdTavo& cmd) {
  // The first that is set acts, and no other.
  if (cmd.Rect().get()) {
    dsp.StartRectFlash();
  } else if (cmd.Mpf().get()) {
    dsp.StartMultiPhaseFlash();
  } else if (cmd.Induction().get()) {
    dsp.StartInductionFlash();
  } else if (cmd.Dark().get()) {
    dsp.StartDarkPulse();
  } else if (cmd.Break().get()) {
    dsp.BreakSequence();
  } else if (cmd.Reset().get()) {
    dsp.ResetSequencer();
    dsp.RedModulationOn();
    diag_word &= ~kRedModOff;
    dsp.TestVectorOff();
    diag_word &= ~kTestModeOn;
    UpdateBias(true);
  }
}

void Lumet::UpdateBias(bool force) {
  ConfigTavo& tavo = doc.Conf();
  if (force || tavo.Cal().has_changed() || tavo.Factory().Calibration().has_changed() ||
      tavo.Factory().Bias().has_changed())
    dsp.SetBiasConfig(BiasConfigOf(tavo));
}

void Lumet::SaveAll() {
  files.save_factory();
  files.save_cal();
  files.save_main();
}

void Lumet::Dump() {
  constexpr const char* kEnd = "\n**********\n";
  doc.report_error(std::cout, "Test error message") << kEnd;
  doc.print_ack(std::cout) << kEnd;
  doc.print_tree(std::cout) << kEnd;
  doc.print_doctype_tree(std::cout) << kEnd;
}

void Lumet::HandleSignal(int) { readconfig(); }

void Lumet::GotData(DataSample& sample) {
  diag_word = console.HasConsole() ? diag_word | kConsoleConnected : diag_word & ~kConsoleConnected;
  registers.SetTime(sample.time);
  DeriveLightQuantities(calibration, transmittance_in_force, sample);
  PublishStatus(sample);
  clients.SendToAll(data_row.Compose(sample, sample.flags | diag_word), BacklogLimit::kData);
}

void Lumet::PublishStatus(const DataSample& sample) {
  // The clock may step back; small steps are waited out.
  const double passed = sample.time - last_status_time;
  if (passed < 1.0 && passed >= -1.0) return;
  last_status_time = sample.time;
  if (clients.AnyoneWants(LumetSocketContext::kStatus))
    clients.SendToFlagged(StatusRow(sample.time, sample.flags | diag_word, temperatures),
                          LumetSocketContext::kStatus, BacklogLimit::kStatus);
}

void Lumet::GotUnknownMessage(std::uint16_t code, const std::uint8_t*, std::uint16_t length) {
  // Standard output stays in hexadecimal behind this; readers of the log know it so.
  std::cout << "Got Unknown Message: cmd=0x" << std::hex << code << " len=0x" << length << "\n";
}

void Lumet::GotBadCommand(const std::string& text) { ShowMessage("DSP Bad cmd: ", text); }
void Lumet::GotInitMessage(const std::string& text) { ShowMessage("DSP INIT: ", text); }
void Lumet::GotInfoMessage(const std::string& text) { ShowMessage("DSP: ", text); }
void Lumet::GotFatalMessage(const std::string& text) { ShowMessage("DSP FATAL: ", text); }

void Lumet::GotDebugMessage(const std::string& text) {
  if (debug) ShowMessage("DSP: ", text);
}

void Lumet::GotPong(const std::string& text) { std::cout << "GotPong: " << text << "\n"; }

void Lumet::GotVersion(const std::string& dsp_version, const std::string& fpga_version) {
  doc.Conf().Dsp().set(dsp_version);
  doc.Conf().Fpga().set(fpga_version);
  std::cout << "DSP Version:" << dsp_version << "\nFPGA Version:" << fpga_version << "\n";
}

void Lumet::ShowMessage(std::string_view prefix, std::string_view text) {
  const std::string row = DataMsgRow(prefix, text);
  clients.SendToAll(row, BacklogLimit::kReply);
  std::cout << row;
}

void Lumet::GotRegisterValue(std::uint16_t address, std::uint16_t value) {
  registers.GotValue(address, value);
}

void Lumet::ClientConnected(SocketClient* client) { console.ClientConnected(client); }

void Lumet::GotRequest(SocketClient* client, const std::string& text) {
  console.GotRequest(client, text);
}

void Lumet::ClientDisconnected(SocketClient* client) { console.ClientDisconnected(client); }
