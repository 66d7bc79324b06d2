#include "liborrel/doctavo/doc_tavo.h"

#include <sstream>

#include "common/steps.h"
#include "configurable/number_text.h"

std::istream& DocTavo::request(std::istream& in, std::ostream& out) {
  reset_commands();
  Steps steps;
  steps.Run([&] { read_document(in, out); });
  // A value is live as soon as it is taken, whatever fails after it.
  steps.Run([&] { notify_if_changed(); });
  steps.ThrowFirstFailure();
  return in;
}

void DocTavo::reset_commands() {
  ConfigCmdTavo& commands = Conf().Cmd();
  if (commands.change_count() == commands_reset_at) return;
  commands.reset();
  commands_reset_at = commands.change_count();
}

void DocTavo::add_listener(const std::string& name, ConfigurableListener* listener) {
  listeners[name] = listener;
}

void DocTavo::remove_listener(const std::string& name) { listeners.erase(name); }

void DocTavo::notify() {
  Steps steps;
  for (auto next = listeners.begin(); next != listeners.end();) {
    // The next one is found again by name, since a listener may remove any of them.
    const std::string listener_name = next->first;
    steps.Run([&] { next->second->item_changed(ConfigurableEvent(*this)); });
    next = listeners.upper_bound(listener_name);
  }
  steps.ThrowFirstFailure();
}

void DocTavo::notify_if_changed() {
  if (has_changed()) notify();
}

std::ostream& DocTavo::print_ack(std::ostream& out) const {
  const ConfigurableBool& ack = Conf().Ack();
  if (!is_compact(out)) return ack.print_tree(out);
  if (ack_text.empty() || ack_shown != ack.get()) {
    std::ostringstream text;
    set_compact(text, true);
    ack.print_tree(text);
    ack_text = text.str();
    ack_shown = ack.get();
  }
  WriteText(out, ack_text);
  return out;
}

std::ostream& DocTavo::report_error(std::ostream& out, const std::string& text) {
  Conf().Error().set(text);
  return Conf().Error().print_tree(out);
}
