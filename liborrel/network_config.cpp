#include "liborrel/network_config.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "common/privilege_guard.h"
#include "common/safe_file.h"

namespace {

bool BeginsWithSpace(const std::string& line) {
  return !line.empty() && std::isspace(static_cast<unsigned char>(line[0])) != 0;
}

std::vector<std::string> WordsOf(const std::string& line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

// Nothing if `text` is not an IPv4 address, but a hardware address, for example.
std::optional<SocketAddress> AddressOf(const std::string& text) {
  try {
    const SocketAddress address(text);
    if (address.Family() == AF_INET) return address;
  } catch (const SocketError&) {
  }
  return std::nullopt;
}

// A mask is an address or the length of a prefix.
std::optional<SocketAddress> MaskOf(const std::string& text) {
  constexpr unsigned kBits = 32;
  unsigned length = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, length);
  if (error != std::errc() || stop != end) return AddressOf(text);
  if (length > kBits) return std::nullopt;
  struct sockaddr_in mask = {};
  mask.sin_family = AF_INET;
  mask.sin_addr.s_addr = htonl(length == 0 ? 0 : ~std::uint32_t{0} << (kBits - length));
  return SocketAddress(reinterpret_cast<const struct sockaddr*>(&mask));
}

}  // namespace

NetworkConfig::NetworkConfig(std::string interface, std::string hostname_path,
                             std::string interfaces_path, const Machine& machine)
    : interface(std::move(interface)),
      hostname_path(std::move(hostname_path)),
      interfaces_path(std::move(interfaces_path)),
      machine(machine) {
  std::ifstream name_file(this->hostname_path);
  if (std::string line; std::getline(name_file, line)) values.host_name = line;
  std::ifstream file(this->interfaces_path);
  ReadStanzas(file);
}

// The options of one stanza, line by line. Commented ones count too, since they keep manual values
// during a time of DHCP, but options that the system reads go before them.
class NetworkConfig::Stanza {
 public:
  explicit Stanza(Values& values) : values(values) {}

  void Take(const std::string& line) {
    const std::size_t start = line.find_first_not_of(" \t#");
    if (start == std::string::npos) return;
    const Source source = line.find('#') < start ? kComment : kOption;
    const std::vector<std::string> words = WordsOf(line.substr(start));
    // The system reads an option by its first word alone; a comment may have others before it.
    const std::size_t names = source == kComment ? words.size() : 1;
    for (std::size_t i = 0; i < names && i + 1 < words.size(); ++i)
      TakeOption(words[i], words[i + 1].substr(0, words[i + 1].find('#')), source);
  }

 private:
  // Where a value comes from; one that comes later here goes before the others.
  enum Source { kNowhere, kComment, kPrefix, kOption };

  void TakeOption(const std::string& name, const std::string& text, Source source) {
    if (name == "netmask") {
      Store(MaskOf(text), source, values.netmask, netmask_source);
    } else if (name == "gateway") {
      Store(AddressOf(text), source, values.gateway, gateway_source);
    } else if (name == "address") {
      const std::size_t slash = text.find('/');
      const auto address = AddressOf(text.substr(0, slash));
      const bool has_prefix = slash != std::string::npos;
      const auto netmask = has_prefix ? MaskOf(text.substr(slash + 1)) : std::nullopt;
      if (has_prefix && !netmask) return;
      Store(address, source, values.address, address_source);
      if (address) Store(netmask, std::min(source, kPrefix), values.netmask, netmask_source);
    }
  }

  static void Store(const std::optional<SocketAddress>& found, Source source,
                    SocketAddress& address, Source& so_far) {
    if (!found || source < so_far) return;
    address = *found;
    so_far = source;
  }

  Values& values;
  Source address_source = kNowhere;
  Source netmask_source = kNowhere;
  Source gateway_source = kNowhere;
};

void NetworkConfig::ReadStanzas(std::istream& file) {
  std::optional<Stanza> stanza;
  for (std::string line; std::getline(file, line);) {
    if (BeginsStanza(line)) {
      stanza.emplace(values);
      if (const auto words = WordsOf(line); words.size() > 3 && words[3] == "static")
        values.dhcp = false;
    } else if (!line.starts_with('#') && !BeginsWithSpace(line)) {
      stanza.reset();
    } else if (stanza) {
      stanza->Take(line);
    }
  }
}

// Only those of IPv4 are the head's.
bool NetworkConfig::BeginsStanza(const std::string& line) const {
  if (!line.starts_with("iface")) return false;
  const std::vector<std::string> words = WordsOf(line);
  return words.size() > 2 && words[0] == "iface" && words[1] == interface && words[2] == "inet";
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
    const PrivilegeGuard rights(machine);
    hostname_dirty =
        !ReplaceFile(hostname_path, [this](std::ostream& out) { out << values.host_name << "\n"; });
  }
  if (interfaces_dirty) {
    const PrivilegeGuard rights(machine);
    interfaces_dirty = !ReplaceFile(interfaces_path, [this](std::ostream& out) {
      std::ifstream old_file(interfaces_path);
      CopyOthers(old_file, out);
      WriteStanza(out);
    });
  }
}

void NetworkConfig::CopyOthers(std::istream& from, std::ostream& to) const {
  bool dropping = false;
  for (std::string line; std::getline(from, line);) {
    if (dropping && (line.empty() || line.starts_with('#') || BeginsWithSpace(line))) continue;
    // A line that ends a stanza is copied, whatever it is, unless it begins another stanza of the
    // head.
    const bool ends_stanza = dropping;
    dropping = BeginsStanza(line);
    if (!dropping) to << (ends_stanza ? line + "\n" : WithoutAuto(line));
  }
}

// A line as it is to be copied, with its line feed, and without the interface if the line was to
// start it first.
std::string NetworkConfig::WithoutAuto(const std::string& line) const {
  std::vector<std::string> words;
  if (line.starts_with("auto")) words = WordsOf(line);
  if (words.size() < 2 || words[0] != "auto" || words[1] != interface) return line + "\n";
  if (words.size() == 2) return "";
  std::string others = "auto";
  for (std::size_t i = 2; i < words.size(); ++i) others += " " + words[i];
  return others + "\n";
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
