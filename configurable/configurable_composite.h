#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "configurable/configurable.h"

// A node with named children, in the order of their registration, which is the order of output.
// Several children may have one name; one element of a document then writes all of them. Unknown
// tags are silently dropped.
//
// The children are members of the derived class, which registers them with add; they are not owned.
class ConfigurableComposite : public Configurable {
 public:
  using Configurable::Configurable;

  virtual void add(Configurable* child);

  const std::vector<Configurable*>& children() const { return child_list; }
  // The first child of that name; null if there is none.
  Configurable* find(std::string_view child_name) const;

  void set_changed(bool changed) override;
  void set_locked(bool locked) override;
  void set_throw_errors(bool throw_errors) override;
  // Resets the Active children.
  void reset() override;
  void accept(ConfigurableVisitor& visitor) override;
  bool read_child_element(std::string_view tag, XMLParser& parser, XMLWriter& writer) override;
  void write_value(XMLWriter& writer) const override;
  void write_doctype(XMLWriter& writer) const override;
  void write_changes(XMLWriter& writer) const override;

 protected:
  std::vector<Configurable*> child_list;

 private:
  // Of the first child of that name; the count of children if there is none.
  std::size_t place_of(std::string_view child_name) const;
  static void read_child(Configurable& child, XMLParser& parser, XMLWriter& writer);

  bool names_repeat = false;  // some children may have the same name
};
