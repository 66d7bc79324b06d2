#pragma once

#include <utility>

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"

// A node of the tree that joins its parent where it is declared, so that one line is its
// declaration, its place among its siblings, its unit and its meaning. It is its own accessor as
// well; what a const parent gives is const.
//
//   IntegerLeaf Margin{this, "margin", units::kPoints, "Samples before the flash", 0, 0, 100};
//   ...
//   flash.Margin().get();
//
// The texts of unit and meaning must live as long as the program; a null unit means none.
template <class T>
class Child final : public T {
 public:
  // A leaf. `arguments` are those of its class after the name.
  template <class... Arguments>
  Child(ConfigurableComposite* parent, const char* name, const char* unit, const char* meaning,
        Arguments&&... arguments)
      : T(name, std::forward<Arguments>(arguments)...) {
    Join(parent, meaning);
    if (unit != nullptr) add_units(*this, unit);
  }
  // A node whose class has the name.
  Child(ConfigurableComposite* parent, const char* meaning) { Join(parent, meaning); }

  T& operator()() { return *this; }
  const T& operator()() const { return *this; }

 private:
  void Join(ConfigurableComposite* parent, const char* meaning) {
    this->set_meaning(meaning);
    parent->add(this);
  }
};

using BoolLeaf = Child<ConfigurableBool>;
using FloatLeaf = Child<ConfigurableFloat>;
using IntegerLeaf = Child<ConfigurableInteger>;
using StringLeaf = Child<ConfigurableString>;
