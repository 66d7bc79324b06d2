#pragma once

#include <string>

#include "common/socket_address.h"
#include "configurable/child.h"
#include "configurable/choice.h"
#include "liborrel/units.h"

// An IPv4 address as a setting. Reading any other text throws SocketError.
class ConfigIPAddress : public Configurable {
 public:
  ConfigIPAddress(const std::string& name, const std::string& address);

  const SocketAddress& get() const { return _value; }
  virtual void set(const SocketAddress& value);

  void reset() override { set(_default_value); }
  std::istream& read_value(std::istream& in, std::ostream& err) override;
  std::ostream& print_value(std::ostream& out) const override;
  std::ostream& print_doctype(std::ostream& out) const override;

 private:
  SocketAddress _value;
  SocketAddress _default_value;
};

// A host name as a setting: labels of letters, digits and inner hyphens, 1 to 63 characters each,
// with single dots between them, 64 characters in all (RFC 1123; the length is the system's).
// Anything else is refused; `set` takes what it is given.
class ConfigHostName : public ConfigurableString {
 public:
  using ConfigurableString::ConfigurableString;
  std::istream& read_value(std::istream& in, std::ostream& err) override;
};

// Whether addresses come by themselves.
class ConfigAutoManual : public ConfigurableChoice<ConfigAutoManual> {
 public:
  enum Choice { Auto, Manual };
  static constexpr const char* kChoices[] = {"auto", "manual"};
  using ConfigurableChoice::ConfigurableChoice;
};

// Host name and addresses of the unit, as settings; somebody else carries changes through.
class ConfigCfgNetwork : public ConfigurableComposite {
 public:
  ConfigCfgNetwork() : ConfigurableComposite("network") {}

  Child<ConfigHostName> Name{this, "name", units::kNone, "Host name", "ch4-xxxx"};
  Child<ConfigAutoManual> Configuration{this, "configuration", units::kNone,
                                        "Where addresses come from: DHCP or the items below",
                                        ConfigAutoManual::Auto};
  Child<ConfigIPAddress> Ipaddress{this, "ipaddress", units::kNone, "IPv4 address", "192.168.1.95"};
  Child<ConfigIPAddress> Netmask{this, "netmask", units::kNone, "Netmask", "255.255.255.0"};
  Child<ConfigIPAddress> Gateway{this, "gateway", units::kNone, "Gateway", "192.168.1.1"};
};
