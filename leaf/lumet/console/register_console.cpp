#include "leaf/lumet/console/register_console.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iostream>
#include <sstream>

#include "leaf/lumet/console/rows.h"

namespace {

std::string Hexadecimal(std::uint16_t number) {
  std::array<char, 4> digits = {};
  return {digits.data(),
          std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr};
}

}  // namespace

void RegisterConsole::Read(SocketClient* client, std::string_view arguments) {
  std::istringstream in{std::string(arguments)};
  std::uint16_t address = 0;
  if (in >> std::hex >> address) SendRead(client, address);
}

void RegisterConsole::Write(SocketClient* client, std::string_view arguments) {
  std::istringstream in{std::string(arguments)};
  std::uint16_t address = 0;
  std::uint16_t value = 0;
  if (in >> std::hex >> address >> value) SendWrite(client, address, value);
}

void RegisterConsole::Evaluate(SocketClient* client, std::string_view line) {
  std::istringstream in{std::string(line)};
  std::uint16_t address = 0;
  std::uint16_t value = 0;
  char sign = 0;
  if (!(in >> std::hex >> address)) return;
  if (in >> sign >> value && sign == '=')
    SendWrite(client, address, value);
  else
    SendRead(client, address);
}

void RegisterConsole::SendRead(SocketClient* client, std::uint16_t address) {
  if (debug) std::cout << "Reading " << address << "\n";
  if (dsp.ReadRegister(address))
    ++pendingRegisterReads;
  else
    TellDropped(client, "r " + Hexadecimal(address));
}

void RegisterConsole::SendWrite(SocketClient* client, std::uint16_t address, std::uint16_t value) {
  if (debug) std::cout << "Writing " << address << " with " << value << "\n";
  if (!dsp.WriteRegister(address, value))
    TellDropped(client, "w " + Hexadecimal(address) + " " + Hexadecimal(value));
}

void RegisterConsole::TellDropped(SocketClient* client, const std::string& command) {
  const std::string row =
      DataMsgRow("The signal processor takes no more commands now. Dropped: ", command);
  clients.SendToClient(client, row, BacklogLimit::kReply);
}

void RegisterConsole::GotValue(std::uint16_t address, std::uint16_t value) {
  if (debug) std::cout << "Result for " << address << " with data " << value << "\n";
  registerValues[address] = value;
  // Not every value has been asked for.
  LostReads(1);
}

void RegisterConsole::LostReads(std::size_t count) {
  pendingRegisterReads -= std::min(count, pendingRegisterReads);
  if (pendingRegisterReads == 0 && outDeferred) Out();
}

void RegisterConsole::Out() {
  outDeferred = pendingRegisterReads != 0;
  if (outDeferred) return;
  clients.SendToFlagged(RegisterNamesRow(registerValues), LumetSocketContext::kDataTest,
                        BacklogLimit::kDiagnostic);
  clients.SendToFlagged(RegisterValuesRow(registerValues, time), LumetSocketContext::kDataTest,
                        BacklogLimit::kDiagnostic);
}
