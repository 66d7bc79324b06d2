#include "leaf/lumet/console/register_console.h"

#include <iostream>
#include <sstream>

#include "leaf/lumet/console/rows.h"

void RegisterConsole::Read(std::string_view arguments) {
  std::istringstream in{std::string(arguments)};
  std::uint16_t address = 0;
  if (in >> std::hex >> address) SendRead(address);
}

void RegisterConsole::Write(std::string_view arguments) {
  std::istringstream in{std::string(arguments)};
  std::uint16_t address = 0;
  std::uint16_t value = 0;
  if (in >> std::hex >> address >> value) SendWrite(address, value);
}

void RegisterConsole::Evaluate(std::string_view line) {
  std::istringstream in{std::string(line)};
  std::uint16_t address = 0;
  std::uint16_t value = 0;
  char sign = 0;
  if (!(in >> std::hex >> address)) return;
  if (in >> sign >> value && sign == '=')
    SendWrite(address, value);
  else
    SendRead(address);
}

void RegisterConsole::SendRead(std::uint16_t address) {
  if (debug) std::cout << "Reading " << address << "\n";
  dsp.ReadRegister(address);
  ++pendingRegisterReads;
}

void RegisterConsole::SendWrite(std::uint16_t address, std::uint16_t value) {
  if (debug) std::cout << "Writing " << address << " with " << value << "\n";
  dsp.WriteRegister(address, value);
}

void RegisterConsole::GotValue(std::uint16_t address, std::uint16_t value) {
  if (debug) std::cout << "Result for " << address << " with data " << value << "\n";
  registerValues[address] = value;
  // Nobody has to have asked.
  if (pendingRegisterReads > 0) --pendingRegisterReads;
  if (pendingRegisterReads == 0 && outDeferred) Out();
}

void RegisterConsole::ProcessorHasStarted() {
  pendingRegisterReads = 0;
  if (outDeferred) Out();
}

void RegisterConsole::Out() {
  outDeferred = pendingRegisterReads != 0;
  if (outDeferred) return;
  clients.SendToFlagged(RegisterNamesRow(registerValues), LumetSocketContext::kDataTest,
                        BacklogLimit::kDiagnostic);
  clients.SendToFlagged(RegisterValuesRow(registerValues, time), LumetSocketContext::kDataTest,
                        BacklogLimit::kDiagnostic);
}
