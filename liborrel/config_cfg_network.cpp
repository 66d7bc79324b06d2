#include "liborrel/config_cfg_network.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace {

bool IsAlphanumeric(char byte) {
  return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= 'a' && byte <= 'z');
}

bool IsLabel(std::string_view text) {
  constexpr std::size_t kLongestLabel = 63;
  return !text.empty() && text.size() <= kLongestLabel && IsAlphanumeric(text.front()) &&
         IsAlphanumeric(text.back()) && std::all_of(text.begin(), text.end(), [](char byte) {
           return byte == '-' || IsAlphanumeric(byte);
         });
}

bool IsHostName(std::string_view text) {
  constexpr std::size_t kLongestName = 64;
  if (text.size() > kLongestName) return false;
  while (true) {
    const std::size_t dot = text.find('.');
    if (!IsLabel(text.substr(0, dot))) return false;
    if (dot == std::string_view::npos) return true;
    text.remove_prefix(dot + 1);
  }
}

}  // namespace

ConfigIPAddress::ConfigIPAddress(const std::string& name, const std::string& address)
    : Configurable(name), _value(address), _default_value(address) {}

void ConfigIPAddress::set(const SocketAddress& value) {
  if (value == _value) return;
  _value = value;
  set_changed(true);
}

std::istream& ConfigIPAddress::read_value(std::istream& in, std::ostream& err) {
  const std::string text(std::istreambuf_iterator<char>(in), {});
  if (!in) {
    err << "unable to read IP address";
    return in;
  }
  const SocketAddress address(text);
  // An address in general may be IPv6 or a path; this one may not.
  if (address.Family() != AF_INET) throw SocketError("SocketAddress: illegal address " + text);
  set(address);
  return in;
}

std::ostream& ConfigIPAddress::print_value(std::ostream& out) const {
  return out << _value.ToString();
}

std::ostream& ConfigIPAddress::print_doctype(std::ostream& out) const {
  return out << "int.int.int.int";
}

std::istream& ConfigHostName::read_value(std::istream& in, std::ostream& err) {
  const std::string text(std::istreambuf_iterator<char>(in), {});
  if (IsHostName(text))
    set(text);
  else
    err << "invalid host name (should be letters, digits, inner hyphens and single dots, at most "
           "64)";
  return in;
}
