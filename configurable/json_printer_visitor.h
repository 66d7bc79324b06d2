#pragma once

#include <ostream>
#include <string>

#include "configurable/configurable_visitor.h"

// Prints the choices, floats and integers of a tree as a flat list of members of a JSON object,
// each on a new line with its name in upper case and a comma after it. The caller writes the
// braces and the member after the last comma.
// Protocol: a choice is a bare word without quotes, and nan is nan, which is not JSON.
class JSONPrinterVisitor : public ConfigurableConstVisitor {
 public:
  // `out` must outlive this.
  explicit JSONPrinterVisitor(std::ostream& out) : stream(out) {}

  using ConfigurableConstVisitor::visit;
  void visit(const ConfigurableMultipleChoice& item) override;
  void visit(const ConfigurableFloat& item) override;
  void visit(const ConfigurableInteger& item) override;

 private:
  void print_member(const Configurable& item);

  std::ostream& stream;
};
