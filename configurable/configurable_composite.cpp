#include "configurable/configurable_composite.h"

#include <cstring>

#include "configurable/xml_parser.h"

namespace {

// Most names differ at once; a call to compare them costs more than all of this.
bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && !a.empty() && a.front() == b.front() &&
         std::memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

void ConfigurableComposite::add(Configurable* child) {
  names_repeat = names_repeat || find(child->name()) != nullptr;
  child_list.push_back(child);
  adopt(*child);
}

Configurable* ConfigurableComposite::find(std::string_view child_name) const {
  const std::size_t place = place_of(child_name);
  return place < child_list.size() ? child_list[place] : nullptr;
}

std::size_t ConfigurableComposite::place_of(std::string_view child_name) const {
  std::size_t place = 0;
  while (place < child_list.size() && !SameName(child_list[place]->name(), child_name)) ++place;
  return place;
}

void ConfigurableComposite::set_changed(bool changed) {
  if (!changed && !may_be_marked()) return;
  Configurable::set_changed(changed);
  if (changed) return;
  for (Configurable* child : child_list)
    if (child->may_be_marked()) child->set_changed(false);
}

void ConfigurableComposite::set_locked(bool locked) {
  Configurable::set_locked(locked);
  for (Configurable* child : child_list) child->set_locked(locked);
}

void ConfigurableComposite::set_throw_errors(bool throw_errors) {
  Configurable::set_throw_errors(throw_errors);
  for (Configurable* child : child_list) child->set_throw_errors(throw_errors);
}

void ConfigurableComposite::reset() {
  for (Configurable* child : child_list)
    if (child->has_flag(Active)) child->reset();
}

void ConfigurableComposite::accept(ConfigurableVisitor& visitor) {
  visitor.begin_composite(*this);
  for (Configurable* child : child_list) {
    child->accept(visitor);
    child->accept_attributes(visitor);
  }
  visitor.end_composite(*this);
}

bool ConfigurableComposite::read_child_element(std::string_view tag, XMLParser& parser,
                                               XMLWriter& writer) {
  const std::size_t count = child_list.size();
  std::size_t place = parser.LikelyPlace();
  // The first of that name has to be found if there may be more.
  if (names_repeat || place >= count || !SameName(child_list[place]->name(), tag))
    place = place_of(tag);
  parser.SavePosition();
  if (place == count) {
    parser.PassElement();
    return true;
  }
  read_child(*child_list[place], parser, writer);
  if (names_repeat) {
    // The tag itself is lost when the parser moves.
    const std::string& name = child_list[place]->name();
    for (std::size_t next = place + 1; next < child_list.size(); ++next) {
      if (SameName(child_list[next]->name(), name)) read_child(*child_list[next], parser, writer);
    }
  }
  parser.SetLikelyPlace(place + 1);
  return true;
}

void ConfigurableComposite::read_child(Configurable& child, XMLParser& parser, XMLWriter& writer) {
  if (child.has_flag(Active)) {
    parser.RestorePosition();
    parser.SetLikelyPlace(0);
    if (child.read_element(parser, writer)) return;
    // What fails in a child goes no higher: its element is skipped, and the next one is read.
  }
  parser.SkipElement();
}

void ConfigurableComposite::write_value(XMLWriter& writer) const {
  for (Configurable* child : child_list)
    if (child->has_flag(Active)) child->write_element(writer);
}

void ConfigurableComposite::write_doctype(XMLWriter& writer) const {
  for (Configurable* child : child_list)
    if (child->has_flag(Active)) child->write_doctype_element(writer);
}

void ConfigurableComposite::write_changes(XMLWriter& writer) const {
  for (Configurable* child : child_list)
    if (child->has_flag(Active) && child->has_changed()) child->write_changes_element(writer);
}
