// Whatever a stranger sends, the tree of the head survives it and stays whole.

#include <exception>

#include "fuzz/fuzz_target.h"
#include "liborrel/doctavo/doc_tavo.h"

namespace {

// A changed node below one that does not know of it would never be published.
class MarksClimb : public ConfigurableConstVisitor {
 public:
  using ConfigurableConstVisitor::visit;
  void begin_composite(const ConfigurableComposite& composite) override {
    for (const Configurable* child : composite.children())
      Check(!child->has_changed() || composite.has_changed());
  }
};

std::string Print(const DocTavo& doc, std::ostream& (Configurable::*print)(std::ostream&) const) {
  std::ostringstream out;
  (doc.*print)(out);
  return out.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  DocTavo doc;
  doc.set_changed(false);
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  std::ostringstream answer;
  set_compact(answer, true);
  // Several documents may follow one another.
  for (int i = 0; i < 4 && in.good(); ++i) {
    try {
      doc.request(in, answer);
    } catch (const std::exception&) {
      // A bad address, for example; the caller puts its text into the answer.
    }
  }
  MarksClimb marks;
  doc.accept_const(marks);
  // This bounds an answer, apart from the errors, which are as long as their causes.
  Check(answer.str().size() <= (std::size_t{17} << 20) + 200 * size);
  for (const auto print :
       {&Configurable::print_tree, &Configurable::print_changes, &Configurable::print_doctype_tree})
    Print(doc, print);

  // Its settings file can be read by another head.
  std::istringstream file(Print(doc, &Configurable::print_tree));
  DocTavo other;
  std::ostringstream errors;
  other.read_document(file, errors);
  Check(!file.fail());
  return 0;
}
