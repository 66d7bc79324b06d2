#include "configurable/configurable_composite.h"

#include <algorithm>
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
  for (Configurable* child : child_list)
    if (SameName(child->name(), child_name)) return child;
  return nullptr;
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
  const auto has_name = [tag](const Configurable* child) { return SameName(child->name(), tag); };
  const std::size_t likely = parser.LikelyPlace();
  const auto first = !names_repeat && likely < child_list.size() && has_name(child_list[likely])
                         ? child_list.begin() + static_cast<std::ptrdiff_t>(likely)
                         : std::find_if(child_list.begin(), child_list.end(), has_name);
  parser.SavePosition();
  if (first == child_list.end()) {
    parser.PassElement();
    return true;
  }
  // The tag itself is lost when the parser moves.
  const std::string& name = (*first)->name();
  for (auto next = first; next != child_list.end(); ++next) {
    Configurable* child = *next;
    if (!SameName(child->name(), name)) continue;
    if (child->has_flag(Active)) {
      parser.RestorePosition();
      parser.SetLikelyPlace(0);
      // What fails in a child goes no higher: its element is skipped, and the next one is read.
      if (!child->read_element(parser, writer)) parser.SkipElement();
    } else {
      parser.SkipElement();
    }
    if (!names_repeat) break;
  }
  parser.SetLikelyPlace(static_cast<std::size_t>(first - child_list.begin()) + 1);
  return true;
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
