#pragma once

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
class ConfigurableVisitor {
 public:
  virtual ~ConfigurableVisitor() = default;
  virtual void visit(Configurable& /*item*/) {}
  // False skips the attributes of this set; end_attributes is called all the same.
  virtual bool begin_attributes(ConfigurableAttributes& /*set*/) { return false; }
  virtual void end_attributes(ConfigurableAttributes& /*set*/) {}
  virtual void begin_composite(ConfigurableComposite& /*composite*/) {}
  virtual void end_composite(ConfigurableComposite& /*composite*/) {}
  virtual void visit(ConfigurableMultipleChoice& /*item*/) {}
  virtual void visit(ConfigurableFloat& /*item*/) {}
  virtual void visit(ConfigurableDouble& /*item*/) {}
  virtual void visit(ConfigurableInteger& /*item*/) {}
  virtual void visit(ConfigurableBool& /*item*/) {}
  virtual void visit(ConfigurableString& /*item*/) {}
  virtual void visit(ConfigurableTimestamp& /*item*/) {}
  virtual void visit(ConfigurableTime& /*item*/) {}
  virtual void visit(ConfigurableTime_HourMinutes& /*item*/) {}
  virtual void visit(ConfigurableDate& /*item*/) {}
  virtual void visit(ConfigurableDate_YearMonth& /*item*/) {}
};
