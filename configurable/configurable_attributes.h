#pragma once

#include <string>
#include <vector>

#include "configurable/configurable.h"

// The attributes of one item, which are on its tag: each is enabled, meaning that it is there,
// while it is Active. The attributes of one tag are a complete set: setting one of them, or the
// text of the item alone, switches off all that are not set with it.
//
// Belongs to its item and does not own the attributes. Its parent is the item.
class ConfigurableAttributes : public Configurable {
 public:
  explicit ConfigurableAttributes(Configurable& item);

  void add(Configurable* attribute);
  const std::vector<Configurable*>& attribute_list() const { return _attribute_list; }
  // Null if there is none of that name.
  Configurable* find(std::string_view attribute) const;

  // A word on the tag, and a word with a value, either of which may be or hold a query.
  bool read_attribute(std::string_view attribute, XMLWriter& writer) override;
  bool read_attribute_value(std::string_view attribute, std::string_view value,
                            XMLWriter& writer) override;
  // Disables every attribute.
  void clear_attributes() override;

  void set_changed(bool changed) override;
  void set_locked(bool locked) override;
  void set_throw_errors(bool throw_errors) override;

  bool set_from_string(std::string_view text, XMLWriter& writer) override;
  bool set_doctype_from_string(std::string_view text, XMLWriter& writer) override;
  void write_value(XMLWriter& writer) const override;
  void write_doctype(XMLWriter& writer) const override;
  void write_context(XMLWriter& writer) const override;
  void write_changes_context(XMLWriter& writer) const override;
  void write_doctype_context(XMLWriter& writer) const override;

 private:
  static void write_pair(const std::string& word, std::string_view value, XMLWriter& writer);

  std::vector<Configurable*> _attribute_list;
  bool _value_mode = false;   // a word with a value is being read
  std::string _current_name;  // that word
};
