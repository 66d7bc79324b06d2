#pragma once

#include <optional>
#include <string>

#include "common/bonjour_client.h"
#include "liborrel/doctavo/config_tavo.h"

// The head's place in service discovery: its own record, and the console unit that it looks for.

// Publishes the record anew, with the versions and the serial number that `tavo` holds now,
// and browses for console units. Clients are served on `port`; `interface` gives the hardware
// address.
void Announce(const ConfigTavo& tavo, const std::string& interface, int port,
              BonjourClient& bonjour);

// Where the broker of a console unit is, "fe80::1%eth0", if the service found is the unit to which
// the head with `serial_number` is attached.
std::optional<std::string> BrokerOfOwnConsoleUnit(const SocketAddress& address, const TxtMap& txt,
                                                  const std::string& serial_number,
                                                  const std::string& interface);
