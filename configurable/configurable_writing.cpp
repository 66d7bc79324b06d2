// How the nodes of the tree write themselves: values, types and changes, alone or in context.

#include "configurable/configurable.h"
#include "configurable/configurable_attributes.h"
#include "configurable/text_stream.h"
#include "configurable/xml_writer.h"

void Configurable::write_value(XMLWriter& writer) const {
  const Borrowed text(writer.Values().outputs);
  print_value(*text);
  writer.text(text->Text(), !has_flag(RawText));
}

void Configurable::write_doctype(XMLWriter& writer) const {
  const Borrowed text(writer.Values().outputs);
  *text << '{';
  print_doctype(*text);
  *text << '}';
  writer.text(text->Text(), !has_flag(RawText));
}

void Configurable::write_changes(XMLWriter& writer) const {
  if (has_changed()) write_value(writer);
}

void Configurable::write_start(XMLWriter& writer) const {
  writer.start_element(_name, _name_is_tag);
  on_write_begin();
  if (_listener != nullptr) _listener->item_write_begin(ConfigurableEvent(*this));
}

void Configurable::write_end(XMLWriter& writer) const {
  writer.end_element(_name, _name_is_tag);
  on_write_end();
  if (_listener != nullptr) _listener->item_write_end(ConfigurableEvent(*this));
}

void Configurable::write_attributes(Writer part, XMLWriter& writer) const {
  if (_attributes) (_attributes.get()->*part)(writer);
}

void Configurable::write_element(XMLWriter& writer) const {
  write_start(writer);
  write_attributes(&Configurable::write_value, writer);
  write_value(writer);
  write_end(writer);
}

void Configurable::write_changes_element(XMLWriter& writer) const {
  write_start(writer);
  write_attributes(&Configurable::write_value, writer);
  write_changes(writer);
  write_end(writer);
}

void Configurable::write_doctype_element(XMLWriter& writer) const {
  writer.start_element(_name, _name_is_tag);
  write_attributes(&Configurable::write_doctype, writer);
  write_doctype(writer);
  writer.end_element(_name, _name_is_tag);
}

void Configurable::write_context(XMLWriter& writer) const {
  write_in_context(&Configurable::write_value, &Configurable::write_value, writer);
}

void Configurable::write_changes_context(XMLWriter& writer) const {
  if (has_changed())
    write_in_context(&Configurable::write_value, &Configurable::write_changes, writer);
}

void Configurable::write_doctype_context(XMLWriter& writer) const {
  write_in_context(&Configurable::write_doctype, &Configurable::write_doctype, writer);
}

void Configurable::write_in_context(Writer attributes_part, Writer own_part,
                                    XMLWriter& writer) const {
  write_path_start(writer);
  write_attributes(attributes_part, writer);
  (this->*own_part)(writer);
  for (const Configurable* node = this; node != nullptr; node = node->_parent)
    node->write_end(writer);
}

void Configurable::write_path_start(XMLWriter& writer) const {
  if (_parent != nullptr) _parent->write_path_start(writer);
  write_start(writer);
}

std::ostream& Configurable::print_with(Writer write, std::ostream& out) const {
  XMLWriter writer(out, !is_compact(out), &streams());
  (this->*write)(writer);
  return out;
}

std::ostream& Configurable::print_tree(std::ostream& out) const {
  return print_with(&Configurable::write_context, out);
}

std::ostream& Configurable::print_element(std::ostream& out) const {
  return print_with(&Configurable::write_element, out);
}

std::ostream& Configurable::print_changes(std::ostream& out) const {
  return print_with(&Configurable::write_changes_context, out);
}

std::ostream& Configurable::print_doctype_tree(std::ostream& out) const {
  return print_with(&Configurable::write_doctype_context, out);
}

std::ostream& Configurable::print_query(std::ostream& out) const {
  return print_with(&Configurable::write_query, out);
}

void Configurable::write_query(XMLWriter& writer) const {
  write_query_start(writer);
  writer.text("&query;", true);
  for (const Configurable* node = this; node != nullptr; node = node->_parent)
    writer.end_element(node->_name);
}

void Configurable::write_query_start(XMLWriter& writer) const {
  if (_parent != nullptr) _parent->write_query_start(writer);
  writer.start_element(_name);
}

std::string Configurable::value_text() const {
  TextOutput text;
  print_value(text);
  return text.Text();
}

std::string Configurable::doctype_text() const {
  TextOutput text;
  print_doctype(text);
  return text.Text();
}
