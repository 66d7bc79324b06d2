#include "configurable/configurable_composite_dynamic.h"

#include <algorithm>

#include "configurable/xml_parser.h"
#include "configurable/xml_writer.h"

ConfigurableCompositeDynamicBase::~ConfigurableCompositeDynamicBase() {
  for (; !child_list.empty(); child_list.pop_back()) delete child_list.back();
}

void ConfigurableCompositeDynamicBase::add(Configurable* child) {
  std::unique_ptr<Configurable> owner(child);
  if (unique) remove_same(*child);
  child_list.push_back(child);
  adopt(*owner.release());
  mark_changed();
}

void ConfigurableCompositeDynamicBase::remove_first() {
  if (child_list.empty()) return;
  delete child_list.front();
  child_list.erase(child_list.begin());
  mark_changed();
}

void ConfigurableCompositeDynamicBase::remove_last() {
  if (child_list.empty()) return;
  delete child_list.back();
  child_list.pop_back();
  mark_changed();
}

void ConfigurableCompositeDynamicBase::remove_all() {
  if (child_list.empty()) return;
  for (; !child_list.empty(); child_list.pop_back()) delete child_list.back();
  mark_changed();
}

void ConfigurableCompositeDynamicBase::remove_same(const Configurable& key) {
  const auto kept_end =
      std::stable_partition(child_list.begin(), child_list.end(),
                            [&](const Configurable* child) { return !same_child(*child, key); });
  if (kept_end == child_list.end()) return;
  // The key may be one of them, so they go once all are known.
  const std::vector<Configurable*> removed(kept_end, child_list.end());
  child_list.erase(kept_end, child_list.end());
  for (Configurable* child : removed) delete child;
  mark_changed();
}

Configurable* ConfigurableCompositeDynamicBase::find_same(const Configurable& key) const {
  for (Configurable* child : child_list)
    if (same_child(*child, key)) return child;
  return nullptr;
}

void ConfigurableCompositeDynamicBase::assign(const ConfigurableCompositeDynamicBase& other) {
  if (this == &other) return;
  copy_flags(other);
  if (equals(other)) return;
  remove_all();
  mark_changed();
  for (const Configurable* source : other.child_list) {
    std::unique_ptr<Configurable> child = make_child(source->name());
    copy_child(*child, *source);
    add(child.release());
  }
}

bool ConfigurableCompositeDynamicBase::equals(const ConfigurableCompositeDynamicBase& other) const {
  if (child_list.size() != other.child_list.size()) return false;
  for (std::size_t i = 0; i < child_list.size(); ++i)
    if (!same_child(*child_list[i], *other.child_list[i])) return false;
  return true;
}

void ConfigurableCompositeDynamicBase::reset() { remove_all(); }

bool ConfigurableCompositeDynamicBase::read_element(XMLParser& parser, XMLWriter& writer) {
  clear_on_next = true;
  return ConfigurableComposite::read_element(parser, writer);
}

bool ConfigurableCompositeDynamicBase::read_child_element(std::string_view tag, XMLParser& parser,
                                                          XMLWriter& writer) {
  if (clear_on_next) {
    remove_all();
    clear_on_next = false;
  }
  add(make_child(std::string(tag)).release());
  // Nobody reads an element of a list again.
  parser.SavePosition();
  // A composite child reads on where one of its own has failed; it is left out all the same.
  const unsigned errors_before = writer.Errors();
  try {
    const bool read = child_list.back()->read_element(parser, writer);
    if (!read || writer.Errors() != errors_before) remove_last();
    if (!read) parser.SkipElement();
  } catch (...) {
    remove_last();
    throw;
  }
  return true;
}

void ConfigurableCompositeDynamicBase::write_changes(XMLWriter& writer) const {
  write_value(writer);
}
