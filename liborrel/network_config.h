#pragma once

#include <istream>
#include <ostream>
#include <string>

#include "common/machine.h"
#include "common/socket_address.h"

// Host name and addresses of the machine, as its files hold them for the next start of the system.
class NetworkConfig {
 public:
  struct Values {
    std::string host_name = "ch4-xxxx";
    bool dhcp = true;
    SocketAddress address{"192.168.1.95"};
    SocketAddress netmask{"255.255.255.0"};
    SocketAddress gateway{"192.168.1.1"};
  };

  // Reads the files, that of the interfaces as the system does (interfaces(5)). What they don't
  // give, or don't give as IPv4 addresses, stays as above. `machine` must outlive this.
  NetworkConfig(std::string interface, std::string hostname_path, std::string interfaces_path,
                const Machine& machine);

  const Values& Get() const { return values; }
  // Writes the files that the new values change. A file that can't be written is reported in a line
  // on standard output, and left for SaveAgain. Throws std::runtime_error when rights can't be had.
  void set(const Values& wanted);
  // Writes what could not be written. Fails as `set` does.
  void SaveAgain() { apply(); }

 private:
  void apply();
  class Stanza;

  void ReadStanzas(std::istream& file);
  bool BeginsStanza(const std::string& line) const;
  std::string WithoutAuto(const std::string& line) const;
  void CopyOthers(std::istream& from, std::ostream& to) const;
  void WriteStanza(std::ostream& to) const;

  const std::string interface;
  const std::string hostname_path;
  const std::string interfaces_path;
  const Machine& machine;
  Values values;
  bool hostname_dirty = false;
  bool interfaces_dirty = false;
};
