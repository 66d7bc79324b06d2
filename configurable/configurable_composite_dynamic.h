#pragma once

#include <memory>
#include <string>
#include <vector>

#include "configurable/configurable_composite.h"

// A composite whose children are made from a document, one for each element, whatever its tag. A
// write with at least one element replaces the whole list; one with only a query, or nothing,
// keeps it; an element in which anything is refused is left out. The list is one value: any change
// prints all of it.
//
// Owns its children.
class ConfigurableCompositeDynamicBase : public ConfigurableComposite {
 public:
  using ConfigurableComposite::ConfigurableComposite;
  ~ConfigurableCompositeDynamicBase() override;

  // Takes over `child`. Where children are unique, those that are the same as it are removed.
  void add(Configurable* child) override;
  // A new child for the element `child_name`, for the caller to own.
  virtual std::unique_ptr<Configurable> make_child(const std::string& child_name) = 0;
  virtual void copy_child(Configurable& target, const Configurable& source) = 0;
  virtual bool same_child(const Configurable& a, const Configurable& b) const = 0;

  // Each marks the composite changed if it removes something.
  void remove_first();
  void remove_last();
  void remove_all();
  // `key` may be one of the children.
  void remove_same(const Configurable& key);
  // The first child that is the same as `key`; null if there is none.
  Configurable* find_same(const Configurable& key) const;
  // Copies flags and children; marks this changed only if the lists differ.
  void assign(const ConfigurableCompositeDynamicBase& other);

  void reset() override;
  bool read_element(XMLParser& parser, XMLWriter& writer) override;
  bool read_child_element(std::string_view tag, XMLParser& parser, XMLWriter& writer) override;
  void write_changes(XMLWriter& writer) const override;

 protected:
  bool unique = false;

 private:
  bool equals(const ConfigurableCompositeDynamicBase& other) const;

  bool clear_on_next = false;  // the next element replaces the list
};

// A dynamic composite of one kind of child; the derived class says when two are the same.
template <class T>
class ConfigurableCompositeDynamic : public ConfigurableCompositeDynamicBase {
 public:
  using ConfigurableCompositeDynamicBase::ConfigurableCompositeDynamicBase;
  ConfigurableCompositeDynamic& operator=(const ConfigurableCompositeDynamic& other) {
    assign(other);
    return *this;
  }

  std::unique_ptr<Configurable> make_child(const std::string& child_name) override {
    return std::make_unique<T>(child_name);
  }
  // Copies value and flags.
  void copy_child(Configurable& target, const Configurable& source) override {
    copy(static_cast<T&>(target), static_cast<const T&>(source));
    target.copy_flags(source);
  }
  bool same_child(const Configurable& a, const Configurable& b) const override {
    return same(static_cast<const T&>(a), static_cast<const T&>(b));
  }
  const T& child(std::size_t index) const { return static_cast<const T&>(*child_list[index]); }
  std::size_t size() const { return child_list.size(); }

 protected:
  virtual void copy(T& target, const T& source) const = 0;
  virtual bool same(const T& a, const T& b) const = 0;
};
