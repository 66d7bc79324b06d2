#include "leaf/lumet/lumet.h"

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <memory>
#include <optional>

#include "common/host_name.h"
#include "common/print_exception.h"

namespace {

// The one output format that DSPDevice can read.
constexpr std::uint32_t kOutputFormat = 2;

SocketAddress ConsoleAddress(const Platform& platform) {
  SocketAddress address(platform.console_address);
  address.SetPort(platform.console_port);
  return address;
}

}  // namespace

Lumet::Lumet(const Platform& platform, bool debug_lines, bool*, bool*)
    : PollSignalHandler(SIGUSR1, true),
      dsp(platform.dsp_fd >= 0 ? DSPDevice(platform.dsp_fd) : DSPDevice(platform.dsp_device)),
      server("\n", AF_INET6),
      clients(server),
      debug(debug_lines) {
  dsp.SetListener(this);
  dsp.SetOutputFormat(kOutputFormat);
  server.AddListener(this);
  server.Listen(ConsoleAddress(platform));
  platform.console_listens(server.GetPort());
}

Lumet::~Lumet() {
  server.RemoveListener(this);
  dsp.SetListener(nullptr);
}

void Lumet::run() {
  try {
    PollProcessor* loop = PollProcessor::Instance();
    loop->AddQuitSignal(SIGINT);
    loop->AddQuitSignal(SIGTERM);
    readconfig();
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
  dsp.RequestVersion();
  dsp.SetBiasConfig(bias);
}

void Lumet::HandleSignal(int) { readconfig(); }

void Lumet::GotData(DataSample& sample) {
  DeriveLightQuantities(calibration, transmittance_in_force, sample);
  clients.SendToAll(data_row.Compose(sample, sample.flags | diag_word), BacklogLimit::kData);
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
  std::cout << "DSP Version:" << dsp_version << "\nFPGA Version:" << fpga_version << "\n";
}

void Lumet::ShowMessage(std::string_view prefix, std::string_view text) {
  const std::string row = DataMsgRow(prefix, text);
  clients.SendToAll(row, BacklogLimit::kReply);
  std::cout << row;
}

void Lumet::ClientConnected(SocketClient* client) {
  client->SetContext(std::make_shared<LumetSocketContext>());
  ConsoleDelivery::SendToClient(client, OpeningBlock(GetHostName(), serial_number, std::nullopt),
                                BacklogLimit::kReply);
}
