#include "configurable/configurable_attributes.h"

#include "configurable/xml_writer.h"

ConfigurableAttributes::ConfigurableAttributes(Configurable& item) : Configurable("attr") {
  set_parent(&item);
  set_flag(ThrowErrors, item.has_flag(ThrowErrors));
}

void ConfigurableAttributes::add(Configurable* attribute) {
  _attribute_list.push_back(attribute);
  adopt(*attribute);
}

Configurable* ConfigurableAttributes::find(std::string_view attribute) const {
  for (Configurable* candidate : _attribute_list)
    if (candidate->name() == attribute) return candidate;
  return nullptr;
}

bool ConfigurableAttributes::read_attribute(std::string_view attribute, XMLWriter& writer) {
  return process_text(attribute, writer, false);
}

bool ConfigurableAttributes::read_attribute_value(std::string_view attribute,
                                                  std::string_view value, XMLWriter& writer) {
  // Returns to plain mode on every path, including an error that throws.
  struct PlainMode {
    explicit PlainMode(bool& value_mode) : value_mode(value_mode) {}
    ~PlainMode() { value_mode = false; }
    PlainMode(const PlainMode&) = delete;
    PlainMode& operator=(const PlainMode&) = delete;
    bool& value_mode;
  };
  _current_name = attribute;
  const PlainMode afterwards(_value_mode);
  _value_mode = true;
  return process_text(value, writer, false);
}

void ConfigurableAttributes::clear_attributes() {
  for (Configurable* attribute : _attribute_list) attribute->set_enabled(false);
}

void ConfigurableAttributes::set_changed(bool changed) {
  Configurable::set_changed(changed);
  if (changed) return;
  for (Configurable* attribute : _attribute_list)
    if (attribute->may_be_marked()) attribute->set_changed(false);
}

void ConfigurableAttributes::set_locked(bool locked) {
  Configurable::set_locked(locked);
  for (Configurable* attribute : _attribute_list) attribute->set_locked(locked);
}

void ConfigurableAttributes::set_throw_errors(bool throw_errors) {
  Configurable::set_throw_errors(throw_errors);
  for (Configurable* attribute : _attribute_list) attribute->set_throw_errors(throw_errors);
}

bool ConfigurableAttributes::set_from_string(std::string_view text, XMLWriter& writer) {
  Configurable* target = find(_value_mode ? _current_name : text);
  if (target == nullptr) return true;
  if (!parent()->has_flag(AttributesTouched)) parent()->clear_attributes();
  target->set_enabled(true);
  return _value_mode ? target->set_from_string(text, writer) : true;
}

bool ConfigurableAttributes::set_doctype_from_string(std::string_view text, XMLWriter& writer) {
  Configurable* target = _value_mode ? find(_current_name) : nullptr;
  return target == nullptr || target->set_doctype_from_string(text, writer);
}

void ConfigurableAttributes::write_value(XMLWriter& writer) const {
  if (_value_mode) {
    const Configurable* target = find(_current_name);
    if (target == nullptr) return;
    const std::string value = target->value_text();
    if (!target->has_flag(Active))
      writer.text("&disabled;", true);
    else
      writer.text(value.empty() ? "&enabled;" : value, !target->has_flag(RawText));
    return;
  }
  for (const Configurable* attribute : _attribute_list)
    if (attribute->has_flag(Active)) write_pair(attribute->name(), attribute->value_text(), writer);
}

void ConfigurableAttributes::write_doctype(XMLWriter& writer) const {
  if (_value_mode) {
    if (const Configurable* target = find(_current_name)) target->write_doctype(writer);
    return;
  }
  for (const Configurable* attribute : _attribute_list) {
    const std::string doctype = attribute->doctype_text();
    write_pair(attribute->name(), doctype.empty() ? "" : "{" + doctype + "}", writer);
  }
}

void ConfigurableAttributes::write_pair(const std::string& word, std::string_view value,
                                        XMLWriter& writer) {
  if (value.empty())
    writer.attribute(word);
  else
    writer.attribute(word, value);
}

void ConfigurableAttributes::write_context(XMLWriter& writer) const {
  parent()->write_context(writer);
}

void ConfigurableAttributes::write_changes_context(XMLWriter& writer) const {
  parent()->write_changes_context(writer);
}

void ConfigurableAttributes::write_doctype_context(XMLWriter& writer) const {
  parent()->write_doctype_context(writer);
}
