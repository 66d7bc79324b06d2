#include "liborrel/config_cfg_network.h"

#include <iterator>
#include <vector>

namespace {

std::vector<std::string>* AutoManual() {
  static std::vector<std::string> choices = {"auto", "manual"};
  return &choices;
}

}  // namespace

ConfigIPAddress::ConfigIPAddress(const std::string& item_name, const std::string& address)
    : Configurable(item_name), _value(address), _default_value(address) {}

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
  // An address in general may be a path; this one may not.
  if (address.Family() == AF_UNIX) throw SocketError("SocketAddress: illegal address " + text);
  set(address);
  return in;
}

std::ostream& ConfigIPAddress::print_value(std::ostream& out) { return out << _value.ToString(); }

std::ostream& ConfigIPAddress::print_doctype(std::ostream& out) { return out << "int.int.int.int"; }

ConfigAutoManual::ConfigAutoManual(const std::string& item_name, int default_index)
    : ConfigurableMultipleChoice(item_name, AutoManual(), default_index) {}
