#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "leaf/lumet/console/console_delivery.h"
#include "leaf/lumet/link/dsp_device.h"

// Reading and writing registers of the processor from the console, for bench work. Numbers are
// hexadecimal. What was read is kept by address until it is cleared. A command that the link has no
// room for is dropped, and its client is sent a message.
class RegisterConsole {
 public:
  // Both must outlive this.
  RegisterConsole(DSPDevice& dsp, ConsoleDelivery& clients, bool debug)
      : dsp(dsp), clients(clients), debug(debug) {}

  // `client` is the one that sent the command; `arguments` follow its word. A command that can't be
  // read does nothing.
  void Read(SocketClient* client, std::string_view arguments);
  void Write(SocketClient* client, std::string_view arguments);
  // "<address>=<value>" writes; an address alone reads.
  void Evaluate(SocketClient* client, std::string_view line);
  // Sends the rows of all values, once every read is answered.
  void Out();
  void Clear() { registerValues.clear(); }

  // The processor's answer to a read, or a value that it sends unasked.
  void GotValue(std::uint16_t address, std::uint16_t value);
  // `count` reads will not be answered. Rows that waited only for them go out with what has come.
  void LostReads(std::size_t count);
  // No read that was sent up to now will be answered.
  void LostAllReads() { LostReads(pendingRegisterReads); }
  // Time of the latest sample, for the rows.
  void SetTime(double seconds) { time = seconds; }

 private:
  void SendRead(SocketClient* client, std::uint16_t address);
  void SendWrite(SocketClient* client, std::uint16_t address, std::uint16_t value);
  void TellDropped(SocketClient* client, const std::string& command);

  DSPDevice& dsp;
  ConsoleDelivery& clients;
  bool debug;
  std::map<std::uint16_t, std::uint16_t> registerValues;
  std::size_t pendingRegisterReads = 0;  // sent, and not answered so far
  bool outDeferred = false;
  double time = 0;
};
