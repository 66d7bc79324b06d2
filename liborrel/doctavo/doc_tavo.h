#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <ostream>
#include <string>

#include "configurable/configurable_composite.h"
#include "liborrel/doctavo/config_tavo.h"

// The root of all settings of the head: <nemra><tavo>...</tavo></nemra>.
class DocTavo : public ConfigurableComposite {
 public:
  DocTavo() : ConfigurableComposite("nemra") {}

  Child<ConfigTavo> Conf{this, "One head"};

  // The one entry for a client's document: resets the commands, reads, answers on `out`, and tells
  // the listeners if something has changed, even when reading an item has thrown: what was taken
  // before that is live. The exception leaves this call when all listeners have heard. Settings
  // files are read with read_document instead.
  std::istream& request(std::istream& in, std::ostream& out);

  // Makes every command false, so that true is a change again.
  void reset_commands();

  // Listeners to the whole document, not owned, hear item_changed with the root as its source, in
  // the order of the names under which they are registered. Each hears, even if one before it
  // throws; the first exception leaves notify, and further ones are printed.
  void add_listener(const std::string& name, ConfigurableListener* listener);
  void remove_listener(const std::string& name);
  void notify();
  void notify_if_changed();

  // The acknowledgement that ends the answer to a request.
  std::ostream& print_ack(std::ostream& out) const;
  // Keeps `text` as the last error and prints it.
  std::ostream& report_error(std::ostream& out, const std::string& text);

 private:
  std::map<std::string, ConfigurableListener*> listeners;
  std::uint32_t commands_reset_at = 0;  // their change count then
  // The acknowledgement of a compact answer, which ends each of them, and the value that it shows.
  mutable std::string ack_text;
  mutable bool ack_shown = false;
};
