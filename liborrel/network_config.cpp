#include "liborrel/network_config.h"

#include <cctype>
#include <fstream>

#include "common/privilege_guard.h"
#include "common/safe_file.h"
#include "common/str_util.h"

namespace {

bool BeginsWithSpace(const std::string& line) {
  return !line.empty() && std::isspace(static_cast<unsigned char>(line[0])) != 0;
}

// Takes the address behind `word` in a line, wherever it stands there.
void TakeAddress(const std::string& line, const std::string& word, SocketAddress& address) {
  const std::size_t at = line.find(word);
  if (at == std::string::npos) return;
  try {
    const SocketAddress found(StripEndWS(line.substr(at + word.size())));
    if (found.Family() == AF_INET) address = found;
  } catch (const SocketError&) {
    // Somebody else's address, of hardware say.
  }
}

}  // namespace

NetworkConfig::NetworkConfig(const Platform& where)
    : platform(where), interface(where.network_interface) {
  std::ifstream name_file(platform.hostname_path);
  if (std::string line; std::getline(name_file, line)) values.host_name = line;
  std::ifstream file(platform.interfaces_path);
  ReadStanzas(file);
}

void NetworkConfig::ReadStanzas(std::istream& file) {
  bool in_stanza = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("iface " + interface)) {
      in_stanza = true;
      values.dhcp = line.find("static") == std::string::npos;
    } else if (!line.starts_with('#') && !BeginsWithSpace(line)) {
      in_stanza = false;
    } else if (in_stanza) {
      // Commented ones too: they keep manual values over a time of DHCP.
      TakeAddress(line, "address", values.address);
      TakeAddress(line, "netmask", values.netmask);
      TakeAddress(line, "gateway", values.gateway);
    }
  }
}

void NetworkConfig::set(const Values& wanted) {
  if (wanted.host_name != values.host_name) hostname_dirty = true;
  if (wanted.dhcp != values.dhcp || !(wanted.address == values.address) ||
      !(wanted.netmask == values.netmask) || !(wanted.gateway == values.gateway))
    interfaces_dirty = true;
  values = wanted;
  apply();
}

void NetworkConfig::apply() {
  if (hostname_dirty) {
    const PrivilegeGuard rights(platform);
    hostname_dirty = !ReplaceFile(platform.hostname_path,
                                  [this](std::ostream& out) { out << values.host_name << "\n"; });
  }
  if (interfaces_dirty) {
    const PrivilegeGuard rights(platform);
    interfaces_dirty = !ReplaceFile(platform.interfaces_path, [this](std::ostream& out) {
      std::ifstream old_file(platform.interfaces_path);
      CopyOthers(old_file, out);
      WriteStanza(out);
    });
  }
}

void NetworkConfig::CopyOthers(std::istream& from, std::ostream& to) const {
  bool dropping = false;
  for (std::string line; std::getline(from, line);) {
    if (dropping && (line.empty() || line.starts_with('#') || BeginsWithSpace(line))) continue;
    // The line that ends a stanza is copied, whatever it is.
    const bool ends_stanza = dropping;
    dropping = !ends_stanza && line.starts_with("iface " + interface);
    if (ends_stanza || (!dropping && !line.starts_with("auto " + interface))) to << line << "\n";
  }
}

void NetworkConfig::WriteStanza(std::ostream& to) const {
  const char* prefix = values.dhcp ? "#\t" : "\t";
  to << "auto " << interface << "\n"
     << "iface " << interface << " inet " << (values.dhcp ? "dhcp" : "static") << "\n"
     << prefix << "address " << values.address.ToString() << "\n"
     << prefix << "netmask " << values.netmask.ToString() << "\n"
     << prefix << "broadcast "
     << SocketAddress::Broadcast(values.address, values.netmask).ToString() << "\n"
     << prefix << "gateway " << values.gateway.ToString() << "\n";
}
