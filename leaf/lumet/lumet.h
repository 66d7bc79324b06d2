#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/bonjour_client.h"
#include "common/machine.h"
#include "common/memory.h"
#include "common/mqtt_client.h"
#include "common/poll_processor.h"
#include "common/restore_network_sanity.h"
#include "common/service_status.h"
#include "common/socket_server.h"
#include "leaf/lumet/board/diagnostics.h"
#include "leaf/lumet/board/hw_mon.h"
#include "leaf/lumet/board/run_time_event_logger.h"
#include "leaf/lumet/board/saver.h"
#include "leaf/lumet/board/settings_files.h"
#include "leaf/lumet/board/system_settings.h"
#include "leaf/lumet/bus/message_bus.h"
#include "leaf/lumet/bus/publication_clock.h"
#include "leaf/lumet/console/console.h"
#include "leaf/lumet/console/console_delivery.h"
#include "leaf/lumet/console/rows.h"
#include "leaf/lumet/events/event_recorder.h"
#include "leaf/lumet/instrument.h"
#include "leaf/lumet/light/light_controller.h"
#include "leaf/lumet/light/light_quantities.h"
#include "leaf/lumet/light/timing.h"
#include "leaf/lumet/light/zeroing.h"
#include "leaf/lumet/link/dsp_device.h"
#include "leaf/lumet/link/raw_capture.h"
#include "liborrel/doctavo/doc_tavo.h"

// The running instrument: owns everything long-lived, listens to all of it, and is the place where
// its events meet. Each handler is a list of steps; the steps are in the files named after them.
class Lumet : public DSPDevice::Listener,
              public SocketServerListener,
              public ConfigurableListener,
              public BonjourClientListener,
              public MQTTClient::Listener,
              public PollSignalHandler,
              public PollTimer {
 public:
  // Opens the device and the console service, so it is built before rights are given up. Throws
  // ErrnoError when it can't. The flags are set when the machine is to go down once the
  // process has cleaned up; they, `instrument` and `machine` must outlive this.
  Lumet(const Instrument& instrument, const Machine& machine, bool debug, bool* reboot,
        bool* poweroff);
  ~Lumet() override;

  // Turns the loop until quit, then takes the processor to its safe state and gives clients a
  // second to take what is queued for them. Lets no exception out.
  void run();
  // One turn of the loop, which waits `timeout_ms` at most (negative: no limit), with the saves
  // that belong to it. False once the head is to end.
  bool Turn(int timeout_ms = -1);
  // Reads the settings files and sets up the head accordingly; SIGUSR1 does it again.
  void readconfig();

  // The road of a setting: what changed in the document reaches the processor, the system and the
  // files. Each step runs, even if one before it throws; the first exception is thrown at the end.
  void item_changed(const ConfigurableEvent& event) override;

  // The road of a sample.
  void GotData(DataSample& sample) override;

  // What the processor says.
  void GotUnknownMessage(std::uint16_t code, const std::uint8_t* payload,
                         std::uint16_t length) override;
  void GotBadCommand(const std::string& text) override;
  void GotInitMessage(const std::string& text) override;
  void GotDebugMessage(const std::string& text) override;
  void GotInfoMessage(const std::string& text) override;
  void GotPong(const std::string& text) override;
  void GotVersion(const std::string& dsp_version, const std::string& fpga_version) override;
  void GotFatalMessage(const std::string& text) override;
  void GotRegisterValue(std::uint16_t address, std::uint16_t value) override;
  void GotRawCapture(std::uint32_t index, const std::uint8_t* bytes, std::uint32_t count) override;
  void LostRegisterReads(std::size_t count) override;
  void LostDevice() override;

  // What clients do.
  void ClientConnected(SocketClient* client) override;
  void GotRequest(SocketClient* client, const std::string& text) override;
  void ClientSentTooMuch(SocketClient* client) override { console.ClientSentTooMuch(client); }
  bool ClientMayWrite(SocketClient* client) override;
  void ClientDisconnected(SocketClient* client) override;

  // What the network shows: the console unit that this head belongs to has the broker.
  void ServiceFound(const std::string& name, const std::string& type, const std::string& domain,
                    int interface_index, const std::string& host_name, const SocketAddress& address,
                    const TxtMap& txt) override;

  // What the message bus says.
  void OnConnect(int result) override;
  void OnDisconnect(int result) override;
  void OnPublish(int message_id) override;
  void OnMessage(int message_id, const std::string& topic, const void* payload, int length, int qos,
                 bool retain) override;

  void HandleSignal(int signo) override;
  // Renews the head's service record.
  void Expired() override;
  const char* GetName() override { return "Lumet"; }

 private:
  // The console and the temperature in DIAG; a fault shuts the light off.
  void UpdateDiagnostics(float max_temperature);
  void TellOfTemperatureFault();
  // Makes the light quantities follow the calibration as it is now.
  void FollowCalibration();
  // Once a second, and twice a second, by the time of the samples.
  void PublishStatus(const DataSample& sample, float max_temperature);
  void PublishData(const DataSample& sample);
  // Gathers what belongs to an event and ends it; between events, steps the light controller.
  void FollowEvents(const DataSample& sample);
  void FinishEvent();
  // After a reading that went into the zero of this name.
  void FinishZeroing(const std::string& zero);
  // What messages from the bus ask for.
  void HandleMessages();
  void HandleXMLUpdate(const std::string& payload);
  void HandleSystemShutdown(const std::string& payload);
  void _HandlePowerButton(const std::string& payload) const;
  void ShowMessage(std::string_view prefix, std::string_view text);
  // Puts what the head knows about itself into the document.
  void FillInIdentity();
  // Sends the processor its timing record: the only way in which light levels, rates and flash
  // shapes reach it. In a temperature fault the light is shut off instead, for good.
  void ApplyTimingSettings();
  void SelectFlash(FlashMode mode);
  // Sends the processor its calibration, if it has changed or `force` is set.
  void UpdateBias(bool force);
  // What the `cmd` subtree asks for.
  void CarryOutCommands();
  void StartSequence(ConfigCmdTavo& cmd);
  // Ends the process, in good order. `order` is what the machine is to do after that: `reboot` or
  // `poweroff`, which may be null.
  static void End(bool* order);
  // Writes the commands queued for the processor, as far as it takes them at once.
  void SendCommands();
  void SaveAll();
  void Dump();

  const Instrument& instrument;
  RunTimeEventLogger run_time_logger;
  BonjourClient bonjour;
  SystemClock system_clock;
  PtpConfig ptp_service;
  NetworkConfig network;
  SystemSettings system_settings;
  DocTavo doc;
  MessageBus bus;
  SettingsFiles files;
  Saver saver;
  DSPDevice dsp;
  SocketServer server;
  ConsoleDelivery clients;
  RegisterConsole registers;
  Console console;
  RestoreNetworkSanity route_watch;
  MemoryTrimmer trimmer;
  ServiceStatus service;
  bool* reboot;
  bool* poweroff;
  bool debug;
  LumetLightController light_controller;
  HWMon hw_mon;
  FanStepper fan;
  Zeroing zeroing;
  RawCapture raw_capture;
  EventRecorder events;
  LightQuantities light_quantities;
  std::uint32_t calibration_count;  // change_count of the leaves that light_quantities was made of
  DataRowComposer data_row;
  float transmittance_in_force = 1;
  FlashMode flash_mode = FlashMode::kRect;
  unsigned flash_modrate_in_force = 0;  // Hz
  unsigned dark_modrate_in_force = 0;   // Hz
  std::uint32_t diag_word = 0;
  PublicationClock last_status_time{1.0};
  PublicationClock last_data_time{0.5};
};
