#include "leaf/lumet/lumet.h"

#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

#include "common/host_name.h"
#include "common/network_interface.h"
#include "common/print_exception.h"
#include "common/steps.h"
#include "leaf/lumet/bounds.h"
#include "leaf/lumet/bus/announcement.h"
#include "leaf/lumet/light/calibration.h"
#include "leaf/lumet/version.h"

namespace {

// Listeners are called in the order of their names; this one comes first.
const std::string kListenerName = "00-Lumet";

// The service record follows the start and new versions after a moment, in which more may come.
constexpr int kAnnounceMs = 3000;

// The one output format that DSPDevice can read.
constexpr std::uint32_t kOutputFormat = 2;

SocketAddress ConsoleAddress(const Instrument& instrument) {
  SocketAddress address(instrument.console_address);
  address.SetPort(instrument.console_port);
  return address;
}

// Prints what `act` throws.
template <class Act>
void Guarded(Act act) {
  try {
    act();
  } catch (...) {
    PrintCurrentException();
  }
}

}  // namespace

Lumet::Lumet(const Instrument& instrument, const Machine& machine, bool debug, bool* reboot,
             bool* poweroff)
    : PollSignalHandler(SIGUSR1, true),
      PollTimer(-1, true),
      instrument(instrument),
      run_time_logger(instrument.run_time_log),
      bonjour(*this),
      system_clock(instrument.zoneinfo, instrument.localtime, instrument.timezone,
                   instrument.clock_device, machine),
      ptp_service(instrument.ptp_options, instrument.ptp_script, machine),
      network(instrument.network_interface, instrument.hostname_path, instrument.interfaces_path,
              machine),
      system_settings(system_clock, ptp_service, network),
      bus(instrument.broker_address, instrument.broker_port, this, doc),
      files(doc, {instrument.factory_settings, instrument.cal_settings, instrument.main_settings},
            machine),
      saver(files, system_settings, [this] { SendCommands(); }),
      dsp(instrument.dsp_fd >= 0 ? DSPDevice(instrument.dsp_fd)
                                 : DSPDevice(instrument.dsp_device, &machine)),
      server("\n", SocketAddress(instrument.console_address).Family()),
      clients(server),
      registers(dsp, clients, debug),
      console(doc, clients, registers, instrument.network_interface, debug,
              [this] { bus.PublishDocument(); }),
      route_watch(machine),
      service(machine),
      reboot(reboot),
      poweroff(poweroff),
      debug(debug),
      light_controller(doc, debug),
      hw_mon(instrument.i2c_devices, machine),
      fan(dsp, doc),
      zeroing(doc, instrument.calibration_log, machine),
      light_quantities(LightCalibrationOf(doc.Conf())),
      calibration_count(doc.Conf().Factory().Calibration().change_count()) {
  doc.add_listener(kListenerName, this);
  dsp.SetListener(this);
  dsp.SetOutputFormat(kOutputFormat);
  server.AddListener(this);
  server.SetMessageLimit(bounds::kLongestRequest);
  server.SetUnfinishedLimit(bounds::kUnfinishedInAll);
  doc.Conf().History().set_limit(bounds::kHistoryRecords);
  server.Listen(ConsoleAddress(instrument));
  instrument.console_listens(server.GetPort());
  if (instrument.discovery) bonjour.Restart();
  HandleMessages();
}

Lumet::~Lumet() {
  bus.SayGoodbye();
  server.RemoveListener(this);
  dsp.SetListener(nullptr);
  doc.remove_listener(kListenerName);
}

void Lumet::run() {
  ReturnLargeMemory();
  Guarded([this] {
    PollProcessor* loop = PollProcessor::Instance();
    loop->AddQuitSignal(SIGINT);
    loop->AddQuitSignal(SIGTERM);
    readconfig();
    if (debug) {
      SaveAll();
      Dump();
    }
    service.Ready();
    while (Turn()) {
    }
    std::cout << "Exiting...\n";
  });
  service.Stopping();
  dsp.AllOff();
  Guarded([this] { dsp.Drain(std::chrono::steady_clock::now() + DSPDevice::kLongestStop); });
  saver.Save();
  // The processor needs a moment for that before its device closes; clients get it too.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  Guarded([&] { server.Drain(end); });
  std::this_thread::sleep_until(end);
}

bool Lumet::Turn(int timeout_ms) {
  if (!PollProcessor::Instance()->Process(saver.IsUrgent() ? 0 : timeout_ms)) return false;
  saver.EndTurn();
  return true;
}

void Lumet::readconfig() {
  // What clients have been told, or will be, must not be overwritten by what is read.
  saver.Save();
  system_settings.FillInZones(doc.Conf());
  files.load_factory();
  files.load_cal();
  files.load_main([this] {
    system_settings.FillIn(doc.Conf());
    FillInIdentity();
    dsp.RequestVersion();
  });
  UpdateBias(true);
  console.CheckForChanges();
  saver.Save();
  SetTimeout(kAnnounceMs);
}

void Lumet::FillInIdentity() {
  ConfigTavo& tavo = doc.Conf();
  tavo.Ver().set(std::string(kLumetVersion));
  tavo.Ipaddress().set(NetworkInterface::Read(instrument.network_interface).address.ToString());
  tavo.Name().set(GetHostName());
  for (Configurable* item : {&tavo.Ver(), &tavo.Ipaddress(), &tavo.Name()})
    item->set_changed(false);
  for (Configurable* item :
       std::initializer_list<Configurable*>{&tavo.Ver(), &tavo.Name(), &tavo.Ipaddress(),
                                            &tavo.Fpga(), &tavo.Dsp(), &tavo.Serialnumber()})
    item->set_flag(Configurable::ReadOnly, true);
}

void Lumet::item_changed(const ConfigurableEvent&) {
  ConfigCfgTavo& cfg = doc.Conf().Cfg();
  ConfigTavo& tavo = doc.Conf();
  const bool timing_changed = cfg.Measure().has_changed() || cfg.Lightsource().has_changed() ||
                              cfg.Rectflash().has_changed() ||
                              cfg.Multiphaseflash().has_changed() ||
                              cfg.Inductionflash().has_changed() || cfg.Darkpulse().has_changed();
  // A change of raw capture, or outside these, goes to disk with the next change that does.
  const bool save_main = timing_changed || cfg.FanMode().has_changed() ||
                         cfg.FanDuty().has_changed() || cfg.FanFreq().has_changed();
  Steps steps;
  if (timing_changed) steps.Run([&] { ApplyTimingSettings(); });
  steps.Run([&] { system_settings.Apply(tavo); });
  steps.Run([&] { UpdateBias(false); });
  if (tavo.Cmd().has_changed()) steps.Run([&] { CarryOutCommands(); });
  steps.Run([&] {
    saver.Changed({tavo.Factory().has_changed(), tavo.Cal().has_changed(), save_main});
  });
  steps.ThrowFirstFailure();
}

void Lumet::ApplyTimingSettings() {
  ConfigCfgTavo& cfg = doc.Conf().Cfg();
  transmittance_in_force = cfg.Lightsource().Transmittance().get();
  if ((diag_word & TEMP_FAULT) != 0) {
    cfg.Lightsource().Control().set(ConfigLightSourceModeTavo::Off);
    cfg.Measure().Control().set(ConfigControlMode::Off);
    dsp.AllOff();
    return;
  }
  const TimingConfig timing = ComputeTiming(doc.Conf(), flash_mode, light_controller.GetDacs());
  flash_modrate_in_force = timing.flash_modrate;
  dark_modrate_in_force = timing.dark_modrate;
  dsp.SetTimingConfig(timing);
}

void Lumet::UpdateBias(bool force) {
  ConfigTavo& tavo = doc.Conf();
  if (force || tavo.Cal().has_changed() || tavo.Factory().Calibration().has_changed() ||
      tavo.Factory().Bias().has_changed())
    dsp.SetBiasConfig(BiasConfigOf(tavo));
}

void Lumet::SendCommands() {
  constexpr int kPackets = 64;
  struct pollfd link = {dsp.GetFD(), POLLOUT, 0};
  for (int i = 0; i < kPackets && (dsp.GetEvents() & POLLOUT) != 0; ++i) {
    if (poll(&link, 1, 0) <= 0 || (link.revents & POLLOUT) == 0) return;
    dsp.HandleWrite();
  }
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
  const float max_temperature = hw_mon.MaxTemperature();
  UpdateDiagnostics(max_temperature);
  registers.SetTime(sample.time);
  FollowCalibration();
  light_quantities.Derive(transmittance_in_force, sample);
  if (const auto zero = zeroing.Take(sample.time, sample.values[DataSample::DC],
                                     sample.values[DataSample::PC], sample.code))
    FinishZeroing(*zero);
  PublishStatus(sample, max_temperature);
  if (clients.AnyoneListens())
    clients.SendToAll(data_row.Compose(sample, sample.flags | diag_word), BacklogLimit::kData);
  PublishData(sample);
  FollowEvents(sample);
}

// Goes by the leaves' own count, since a standing query writes them without notifying anybody.
void Lumet::FollowCalibration() {
  const std::uint32_t count = doc.Conf().Factory().Calibration().change_count();
  if (count == calibration_count) return;
  calibration_count = count;
  light_quantities = LightQuantities(LightCalibrationOf(doc.Conf()));
}

void Lumet::UpdateDiagnostics(float max_temperature) {
  diag_word = NextDiagnostics(diag_word, console.HasConsole(), max_temperature);
  if (!IsTooHot(max_temperature)) return;
  ApplyTimingSettings();
  ConfigCfgTavo& cfg = doc.Conf().Cfg();
  if (cfg.Lightsource().Control().has_changed() || cfg.Measure().Control().has_changed())
    TellOfTemperatureFault();
}

// The light is off already. That the settings say so is a change like any other: it reaches the
// controller, the file, the clients and the bus.
void Lumet::TellOfTemperatureFault() {
  try {
    doc.notify();
  } catch (...) {
    // A file that can't be written is no reason to end now.
    PrintCurrentException();
  }
  console.CheckForChanges();
}

void Lumet::FinishZeroing(const std::string& zero) {
  UpdateBias(true);
  saver.Changed({.cal = true});
  saver.Save();
  // After the save, so that the record of this zero reaches the file with the next one.
  zeroing.LogCalibration(Timestamp(std::floor(Timestamp::Now().get())), "Zero " + zero);
  console.CheckForChanges();
}

void Lumet::PublishStatus(const DataSample& sample, float max_temperature) {
  if (!last_status_time.NextIsDue(sample.time)) return;
  const auto status_values =
      StatusValues(sample.time, sample.flags | diag_word, hw_mon.Temperatures());
  fan.Step(max_temperature);
  if (clients.AnyoneWants(LumetSocketContext::kStatus))
    clients.SendToFlagged(StatusRow(status_values), LumetSocketContext::kStatus,
                          BacklogLimit::kStatus);
  if (bus.IsConnected())
    bus.PublishRelative("output/DATASTAT", JsonPayload(StatusChannels(), status_values), false);
}

void Lumet::PublishData(const DataSample& sample) {
  if (!last_data_time.NextIsDue(sample.time) || !bus.IsConnected()) return;
  const auto data_values = DataValues(sample, sample.flags | diag_word);
  bus.PublishRelative("output/DATA", JsonPayload(DataChannels(), data_values), false);
}

void Lumet::FollowEvents(const DataSample& sample) {
  if (sample.code != kMeasuring) {
    events.Gather(sample);
    if (!events.IsFull()) return;
    ShowMessage("", "The event is longer than " + std::to_string(bounds::kEventSamples) +
                        " samples; what follows is the next event");
    return FinishEvent();
  }
  if (!events.IsEmpty()) FinishEvent();
  if (light_controller.Step(sample.values[DataSample::PFD])) ApplyTimingSettings();
}

void Lumet::FinishEvent() {
  const EventRecord::Context context = {run_time_logger.NextValue("event_id"), flash_mode,
                                        flash_modrate_in_force, dark_modrate_in_force};
  // Whatever comes of it, the next event is a new one, and the number of this one is used up.
  EventRecorder finished = std::exchange(events, {});
  if (!bus.IsConnected() && !debug) return;
  std::unique_ptr<EventRecord> record = finished.WriteEvent(doc.Conf(), context);
  const EventAnalysis::Kind kind = record->Kind();
  if (debug) {
    for (std::string_view piece = record->Next(); !piece.empty(); piece = record->Next())
      std::cout << piece;
    std::cout << std::endl;
    record->Rewind();
  }
  if (kind == EventAnalysis::kDark)
    bus.PublishRelative("output/DATADARKEVENT", std::move(record), false);
  else if (kind != EventAnalysis::kNone)
    bus.PublishRelative("output/DATAFLASHEVENT", std::move(record), false);
}

void Lumet::GotUnknownMessage(std::uint16_t code, const std::uint8_t*, std::uint16_t length) {
  // Protocol: standard output stays in hexadecimal after this.
  std::cout << "Got Unknown Message: cmd=0x" << std::hex << code << " len=0x" << length << "\n";
}

void Lumet::GotBadCommand(const std::string& text) { ShowMessage("DSP Bad cmd: ", text); }

void Lumet::GotInitMessage(const std::string& text) {
  ShowMessage("DSP INIT: ", text);
  registers.LostAllReads();
}

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
  SetTimeout(kAnnounceMs);
}

void Lumet::ShowMessage(std::string_view prefix, std::string_view text) {
  const std::string row = DataMsgRow(prefix, text);
  clients.SendToAll(row, BacklogLimit::kReply);
  std::cout << row;
}

void Lumet::GotRegisterValue(std::uint16_t address, std::uint16_t value) {
  registers.GotValue(address, value);
}

void Lumet::GotRawCapture(std::uint32_t, const std::uint8_t* bytes, std::uint32_t count) {
  const std::string rows = raw_capture.Take({bytes, count});
  if (!rows.empty())
    clients.SendToFlagged(rows, LumetSocketContext::kDataRawCapture, BacklogLimit::kDiagnostic);
}

void Lumet::LostRegisterReads(std::size_t count) { registers.LostReads(count); }

void Lumet::LostDevice() { registers.LostAllReads(); }

void Lumet::ClientConnected(SocketClient* client) {
  console.ClientConnected(client);
  // The server has just deleted the clients that are gone.
  trimmer.Soon();
}

void Lumet::GotRequest(SocketClient* client, const std::string& text) {
  console.GotRequest(client, text);
  saver.Told(client);
}

bool Lumet::ClientMayWrite(SocketClient* client) { return saver.MayLeave(client); }

void Lumet::ClientDisconnected(SocketClient* client) {
  console.ClientDisconnected(client);
  trimmer.Soon();
}

void Lumet::Expired() {
  if (instrument.discovery)
    Announce(doc.Conf(), instrument.network_interface, server.GetPort(), bonjour);
}

void Lumet::ServiceFound(const std::string& name, const std::string&, const std::string&, int,
                         const std::string&, const SocketAddress& address, const TxtMap& txt) {
  const std::string& serial_number = doc.Conf().Factory().Serialnumber().get();
  if (const auto broker =
          BrokerOfOwnConsoleUnit(address, txt, serial_number, instrument.network_interface))
    bus.MoveTo(*broker, name);
}

void Lumet::OnConnect(int) { bus.Connected(); }
void Lumet::OnDisconnect(int) { bus.Lost(); }
void Lumet::OnPublish(int) { bus.Published(); }

void Lumet::OnMessage(int, const std::string& topic, const void* payload, int length, int, bool) {
  const auto* bytes = static_cast<const char*>(payload);
  bus.Dispatch(topic, std::string(bytes, bytes + length));
}
