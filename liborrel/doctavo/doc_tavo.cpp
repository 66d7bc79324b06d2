#include "liborrel/doctavo/doc_tavo.h"

std::istream& DocTavo::request(std::istream& in, std::ostream& out) {
  Conf().Cmd().reset();
  read_document(in, out);
  notify_if_changed();
  return in;
}

void DocTavo::add_listener(const std::string& listener_name, ConfigurableListener* listener) {
  listeners[listener_name] = listener;
}

void DocTavo::remove_listener(const std::string& listener_name) { listeners.erase(listener_name); }

void DocTavo::notify() {
  for (auto next = listeners.begin(); next != listeners.end();) {
    // A listener may take itself off.
    ConfigurableListener* listener = (next++)->second;
    listener->item_changed(ConfigurableEvent(*this));
  }
}

void DocTavo::notify_if_changed() {
  if (has_changed()) notify();
}

std::ostream& DocTavo::print_ack(std::ostream& out) { return Conf().Ack().print_tree(out); }

std::ostream& DocTavo::report_error(std::ostream& out, const std::string& text) {
  Conf().Error().set(text);
  return Conf().Error().print_tree(out);
}
