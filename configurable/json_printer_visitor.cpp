#include "configurable/json_printer_visitor.h"

#include <cctype>

#include "configurable/configbuiltin.h"

void JSONPrinterVisitor::visit(const ConfigurableMultipleChoice& item) { print_member(item); }
void JSONPrinterVisitor::visit(const ConfigurableFloat& item) { print_member(item); }
void JSONPrinterVisitor::visit(const ConfigurableInteger& item) { print_member(item); }

void JSONPrinterVisitor::print_member(const Configurable& item) {
  stream << "\n\"";
  for (const char letter : item.name())
    stream.put(static_cast<char>(std::toupper(static_cast<unsigned char>(letter))));
  stream << "\":";
  item.print_value(stream);
  stream << ',';
}
