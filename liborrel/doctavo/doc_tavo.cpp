#include "liborrel/doctavo/doc_tavo.h"

DocTavo::DocTavo() : ConfigurableComposite("nemra") { add(&tavo); }

std::istream& DocTavo::request(std::istream& in, std::ostream& out) {
  tavo.Cmd().reset();
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
    // A listener may take off itself and any other, so the name alone says where to go on.
    const std::string name = next->first;
    next->second->item_changed(ConfigurableEvent(*this));
    next = listeners.upper_bound(name);
  }
}

void DocTavo::notify_if_changed() {
  if (has_changed()) notify();
}

std::ostream& DocTavo::print_ack(std::ostream& out) { return tavo.Ack().print_tree(out); }

std::ostream& DocTavo::report_error(std::ostream& out, const std::string& text) {
  tavo.Error().set(text);
  return tavo.Error().print_tree(out);
}
