#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "leaf/lumet/console/console_delivery.h"
#include "leaf/lumet/link/dsp_device.h"

// Reading and writing registers of the processor from the console, for bench work. Numbers are
// hexadecimal. What was read is kept by address until it is cleared.
class RegisterConsole {
 public:
  // Both must outlive this.
  RegisterConsole(DSPDevice& device, ConsoleDelivery& delivery, bool debug_lines)
      : dsp(device), clients(delivery), debug(debug_lines) {}

  // The arguments behind the word of each command; what can't be read does nothing.
  void Read(std::string_view arguments);
  void Write(std::string_view arguments);
  // "<address>=<value>" writes; an address alone reads.
  void Evaluate(std::string_view line);
  // Sends the rows of all values, once every read is answered.
  void Out();
  void Clear() { registerValues.clear(); }

  // The processor's answer to a read, or a value that it tells on its own.
  void GotValue(std::uint16_t address, std::uint16_t value);
  // It answers nothing that it was asked before: rows that wait go out with what has come.
  void ProcessorHasStarted();
  // Time of the latest sample, for the rows.
  void SetTime(double seconds) { time = seconds; }

 private:
  void SendRead(std::uint16_t address);
  void SendWrite(std::uint16_t address, std::uint16_t value);

  DSPDevice& dsp;
  ConsoleDelivery& clients;
  bool debug;
  std::map<std::uint16_t, std::uint16_t> registerValues;
  int pendingRegisterReads = 0;
  bool outDeferred = false;
  double time = 0;
};
