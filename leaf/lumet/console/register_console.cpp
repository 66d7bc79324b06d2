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
  ++pending_reads;
}

void RegisterConsole::SendWrite(std::uint16_t address, std::uint16_t value) {
  if (debug) std::cout << "Writing " << address << " with " << value << "\n";
  dsp.WriteRegister(address, value);
}

void RegisterConsole::GotValue(std::uint16_t address, std::uint16_t value) {
  if (debug) std::cout << "Result for " << address << " with data " << value << "\n";
  values[address] = value;
  // Nobody has to have asked.
  if (pending_reads > 0) --pending_reads;
  if (pending_reads == 0 && out_deferred) Out();
}

void RegisterConsole::ProcessorHasStarted() {
  pending_reads = 0;
  if (out_deferred) Out();
}

void RegisterConsole::Out() {
  out_deferred = pending_reads != 0;
  if (out_deferred) return;
  clients.SendToFlagged(RegisterNamesRow(values), LumetSocketContext::kDataTest,
                        BacklogLimit::kDiagnostic);
  clients.SendToFlagged(RegisterValuesRow(values, time), LumetSocketContext::kDataTest,
                        BacklogLimit::kDiagnostic);
}
