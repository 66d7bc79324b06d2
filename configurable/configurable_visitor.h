#pragma once

#include <type_traits>

class Configurable;
class ConfigurableAttributes;
class ConfigurableBool;
class ConfigurableComposite;
class ConfigurableDate;
class ConfigurableDate_YearMonth;
class ConfigurableDouble;
class ConfigurableFloat;
class ConfigurableInteger;
class ConfigurableMultipleChoice;
class ConfigurableString;
class ConfigurableTime;
class ConfigurableTime_HourMinutes;
class ConfigurableTimestamp;

// Walks a tree by Configurable::accept, hidden nodes included. A kind of node without a call of its
// own comes as visit(Configurable&).
template <bool kConst>
class BasicConfigurableVisitor {
 public:
  template <class Node>
  using Seen = std::conditional_t<kConst, const Node&, Node&>;

  virtual ~BasicConfigurableVisitor() = default;
  virtual void visit(Seen<Configurable> /*item*/) {}
  // False skips the attributes of this set; end_attributes is called all the same.
  virtual bool begin_attributes(Seen<ConfigurableAttributes> /*set*/) { return false; }
  virtual void end_attributes(Seen<ConfigurableAttributes> /*set*/) {}
  virtual void begin_composite(Seen<ConfigurableComposite> /*composite*/) {}
  virtual void end_composite(Seen<ConfigurableComposite> /*composite*/) {}
  virtual void visit(Seen<ConfigurableMultipleChoice> /*item*/) {}
  virtual void visit(Seen<ConfigurableFloat> /*item*/) {}
  virtual void visit(Seen<ConfigurableDouble> /*item*/) {}
  virtual void visit(Seen<ConfigurableInteger> /*item*/) {}
  virtual void visit(Seen<ConfigurableBool> /*item*/) {}
  virtual void visit(Seen<ConfigurableString> /*item*/) {}
  virtual void visit(Seen<ConfigurableTimestamp> /*item*/) {}
  virtual void visit(Seen<ConfigurableTime> /*item*/) {}
  virtual void visit(Seen<ConfigurableTime_HourMinutes> /*item*/) {}
  virtual void visit(Seen<ConfigurableDate> /*item*/) {}
  virtual void visit(Seen<ConfigurableDate_YearMonth> /*item*/) {}
};

// May change what it visits.
using ConfigurableVisitor = BasicConfigurableVisitor<false>;
// Sees const nodes, in the walk of Configurable::accept_const.
using ConfigurableConstVisitor = BasicConfigurableVisitor<true>;
